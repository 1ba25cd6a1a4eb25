// The types of an ONNX tensor's elements.
#ifndef CORVANE_SIMULATOR_ONNX_TYPES_H_
#define CORVANE_SIMULATOR_ONNX_TYPES_H_

#include <cstdint>

#include "rknn_api.h"

namespace rknn_sim {

// ONNX's own numbers for the types of elements.
constexpr uint64_t kOnnxFloat = 1, kOnnxUint8 = 2, kOnnxInt8 = 3, kOnnxUint16 = 4, kOnnxInt16 = 5,
                   kOnnxInt32 = 6, kOnnxInt64 = 7, kOnnxBool = 9, kOnnxFloat16 = 10,
                   kOnnxDouble = 11, kOnnxUint32 = 12, kOnnxUint64 = 13, kOnnxBfloat16 = 16;

// False for a type that the runtime does not have.
bool NativeType(uint64_t onnx_type, rknn_tensor_type* type);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_TYPES_H_
