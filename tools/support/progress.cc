#include "tools/support/progress.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tools/support/stopwatch.h"

namespace corvane_tool {

Progress::Progress(std::size_t total)
    : total_(total), shows_(total > 1 && isatty(2) == 1), start_ms_(SteadyMilliseconds()) {}

void Progress::Show(std::size_t done) const {
  if (!shows_) return;
  constexpr std::size_t kWidth = 30;
  const std::size_t filled = kWidth * done / total_;
  std::fprintf(stderr, "\r[%s%s] %zu of %zu", std::string(filled, '#').c_str(),
               std::string(kWidth - filled, '.').c_str(), done, total_);
  if (done > 0) {
    const double each = (SteadyMilliseconds() - start_ms_) / static_cast<double>(done);
    const auto seconds = static_cast<long>(each * static_cast<double>(total_ - done) / 1000);
    std::fprintf(stderr, ", %ld:%02ld left ", seconds / 60, seconds % 60);
  }
  std::fflush(stderr);
}

void Progress::Clear() const {
  if (shows_) std::fputs("\r\033[K", stderr);
}

namespace {
volatile sig_atomic_t noted_signal = 0;
void NoteSignal(int signal) { noted_signal = signal; }

void Handle(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}
}  // namespace

Interruption::Interruption() {
  noted_signal = 0;
  Handle(NoteSignal);
}

Interruption::~Interruption() { Handle(SIG_DFL); }

int Interruption::signal() { return noted_signal; }

}  // namespace corvane_tool
