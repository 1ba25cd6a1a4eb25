// Watches the model's bytes, which the caller must keep unchanged until rknn_destroy.
#ifndef CORVANE_SIMULATOR_INTERFACE_MODEL_BYTES_H_
#define CORVANE_SIMULATOR_INTERFACE_MODEL_BYTES_H_

#include <cstdint>

namespace rknn_sim {

// Whether the block can be read to its end. Asks the kernel, which reads a byte of each page for
// it; nothing here faults. Leaves errno as it was.
bool IsReadable(const void* data, uint64_t size);

class ModelBytes {
 public:
  enum class State { kIntact, kChanged, kUnreadable };

  // The bytes must be readable now.
  ModelBytes(const void* data, uint32_t size);

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
