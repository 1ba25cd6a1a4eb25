// The operations of an ONNX graph, for what has to be known or changed before an engine gets it.
#ifndef CORVANE_SIMULATOR_ONNX_NODES_H_
#define CORVANE_SIMULATOR_ONNX_NODES_H_

#include <string_view>

#include "malloc_allocator.h"

namespace rknn_sim {

struct OnnxAttribute {
  std::string_view name;
  bool has_tensor = false;
  int64_t i = 0;
  float f = 0;
  std::string_view s;
  Vector<int64_t> ints;
  std::string_view tensor;  // the message
};

struct OnnxNode {
  std::string_view op, name, domain;
  Vector<std::string_view> inputs, outputs;  // an empty name: left out
  Vector<OnnxAttribute> attributes;

  const OnnxAttribute* Find(std::string_view attribute) const;
  int64_t IntOr(std::string_view attribute, int64_t otherwise) const;
  bool HasInput(std::size_t i) const { return i < inputs.size() && !inputs[i].empty(); }
  bool HasOutput(std::size_t i) const { return i < outputs.size() && !outputs[i].empty(); }
};

// Everything points into the file's bytes.
struct OnnxNodes {
  int64_t opset = 1;  // of ONNX's own operators
  std::string_view producer;
  Vector<OnnxNode> nodes;  // of the main graph, in the file's order
  struct Constant {
    std::string_view name, tensor;
  };
  Vector<Constant> constants;  // initializers and the values of Constant nodes

  const Constant* FindConstant(std::string_view name) const;
  // Whether any node or graph output reads the value.
  bool IsRead(std::string_view value) const;
  Vector<std::string_view> graph_outputs;
};

// Of bytes that ReadOnnx has accepted.
OnnxNodes ReadOnnxNodes(std::string_view model);

// The elements of a small constant as whole numbers or floats. False for other types, and for more
// than 64 elements.
bool ConstantInts(std::string_view tensor, Vector<int64_t>* numbers);
bool ConstantFloats(std::string_view tensor, Vector<float>* numbers);

// The sizes of a constant, outermost first.
Vector<int64_t> ConstantDims(std::string_view tensor);
uint64_t ConstantType(std::string_view tensor);  // of types.h; 0: not said

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_NODES_H_
