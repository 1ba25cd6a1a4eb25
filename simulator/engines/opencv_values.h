// What the values of an ONNX graph are, as far as its operations tell.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_VALUES_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_VALUES_H_

#include "simulator/onnx/graph.h"
#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// A value's size along an axis, in parts: size / parts * count.
struct OnnxPortion {
  std::string_view value;
  int64_t axis = 0, parts = 1, count = 1;
};

class OnnxValues {
 public:
  OnnxValues(const OnnxNodes& nodes, const OnnxGraph& graph) : nodes_(nodes), graph_(graph) {}

  bool IsConstant(std::string_view value) const { return nodes_.FindConstant(value) != nullptr; }

  // False for what is no constant of one float.
  bool Number(std::string_view value, float* number) const;

  // Null for a graph's input and a constant.
  const OnnxNode* ProducerOf(std::string_view value) const;
  bool IsMadeBy(std::string_view op, std::string_view value) const;

  // Whether it has two dimensions, of which the first is 1.
  bool IsRow(std::string_view value) const;

  // The reduction that keeps its dimensions from which the value comes element by element; null:
  // none.
  const OnnxNode* ReductionOf(std::string_view value, int depth = kMaxDepth) const;

  // Whether the node cuts one of several equal parts out of a value; count: which, from 1.
  bool IsPart(const OnnxNode& node, OnnxPortion* part) const;

 private:
  static constexpr int kMaxDepth = 12;  // of operations from a value back to what it is made of

  bool IsOneNumber(std::string_view value) const;
  bool WholeNumber(std::string_view value, int64_t* number) const;
  std::size_t RankOf(std::string_view value, int depth = kMaxDepth) const;  // 0: unknown
  bool FindPortion(std::string_view value, OnnxPortion* portion, int depth = kMaxDepth) const;

  const OnnxNodes& nodes_;
  const OnnxGraph& graph_;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_VALUES_H_
