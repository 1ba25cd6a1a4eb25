// Operations that OpenCV lacks or computes otherwise, in terms of those that it has.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_LOWERING_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_LOWERING_H_

#include "simulator/onnx/graph.h"
#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// - Gemm of two computed matrices, or with factors, becomes MatMul, Mul and Add; Clip by computed
//   bounds becomes Max and Min, and those with one number Clip; a constant divided by a value
//   becomes Reciprocal and Mul; Concat of one value becomes Identity,
// - a value divided by its own norm is hidden from OpenCV, which would take a layer that adds 1e-10
//   to the sum of squares; and as OpenCV cannot divide one row by one number, that becomes a
//   product of matrices,
// - a value cut into equal parts by its own size, as PyTorch writes chunk, becomes Split,
// - operations that nobody reads go.
// model: bytes that RewriteOnnx has written and nodes are of. Throws std::bad_alloc.
String LowerOnnx(std::string_view model, const OnnxNodes& nodes, const OnnxGraph& graph);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_LOWERING_H_
