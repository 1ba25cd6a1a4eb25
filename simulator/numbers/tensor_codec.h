// Elements of a tensor as numbers, and back.
#ifndef CORVANE_SIMULATOR_NUMBERS_TENSOR_CODEC_H_
#define CORVANE_SIMULATOR_NUMBERS_TENSOR_CODEC_H_

#include <cstddef>
#include <cstdint>

#include "malloc_allocator.h"
#include "rknn_api.h"

namespace rknn_sim {

// Decodes a buffer of input.size bytes to attr.n_elems numbers in attr's layout. With pass_through
// the elements are the model's own, and attr's quantisation applies; without it they are plain
// numbers of input.type, laid out as input.fmt says. Elements that a short buffer lacks are 0.
void DecodeInput(const rknn_tensor_attr& attr, const rknn_input& input, const uint8_t* bytes,
                 Vector<float>* numbers);

float HalfToFloat(uint16_t half);

// An element as a plain number; 0 for a type that is unknown.
float ElementAsNumber(uint32_t type, const uint8_t* from);

// Rounds numbers to what the native type can hold: half-precision or quantised values. Float32 and
// integers without quantisation leave them unchanged.
void RoundToNative(const rknn_tensor_attr& attr, Vector<float>* numbers);

// Writes count numbers as elements of attr's type. Halves and integers are rounded to nearest, ties
// to even; integers saturate, and NaN becomes the integer 0.
void EncodeNative(const rknn_tensor_attr& attr, const float* numbers, std::size_t count,
                  uint8_t* to);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_NUMBERS_TENSOR_CODEC_H_
