// What OpenCV's dnn module computes as ONNX says. It takes more than that and answers wrongly
// without a word; what is not known to be right is refused.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATORS_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATORS_H_

#include "simulator/onnx/graph.h"
#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// For each node that is not known to be right: the node, its operator, what is wrong with it, and a
// cure.
Vector<String> OperatorProblems(const OnnxNodes& nodes, const OnnxGraph& graph);

// OpenCV averages over the padding if and only if the file says that PyTorch wrote it. The producer
// that gives what the nodes ask for; the file's own where no node depends on it.
std::string_view ProducerFor(const OnnxNodes& nodes);

// Whether OpenCV may join layers: with products of two computed matrices it drops factors.
bool MayFuse(const OnnxNodes& nodes);

// A Softmax of an opset below 13 flattens all dimensions from its axis on, OpenCV only takes that
// one. True if that is the same for an output of these sizes.
bool IsSoftmaxOverOneAxis(const OnnxNode& node, int64_t opset, const Vector<int64_t>& dims);

// "node 'NAME' (OPERATOR) what"
String NodeProblem(const OnnxNode& node, const char* what);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATORS_H_
