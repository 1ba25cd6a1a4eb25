// ONNX models: attributes from the file, with what its metadata properties (onnx_properties.h) add.
#ifndef CORVANE_SIMULATOR_MODELS_ONNX_MODEL_H_
#define CORVANE_SIMULATOR_MODELS_ONNX_MODEL_H_

#include "simulator/models/model.h"

namespace rknn_sim {

// Null, with the reason, for bytes that are no model that can run here. Throws std::bad_alloc.
ModelPointer MakeOnnxModel(const uint8_t* bytes, std::size_t size, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_ONNX_MODEL_H_
