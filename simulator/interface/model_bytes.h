// Watches the bytes that a caller promised to keep.
#ifndef CORVANE_SIMULATOR_INTERFACE_MODEL_BYTES_H_
#define CORVANE_SIMULATOR_INTERFACE_MODEL_BYTES_H_

#include <cstdint>

namespace rknn_sim {

// False where a read would fault. Asks the kernel; touches nothing.
bool IsReadable(const void* data, uint64_t size);

class ModelBytes {
 public:
  enum class State { kIntact, kChanged, kUnreadable };

  ModelBytes(const void* data, uint32_t size);  // readable now

  State CheckSamples() const;  // a few places, for every run
  State CheckAll() const;

 private:
  const uint8_t* data_;
  uint32_t size_;
  uint64_t sample_sum_;
  uint64_t sum_;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_INTERFACE_MODEL_BYTES_H_
