// The subcommands. Each takes what the command line said, writes its result to standard output and
// throws Failure for anything that is wrong; what it returns is the exit status.
#ifndef CORVANE_TOOLS_COMMANDS_H_
#define CORVANE_TOOLS_COMMANDS_H_

#include <string>
#include <vector>

namespace corvane_tool {

// compare, explain, run --expect, info --check: the outputs are not the reference's; replay: the
// program did not do what was recorded.
constexpr int kDiffers = 1;
// compare, explain, info --check: Failure, so that it is not taken for a difference.
constexpr int kCannotCompare = 2;

// In all of these an empty string means that the option was not given.

struct PackOptions {
  std::string model;
  std::string output;
  std::string type;  // the model's native input type
  std::string fl;    // its fractional bits, for fixed point
  std::string mean;  // the model's own normalisation
  std::string scale;
  bool raw = false;  // not ONNX: packed unread
};
int Pack(const PackOptions& options);

struct ToleranceOptions {
  std::string rtol, atol;
};

struct InfoOptions {
  std::string model;
  bool check = false;  // both engines of the simulated runtime
  ToleranceOptions tolerance;
};
int Info(const InfoOptions& options);

struct AlignOptions {
  std::string image;
  std::string landmarks;
  std::string face;  // the template's name
  std::string output;
};
int Align(const AlignOptions& options);

// Each overrides the settings file.
struct SettingsOptions {
  std::string config;
  std::string model, kind, pixel_type, means, scales, resize, face, exif, landmarks, output;
};

struct RunOptions {
  std::vector<std::string> images;
  SettingsOptions settings;
  std::string json;
  std::string npy;
  std::string expect;
  ToleranceOptions tolerance;
  bool show = false;
  bool quiet = false;
};
int Run(const RunOptions& options);

struct CompareOptions {
  std::string reference, test;
  ToleranceOptions tolerance;
  std::string json;  // "-": instead of the table
};
int Compare(const CompareOptions& options);

struct ExplainOptions {
  std::string image;
  SettingsOptions settings;
  std::string expect, expect_input;
};
int Explain(const ExplainOptions& options);

struct KindsOptions {
  std::vector<std::string> images;
  SettingsOptions settings;
};
int Kinds(const KindsOptions& options);

struct DoctorOptions {
  std::string model;
  std::string json;
  std::string limit;  // seconds for each step
  std::string root;   // of /proc, /sys and /dev
};
// Returns 0 where all is well, 1 where something is worth a look, 2 where something is wrong.
int Doctor(const DoctorOptions& options);

struct BenchOptions {
  SettingsOptions settings;
  std::string parallel, seconds, limit;
  std::string json, compare;
};
// Returns kDiffers where something is slower than in the bench that it is compared with.
int Bench(const BenchOptions& options);

struct RecordOptions {
  std::vector<std::string> command;
  std::string output;
  std::string every, frames, max_bytes;
};
int Record(const RecordOptions& options);

struct ReplayOptions {
  std::vector<std::string> command;
  std::string recording;
  bool times = false;
};
int Replay(const ReplayOptions& options);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_COMMANDS_H_
