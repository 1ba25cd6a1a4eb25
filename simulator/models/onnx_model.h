// ONNX models behind the runtime's interface.
//
// The attributes come from the file; what ONNX cannot say stands in its metadata properties and
// describes the model's first input:
//   corvane.input.type   float32, float16, int8, uint8 or int16: the native type
//   corvane.input.fl     fractional bits of int16 (needed there) and int8 (then fixed point)
//   corvane.input.mean   one number, or one per channel separated by commas: a buffer that is not
//   corvane.input.scale  passed through becomes (x - mean) * scale
#ifndef CORVANE_SIMULATOR_MODELS_ONNX_MODEL_H_
#define CORVANE_SIMULATOR_MODELS_ONNX_MODEL_H_

#include "simulator/models/model.h"

namespace rknn_sim {

// Null, with what is wrong, where the bytes make no model that can run here. Throws std::bad_alloc.
ModelPointer MakeOnnxModel(const uint8_t* bytes, std::size_t size, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_ONNX_MODEL_H_
