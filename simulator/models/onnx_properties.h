// What an ONNX file cannot say of itself is in its metadata properties, for the model's first
// input:
//   corvane.input.type   float32, float16, int8, uint8 or int16: the native type
//   corvane.input.fl     fractional bits: int16 needs them, int8 becomes fixed point with them
//   corvane.input.mean   one number, or one for each channel separated by commas: a buffer that is
//   corvane.input.scale  not passed through becomes (x - mean) * scale
#ifndef CORVANE_SIMULATOR_MODELS_ONNX_PROPERTIES_H_
#define CORVANE_SIMULATOR_MODELS_ONNX_PROPERTIES_H_

#include "rknn_api.h"
#include "simulator/onnx/graph.h"

namespace rknn_sim {

struct OnnxInputProperties {
  Vector<float> means, scales;  // empty, or one for each channel
};

// The C of a C x H x W or N x C x H x W input, 1 for other shapes.
std::size_t ChannelsOf(const rknn_tensor_attr& attr);

// Reads the properties, and sets the type and quantisation of *attr, which has its dimensions.
// False, with the reason, for an unknown property and for a value that does not fit.
bool ReadInputProperties(const OnnxGraph& graph, rknn_tensor_attr* attr, OnnxInputProperties* input,
                         String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_ONNX_PROPERTIES_H_
