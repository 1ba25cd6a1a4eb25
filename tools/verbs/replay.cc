#include <limits.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "recorder/recording.h"
#include "recorder/replay_counts.h"
#include "tools/commands.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"
#include "tools/support/program.h"
#include "tools/support/temporary_file.h"

namespace corvane_tool {

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
  SetEnvironment("CORVANE_SIM_REPLAY_COUNTS", file.path());
  if (options.times) SetEnvironment("CORVANE_SIM_REPLAY_TIMES", "1");
  const int ended = RunProgram(options.command);

  corvane_recording::ReplayCounts counts = {};
  const std::vector<uint8_t> bytes = ReadFile(file.path());
  if (bytes.size() == sizeof(counts)) std::memcpy(&counts, bytes.data(), sizeof(counts));
  if (counts.is_open == 0) {
    std::fprintf(stderr, "corvane: %s has not called the simulated runtime\n",
                 options.command[0].c_str());
  }
  if (ended != 0) return ended;
  return IsAsRecorded(counts) ? 0 : kDiffers;
}

}  // namespace corvane_tool
