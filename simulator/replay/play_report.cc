#include "simulator/replay/play_report.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace rknn_sim {

using corvane_recording::ReplayCounts;

void PlayReport::KeepCountsIn(const char* path) {
  void* bytes = MAP_FAILED;
  const int file = open(path, O_RDWR | O_CLOEXEC);
  if (file >= 0 && ftruncate(file, sizeof(ReplayCounts)) == 0) {
    bytes = mmap(nullptr, sizeof(ReplayCounts), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  }
  if (bytes == MAP_FAILED) {
    std::fprintf(stderr, "corvane replay: %s: %s\n", path, std::strerror(errno));
  } else {
    counts_ = static_cast<ReplayCounts*>(bytes);
  }
  if (file >= 0) close(file);
}

// The compiler checks the format.  NOLINTNEXTLINE(cert-dcl50-cpp)
void PlayReport::Say(const char* format, ...) {
  constexpr int kMaxLines = 10;
  if (lines_ == kMaxLines) return;
  std::va_list arguments;
  va_start(arguments, format);
  char text[600];
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  const char* const end = ++lines_ == kMaxLines ? "; no further lines of this kind" : "";
  std::fprintf(stderr, "corvane replay: %s%s\n", text, end);
}

void PlayReport::SayTotal() const {
  const auto number = [](uint64_t count) { return static_cast<unsigned long long>(count); };
  std::fprintf(stderr,
               "corvane replay: %llu of %llu recorded frames played; %llu had other inputs, %llu "
               "calls were not as recorded, %llu outputs were not kept\n",
               number(counts_->played_frames), number(counts_->recorded_frames),
               number(counts_->differing_frames), number(counts_->other_calls),
               number(counts_->missing_outputs));
}

}  // namespace rknn_sim
