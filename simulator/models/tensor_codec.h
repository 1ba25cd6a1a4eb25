// Elements of a tensor as numbers, and back.
#ifndef CORVANE_SIMULATOR_MODELS_TENSOR_CODEC_H_
#define CORVANE_SIMULATOR_MODELS_TENSOR_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "malloc_allocator.h"
#include "rknn_api.h"

namespace rknn_sim {

// An enumerator that a caller handed in may hold any value.
template <typename Enum>
uint32_t RawValue(const Enum& enumerator) {
  static_assert(sizeof(Enum) == sizeof(uint32_t), "as the binary interface has it");
  uint32_t value;
  std::memcpy(&value, &enumerator, sizeof(value));
  return value;
}

bool IsTensorType(uint32_t type);
const char* TypeName(rknn_tensor_type type);                          // "FLOAT32", ...
bool ParseTensorType(std::string_view name, rknn_tensor_type* type);  // "float32", ...
std::size_t ElementBytes(rknn_tensor_type type);                      // 0 for an unknown type

float HalfToFloat(uint16_t half);
uint16_t FloatToHalf(float value);  // nearest, ties to even

// The numbers of a buffer described by input, in attr's layout. With pass_through the elements are
// the model's own (attr's quantisation applies); without it they are plain numbers of input.type,
// laid out as input.fmt says. `bytes` holds input.size bytes; a short buffer gives zeros at the
// end.
void DecodeInput(const rknn_tensor_attr& attr, const rknn_input& input, const uint8_t* bytes,
                 Vector<float>* numbers);

// Numbers as the native type holds them: rounded to halves and to fixed-point values. Plain types,
// whose elements are not said to stand for anything else, leave them as they are.
void RoundToNative(const rknn_tensor_attr& attr, Vector<float>* numbers);

// Writes count numbers as elements of attr's type; out of range saturates, NaN gives 0 in integers.
void EncodeNative(const rknn_tensor_attr& attr, const float* numbers, std::size_t count,
                  uint8_t* to);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_TENSOR_CODEC_H_
