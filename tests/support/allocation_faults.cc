#include "tests/support/allocation_faults.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace {

std::atomic<long> made{0};
std::atomic<long> live{0};
thread_local long countdown = 0;
thread_local bool has_failed = false;

// The blocks that a DirtyAllocator has not handed out again yet.
constexpr int kMaxKept = 16;
thread_local void* kept[kMaxKept];
thread_local int kept_count = 0;
thread_local bool is_dirty = false;

bool Keep(void* memory) {
  if (!is_dirty) return false;
  errno = EBUSY;
  if (kept_count == kMaxKept) return false;
  kept[kept_count++] = memory;
  return true;
}

void* TakeKept(std::size_t bytes) {
  if (!is_dirty) return nullptr;
  errno = EBUSY;
  for (int i = kept_count - 1; i >= 0; --i) {
    const std::size_t size = malloc_usable_size(kept[i]);
    if (size < bytes || size > bytes + 64) continue;
    void* const memory = kept[i];
    kept[i] = kept[--kept_count];
    return memory;
  }
  return nullptr;
}

void* Allocate(std::size_t bytes) {
  if (countdown > 0 && --countdown == 0) {
    has_failed = true;
    throw std::bad_alloc();
  }
  void* memory = TakeKept(bytes);
  if (memory == nullptr) memory = std::malloc(bytes > 0 ? bytes : 1);
  if (memory == nullptr) throw std::bad_alloc();
  ++made;
  ++live;
  return memory;
}

void Release(void* memory) noexcept {
  if (memory == nullptr) return;
  --live;
  if (!Keep(memory)) std::free(memory);
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

DirtyAllocator::DirtyAllocator() { is_dirty = true; }
DirtyAllocator::~DirtyAllocator() {
  is_dirty = false;
  while (kept_count > 0) std::free(kept[--kept_count]);
}

}  // namespace corvane_test

void* operator new(std::size_t bytes) { return Allocate(bytes); }
void* operator new[](std::size_t bytes) { return Allocate(bytes); }
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete[](void* memory) noexcept { Release(memory); }
void operator delete(void* memory, std::size_t) noexcept { Release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Release(memory); }
