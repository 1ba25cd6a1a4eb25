// Writes an ONNX model anew in the older form that OpenCV's importer understands; what the model
// computes stays the same.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_REWRITE_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_REWRITE_H_

#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// - constant bounds of Clip and axes of ReduceSum, Squeeze and Unsqueeze become attributes,
// - Softmax and LogSoftmax without an axis get that of their opset,
// - Identity of a constant goes, and Max, Min and Sum of one value become Identity,
// - 1-D inputs become rows where TakesVectorsAsRows,
// - the producer is the given one.
// model: bytes that ReadOnnx has accepted and nodes are of. Throws std::bad_alloc.
String RewriteOnnx(std::string_view model, const OnnxNodes& nodes, std::string_view producer);

// Whether 1-D inputs, with which OpenCV's operators of several inputs cannot deal, can be 1 x N.
bool TakesVectorsAsRows(const OnnxNodes& nodes);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_REWRITE_H_
