#include "src/rknn/report.h"

#include <signal.h>  // NOLINT(modernize-deprecated-headers): <csignal> need not have sigprocmask

#include <cstdarg>
#include <ctime>

namespace corvane {

namespace {

// Keeps a write to a closed pipe from ending the process. The write raises SIGPIPE for the writing
// thread only, so the thread blocks the signal and takes it back before it unblocks it.
class SigpipeBlocker {
 public:
  SigpipeBlocker() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&sigpipe_);
    sigaddset(&sigpipe_, SIGPIPE);
    // On Linux this is the mask of the calling thread. pthread_sigmask does the same, but needs a
    // newer glibc or another library.
    sigprocmask(SIG_BLOCK, &sigpipe_, &mask_at_start_);
  }
  SigpipeBlocker(const SigpipeBlocker&) = delete;
  SigpipeBlocker& operator=(const SigpipeBlocker&) = delete;
  ~SigpipeBlocker() {
    const timespec no_wait = {};
    // A signal that was pending before is the caller's.
    if (!was_pending_) sigtimedwait(&sigpipe_, nullptr, &no_wait);
    sigprocmask(SIG_SETMASK, &mask_at_start_, nullptr);
  }

 private:
  sigset_t sigpipe_;
  sigset_t mask_at_start_;
  bool was_pending_ = false;
};

}  // namespace

void WriteLine(std::FILE* stream, const char* format, ...) {
  const SigpipeBlocker sigpipe_blocker;
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream, format, arguments);
  va_end(arguments);
  std::fflush(stream);
}

}  // namespace corvane
