// The subcommands. Each takes what the command line said, writes its result to standard output and
// throws Failure for anything that is wrong; what it returns is the exit status.
#ifndef CORVANE_TOOLS_COMMANDS_H_
#define CORVANE_TOOLS_COMMANDS_H_

#include <string>
#include <vector>

namespace corvane_tool {

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

struct InfoOptions {
  std::string model;
};
int Info(const InfoOptions& options);

struct RunOptions {
  std::vector<std::string> images;
  std::string config;
  std::string model, kind, pixel_type, means, scales, resize, landmarks, output;
  std::string json;
  std::string npy;
};
int Run(const RunOptions& options);

struct AlignOptions {
  std::string image;
  std::string landmarks;
  std::string output;
};
int Align(const AlignOptions& options);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_COMMANDS_H_
