#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "recorder/recording.h"
#include "recorder/replay_counts.h"
#include "tools/commands.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"
#include "tools/support/program.h"

namespace corvane_tool {

namespace {

class TemporaryFile {
 public:
  TemporaryFile() {
    const int file = mkstemp(name_);
    if (file < 0) throw Failure(std::string(name_) + ": " + std::strerror(errno));
    close(file);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { unlink(name_); }

  const char* name() const { return name_; }

 private:
  char name_[32] = "/tmp/corvane-replay-XXXXXX";
};

}  // namespace

int Replay(const ReplayOptions& options) {
  corvane_recording::Recording recording;
  std::string why;
  if (!recording.Read(options.recording, &why)) throw Failure(why);
  char path[PATH_MAX];
  if (realpath(options.recording.c_str(), path) == nullptr) {
    throw Failure(options.recording + ": " + std::strerror(errno));
  }
  const TemporaryFile file;
  SetEnvironment("CORVANE_SIM_REPLAY", path);
  SetEnvironment("CORVANE_SIM_REPLAY_COUNTS", file.name());
  if (options.times) SetEnvironment("CORVANE_SIM_REPLAY_TIMES", "1");
  const int ended = RunProgram(options.command);

  corvane_recording::ReplayCounts counts = {};
  const std::vector<uint8_t> bytes = ReadFile(file.name());
  if (bytes.size() == sizeof(counts)) std::memcpy(&counts, bytes.data(), sizeof(counts));
  if (counts.is_open == 0) {
    std::fprintf(stderr, "corvane: %s has not called the simulated runtime\n",
                 options.command[0].c_str());
  }
  if (ended != 0) return ended;
  return IsAsRecorded(counts) ? 0 : kDiffers;
}

}  // namespace corvane_tool
