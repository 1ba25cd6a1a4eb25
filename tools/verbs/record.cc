#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "recorder/recording.h"
#include "tools/commands.h"
#include "tools/support/failure.h"
#include "tools/support/program.h"

namespace corvane_tool {

namespace {

// The recorder is beside the tool in a build, and with the libraries where it is installed.
std::string FindRecorder() {
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof(self));
  if (length <= 0) throw Failure(std::string("/proc/self/exe: ") + std::strerror(errno));
  std::string folder(self, static_cast<std::size_t>(length));
  folder.resize(folder.rfind('/') + 1);
  std::string tried;
  for (const char* from : {"", "../recorder/", "../lib/corvane/"}) {
    std::string path = folder + from + "libcorvane_recorder.so";
    if (access(path.c_str(), R_OK) == 0) return path;
    tried += (tried.empty() ? "" : ", ") + path;
  }
  throw Failure("libcorvane_recorder.so is not there: " + tried);
}

// The program may change its folder before it calls the runtime.
std::string AbsolutePath(const std::string& path) {
  char folder[PATH_MAX];
  if (!path.empty() && path[0] == '/') return path;
  if (getcwd(folder, sizeof(folder)) == nullptr) {
    throw Failure(std::string("the working folder: ") + std::strerror(errno));
  }
  return std::string(folder) + "/" + path;
}

void SetCount(const char* option, const std::string& text, const char* variable) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long count = std::strtoull(text.c_str(), &end, 10);
  const bool is_digit = !text.empty() && text[0] >= '0' && text[0] <= '9';
  if (!text.empty() && (!is_digit || *end != '\0' || errno != 0 || count == 0)) {
    throw Failure(std::string(option) + ": '" + text + "' is not a number from 1 on");
  }
  if (text.empty()) {
    unsetenv(variable);
  } else {
    SetEnvironment(variable, std::to_string(count));
  }
}

}  // namespace

int Record(const RecordOptions& options) {
  const std::string file = AbsolutePath(options.output);
  struct stat status;
  if (lstat(file.c_str(), &status) == 0) {
    throw Failure(options.output + ": is there already; a recording never replaces a file");
  }
  SetCount("--every", options.every, "CORVANE_RECORD_EVERY");
  SetCount("--frames", options.frames, "CORVANE_RECORD_FRAMES");
  SetCount("--max-bytes", options.max_bytes, "CORVANE_RECORD_MAX_BYTES");
  const char* const others = std::getenv("LD_PRELOAD");
  const std::string more = others != nullptr && *others != '\0' ? std::string(":") + others : "";
  SetEnvironment("LD_PRELOAD", FindRecorder() + more);
  SetEnvironment("CORVANE_RECORD", file);
  const int ended = RunProgram(options.command);

  corvane_recording::Recording recording;
  std::string why;
  if (lstat(file.c_str(), &status) != 0) {
    throw Failure("nothing was recorded: " + options.command[0] + " has not called the runtime");
  }
  if (!recording.Read(file, &why)) throw Failure(why);
  std::fprintf(stderr, "corvane: %s: %zu calls in %lld bytes\n", options.output.c_str(),
               recording.calls().size(), static_cast<long long>(status.st_size));
  return ended;
}

}  // namespace corvane_tool
