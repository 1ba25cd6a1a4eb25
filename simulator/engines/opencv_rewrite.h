// Writes an ONNX model anew in the older form that OpenCV's importer understands; what the model
// computes stays the same.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_REWRITE_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_REWRITE_H_

#include "simulator/onnx/graph.h"
#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// - constant bounds of Clip, axes of ReduceSum, Squeeze and Unsqueeze, and sizes of Split become
//   attributes,
// - Softmax and LogSoftmax without an axis get that of their opset,
// - Identity of a constant goes, and Max, Min and Sum of one value become Identity,
// - inputs are expanded to the common sizes, if there are any,
// - the producer is the given one.
// model: bytes that ReadOnnx has accepted and nodes are of. Throws std::bad_alloc.
String RewriteOnnx(std::string_view model, const OnnxNodes& nodes, const OnnxGraph& graph,
                   const Vector<int64_t>& common_dims, std::string_view producer);

// The sizes that all inputs can have, where only elementwise operations read them: OpenCV's cannot
// deal with inputs of several ranks or of one dimension. Else none.
Vector<int64_t> CommonDims(const OnnxNodes& nodes, const OnnxGraph& graph);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_REWRITE_H_
