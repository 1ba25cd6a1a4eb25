#include "tools/support/child_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <thread>

#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

[[noreturn]] void RunAndEnd(const std::function<void(int file)>& body, int file) {
  int status = 0;
  try {
    body(file);
  } catch (...) {
    status = 1;
  }
  _exit(status);
}

// Until the end of the file; false where nothing came for so long.
bool ReadAll(int file, std::chrono::milliseconds silence, std::vector<uint8_t>* bytes) {
  const int timeout =
      silence.count() == 0 || silence.count() > INT_MAX ? -1 : static_cast<int>(silence.count());
  uint8_t part[65536];
  for (;;) {
    pollfd wanted = {file, POLLIN, 0};
    const int ready = poll(&wanted, 1, timeout);
    if (ready == 0) return false;
    const ssize_t got = ready < 0 ? -1 : read(file, part, sizeof(part));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return true;
    bytes->insert(bytes->end(), part, part + got);
  }
}

// A process that hangs in a driver may outlive even this signal; it is waited for no longer than a
// second.
void KillAndForget(pid_t child) {
  kill(child, SIGKILL);
  for (int i = 0; i < 100 && waitpid(child, nullptr, WNOHANG) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

ChildAnswer RunInChild(const std::function<void(int file)>& body,
                       std::chrono::milliseconds silence) {
  int ends[2];
  if (pipe(ends) != 0) throw Failure(std::string("no pipe: ") + std::strerror(errno));
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    RunAndEnd(body, ends[1]);
  }
  const int why = errno;
  close(ends[1]);
  ChildAnswer answer;
  if (child > 0) answer.is_late = !ReadAll(ends[0], silence, &answer.bytes);
  close(ends[0]);
  if (child < 0) throw Failure(std::string("no process: ") + std::strerror(why));
  if (answer.is_late) {
    KillAndForget(child);
    return answer;
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) answer.end = "signal " + std::to_string(WTERMSIG(status));
  if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
    answer.end = "status " + std::to_string(WEXITSTATUS(status));
  }
  return answer;
}

void WriteAll(int file, const void* bytes, std::size_t count) {
  const auto* const from = static_cast<const char*>(bytes);
  for (std::size_t done = 0; done < count;) {
    const ssize_t written = write(file, from + done, count - done);
    if (written < 0 && errno != EINTR) return;
    if (written > 0) done += static_cast<std::size_t>(written);
  }
}

}  // namespace corvane_tool
