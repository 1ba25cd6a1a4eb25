#include "simulator/interface/model_bytes.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace rknn_sim {

namespace {

constexpr uint64_t kWindow = 64;
constexpr uint64_t kWindows = 4;

// rt_sigprocmask copies its 8-byte mask in before it looks at what to do with it, and an unknown
// `how` is refused: a read of 8 bytes by the kernel, without any effect.
bool IsWordReadable(uintptr_t address) {
  if (address < sizeof(uint64_t)) return false;  // a null mask is none
  const int saved = errno;
  constexpr int kUnknownHow = ~0;
  const bool faulted = syscall(SYS_rt_sigprocmask, kUnknownHow, address & ~uintptr_t{7}, nullptr,
                               sizeof(uint64_t)) != 0 &&
                       errno == EFAULT;
  errno = saved;
  return !faulted;
}

uint64_t Mix(uint64_t sum, uint64_t word) {
  sum = (sum ^ word) * 0x9e3779b97f4a7c15;
  return sum ^ (sum >> 32);
}

uint64_t Sum(const uint8_t* data, uint64_t size, uint64_t sum) {
  uint64_t word = 0;
  for (; size >= sizeof(word); data += sizeof(word), size -= sizeof(word)) {
    std::memcpy(&word, data, sizeof(word));
    sum = Mix(sum, word);
  }
  word = 0;
  if (size > 0) std::memcpy(&word, data, size);
  return Mix(sum, word ^ (size << 56));
}

// Calls visit(data, size) for a few windows from the first byte to the last.
template <typename Visit>
void VisitSamples(const uint8_t* data, uint64_t size, Visit visit) {
  if (size <= kWindow * kWindows) {
    visit(data, size);
    return;
  }
  for (uint64_t i = 0; i < kWindows; ++i) {
    visit(data + (size - kWindow) * i / (kWindows - 1), kWindow);
  }
}

uint64_t SampleSum(const uint8_t* data, uint64_t size) {
  uint64_t sum = 0;
  VisitSamples(data, size, [&](const uint8_t* at, uint64_t n) { sum = Sum(at, n, sum); });
  return sum;
}

}  // namespace

bool IsReadable(const void* data, uint64_t size) {
  if (size == 0) return true;
  constexpr uint64_t kPage = 4096;  // no machine has smaller ones
  const auto first = reinterpret_cast<uintptr_t>(data), last = first + (size - 1);
  if (last < first) return false;
  for (uintptr_t at = first; at < last && at >= first; at = (at | (kPage - 1)) + 1) {
    if (!IsWordReadable(at)) return false;
  }
  return IsWordReadable(last);
}

ModelBytes::ModelBytes(const void* data, uint32_t size)
    : data_(static_cast<const uint8_t*>(data)),
      size_(size),
      sample_sum_(SampleSum(data_, size_)),
      sum_(Sum(data_, size_, 0)) {}

ModelBytes::State ModelBytes::CheckSamples() const {
  bool is_readable = true;
  VisitSamples(data_, size_,
               [&](const uint8_t* at, uint64_t n) { is_readable &= IsReadable(at, n); });
  if (!is_readable) return State::kUnreadable;
  return SampleSum(data_, size_) == sample_sum_ ? State::kIntact : State::kChanged;
}

ModelBytes::State ModelBytes::CheckAll() const {
  if (!IsReadable(data_, size_)) return State::kUnreadable;
  return Sum(data_, size_, 0) == sum_ ? State::kIntact : State::kChanged;
}

}  // namespace rknn_sim
