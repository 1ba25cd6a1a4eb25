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

// Whether OpenCV may join layers: after a product of two computed matrices it drops factors, after
// a power it misplaces them, and a Concat keeps the network's first input for ever.
bool MayFuse(const OnnxNodes& nodes);

// "node 'NAME' (OPERATOR) what"
String NodeProblem(const OnnxNode& node, const char* what);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATORS_H_
