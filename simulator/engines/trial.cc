#include "simulator/engines/trial.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace rknn_sim {

namespace {

constexpr rlim_t kMaxSeconds = 60;
constexpr uint64_t kMoreMemory = uint64_t{4} << 30;
constexpr std::size_t kMaxText = 500;

// The child writes one byte for the outcome, then the reason, in one write that a pipe never
// splits.
constexpr char kDone = 'y', kRefused = 'n', kEnded = 'e';

void Limit(int resource, rlim_t wanted) {
  rlimit limit = {};
  if (getrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0) return;
  limit.rlim_cur = std::min(wanted, limit.rlim_max);
  setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

// Relative to the present size, as a sanitizer maps terabytes.
void LimitMemory() {
  unsigned long long pages = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "re");
  if (file == nullptr) return;
  const bool is_known = std::fscanf(file, "%llu", &pages) == 1;
  std::fclose(file);
  if (is_known) {
    Limit(RLIMIT_AS, pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) + kMoreMemory);
  }
}

[[noreturn]] void BeChild(int to_parent, bool (*action)(void*, String*), void* subject) {
  // The program's crash handlers must not report the child's crash.
  for (const int fatal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGXCPU, SIGTERM}) {
    std::signal(fatal, SIG_DFL);
  }
  Limit(RLIMIT_CORE, 0);
  Limit(RLIMIT_CPU, kMaxSeconds);
  LimitMemory();
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) dup2(nowhere, STDERR_FILENO);

  char reply[1 + kMaxText];
  std::size_t length = 0;
  try {
    String why;
    reply[0] = action(subject, &why) ? kDone : kRefused;
    length = std::min(why.size(), kMaxText);
    std::memcpy(reply + 1, why.data(), length);
  } catch (...) {
    reply[0] = kEnded;
    length = static_cast<std::size_t>(std::snprintf(reply + 1, kMaxText, "ran out of memory"));
  }
  const bool is_written = write(to_parent, reply, 1 + length) > 0;
  _exit(is_written ? 0 : 1);
}

void DescribeEnd(bool is_known, int status, String* why) {
  char text[80] = "ended without a word";
  if (is_known && WIFSIGNALED(status)) {
    std::snprintf(text, sizeof(text), "crashed (signal %d, %s)", WTERMSIG(status),
                  strsignal(WTERMSIG(status)));
  }
  *why = text;
}

}  // namespace

Trial TryInChild(bool (*action)(void*, String*), void* subject, String* why) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    *why = "cannot be tried: there is no pipe";
    return Trial::kEnded;
  }
  const pid_t child = fork();
  if (child == 0) BeChild(ends[1], action, subject);
  close(ends[1]);
  if (child < 0) {
    close(ends[0]);
    *why = "cannot be tried: there is no process";
    return Trial::kEnded;
  }

  // The pipe's end is not enough: a process that another thread forks now holds it open, too.
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(kMaxSeconds);
  char reply[1 + kMaxText];
  ssize_t length = 0;
  int status = 0;
  pid_t ended = 0;
  bool is_late = false;
  while (length <= 0) {
    constexpr int kMilliseconds = 20;
    pollfd reading = {ends[0], POLLIN, 0};
    const bool is_last_look = ended != 0;
    if (poll(&reading, 1, is_last_look ? 0 : kMilliseconds) > 0) {
      length = read(ends[0], reply, sizeof(reply));
      if (length >= 0) break;
    }
    if (is_last_look) break;
    ended = waitpid(child, &status, WNOHANG);
    is_late = ended == 0 && Clock::now() > deadline;
    if (is_late) break;
  }
  close(ends[0]);
  if (is_late) kill(child, SIGKILL);
  while (ended == 0 || (ended < 0 && errno == EINTR)) ended = waitpid(child, &status, 0);

  if (length > 0) {
    why->assign(reply + 1, static_cast<std::size_t>(length) - 1);
    return reply[0] == kDone      ? Trial::kDone
           : reply[0] == kRefused ? Trial::kRefused
                                  : Trial::kEnded;
  }
  if (is_late) {
    *why = "took more than a minute";
  } else {
    DescribeEnd(ended == child, status, why);
  }
  return Trial::kEnded;
}

}  // namespace rknn_sim
