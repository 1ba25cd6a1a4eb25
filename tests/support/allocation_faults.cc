#include "tests/support/allocation_faults.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>

namespace {

std::atomic<long> made{0};
std::atomic<long> live{0};
thread_local long countdown = 0;
thread_local bool has_failed = false;

void* Allocate(std::size_t bytes) {
  if (countdown > 0 && --countdown == 0) {
    has_failed = true;
    throw std::bad_alloc();
  }
  void* memory = std::malloc(bytes > 0 ? bytes : 1);
  if (memory == nullptr) throw std::bad_alloc();
  ++made;
  ++live;
  return memory;
}

void Release(void* memory) noexcept {
  if (memory == nullptr) return;
  --live;
  std::free(memory);
}

}  // namespace

namespace corvane_test {

long AllocationsMade() { return made; }
long AllocationsLive() { return live; }
void FailAllocation(long nth) {
  countdown = nth;
  has_failed = false;
}
bool AllocationHasFailed() { return has_failed; }

}  // namespace corvane_test

void* operator new(std::size_t bytes) { return Allocate(bytes); }
void* operator new[](std::size_t bytes) { return Allocate(bytes); }
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete[](void* memory) noexcept { Release(memory); }
void operator delete(void* memory, std::size_t) noexcept { Release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Release(memory); }
