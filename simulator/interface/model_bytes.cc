#include "simulator/interface/model_bytes.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rknn_sim {

namespace {

constexpr std::size_t kPieces = 64;  // that the kernel is asked about at once
constexpr uint64_t kWindow = 64;
constexpr uint64_t kWindows = 4;

constexpr uintptr_t kPage = 4096;  // no machine has smaller pages

// Whether one byte in each of the pieces can be read. An emulator or a sandbox may lack the call;
// then *is_known is false.
bool AreReadable(const iovec* pieces, std::size_t count, bool* is_known) {
  uint8_t bytes[kPieces];
  const iovec into = {bytes, count};
  const ssize_t copied = process_vm_readv(getpid(), &into, 1, pieces, count, 0);
  *is_known = copied >= 0 || (errno != ENOSYS && errno != EPERM);
  return copied == static_cast<ssize_t>(count);
}

// The other way to ask: rt_sigprocmask copies its 8-byte mask from the caller before it refuses the
// unknown `how`. The aligned word may reach past the block, never past the page.
bool IsWordReadable(uintptr_t address) {
  if (address < sizeof(uint64_t)) return false;  // the kernel takes a null mask for none
  constexpr int kUnknownHow = ~0;
  return syscall(SYS_rt_sigprocmask, kUnknownHow, address & ~uintptr_t{7}, nullptr,
                 sizeof(uint64_t)) == 0 ||
         errno != EFAULT;
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
  const auto first = reinterpret_cast<uintptr_t>(data), last = first + (size - 1);
  if (first == 0 || last < first) return false;
  const int saved = errno;
  bool is_readable = true;
  for (uintptr_t next = first; is_readable && next != 0 && next <= last;) {
    iovec pieces[kPieces];
    std::size_t count = 0;
    for (; count < kPieces && next != 0 && next <= last; next = (next | (kPage - 1)) + 1) {
      pieces[count++] = {reinterpret_cast<void*>(next), 1};
    }
    bool is_known = true;
    is_readable = AreReadable(pieces, count, &is_known);
    if (is_known) continue;
    is_readable = std::all_of(pieces, pieces + count, [](const iovec& piece) {
      return IsWordReadable(reinterpret_cast<uintptr_t>(piece.iov_base));
    });
  }
  errno = saved;
  return is_readable;
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
