// Replaces this program's operator new, so that a test can make any allocation fail and see leaks.
// Link tests/support/allocation_faults.cc to use it.
#ifndef CORVANE_TESTS_SUPPORT_ALLOCATION_FAULTS_H_
#define CORVANE_TESTS_SUPPORT_ALLOCATION_FAULTS_H_

#include <new>

namespace corvane_test {

// Allocations made through operator new by this program so far, and those not yet released.
long AllocationsMade();
long AllocationsLive();

// The nth allocation of this thread from now on throws std::bad_alloc, once; 0: none does.
void FailAllocation(long nth);
bool AllocationHasFailed();  // since the last FailAllocation

// An allocator as unkind as it may be, for this thread: the block that was released last is handed
// out again with its old content, and every call changes errno.
class DirtyAllocator {
 public:
  DirtyAllocator();
  DirtyAllocator(const DirtyAllocator&) = delete;
  DirtyAllocator& operator=(const DirtyAllocator&) = delete;
  ~DirtyAllocator();
};

// Calls action with its 1st, 2nd, ... allocation failing until one call needs no more of them.
// check(nth) runs after each failure, and nothing may have leaked by then. action must release what
// it makes. Returns how many allocations could fail.
template <typename Action, typename Check>
long FailEachAllocation(Action action, Check check) {
  for (long nth = 1;; ++nth) {
    bool threw = false;
    const long live_before = AllocationsLive();
    FailAllocation(nth);
    try {
      action();
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    const bool failed = AllocationHasFailed();
    FailAllocation(0);
    if (!failed) return nth - 1;
    check(nth, threw, AllocationsLive() - live_before);
  }
}

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_ALLOCATION_FAULTS_H_
