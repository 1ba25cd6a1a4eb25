// Storage of the simulator: taken from malloc, never from operator new. A test program may replace
// operator new to make the library's allocations fail and to count them; what the simulator needs
// in the same process must not be among them.
#ifndef CORVANE_SIMULATOR_MALLOC_ALLOCATOR_H_
#define CORVANE_SIMULATOR_MALLOC_ALLOCATOR_H_

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <vector>

namespace rknn_sim {

template <typename T>
struct MallocAllocator {
  static_assert(alignof(T) <= alignof(std::max_align_t), "malloc aligns no further");
  using value_type = T;

  MallocAllocator() = default;
  template <typename U>
  MallocAllocator(const MallocAllocator<U>&) noexcept {}  // NOLINT: conversion is the point

  T* allocate(std::size_t count) {
    void* memory = count > std::numeric_limits<std::size_t>::max() / sizeof(T)
                       ? nullptr
                       : std::malloc(count * sizeof(T));
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }
  void deallocate(T* memory, std::size_t) noexcept { std::free(memory); }
};

template <typename T, typename U>
bool operator==(const MallocAllocator<T>&, const MallocAllocator<U>&) {
  return true;
}
template <typename T, typename U>
bool operator!=(const MallocAllocator<T>&, const MallocAllocator<U>&) {
  return false;
}

template <typename T>
using Vector = std::vector<T, MallocAllocator<T>>;
using String = std::basic_string<char, std::char_traits<char>, MallocAllocator<char>>;

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MALLOC_ALLOCATOR_H_
