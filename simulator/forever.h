// A global that is constructed when the library is loaded and never destroyed, because the last
// destructors of a program may still destroy contexts.
#ifndef CORVANE_SIMULATOR_FOREVER_H_
#define CORVANE_SIMULATOR_FOREVER_H_

#include <new>

namespace rknn_sim {

template <typename T>
class Forever {
 public:
  Forever() { new (storage_) T; }
  T* operator->() { return std::launder(reinterpret_cast<T*>(storage_)); }
  T& operator*() { return *operator->(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_FOREVER_H_
