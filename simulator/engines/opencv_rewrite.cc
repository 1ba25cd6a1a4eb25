#include "simulator/engines/opencv_rewrite.h"

#include <algorithm>
#include <cfloat>
#include <iterator>
#include <utility>

#include "simulator/onnx/fields.h"
#include "simulator/onnx/node_writer.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"
#include "simulator/onnx/types.h"

namespace rknn_sim {

namespace {

// A graph's input with dimensions of 1 in front, so that it has rank of them. depth: how far
// message is down the path from the input to its shape.
String WithRank(std::size_t rank, std::string_view message, std::size_t depth = 0) {
  constexpr uint64_t kPath[] = {value_field::kType, value_field::kTensorType, value_field::kShape};
  String result;
  std::size_t dims = 0;
  ProtobufReader reader(message);
  for (ProtobufField field; reader.Next(&field);) {
    if (depth < std::size(kPath) && field.IsBytes(kPath[depth])) {
      AppendBytes(field.number, WithRank(rank, field.bytes, depth + 1), &result);
      continue;
    }
    dims += field.IsBytes(value_field::kDim) ? 1 : 0;
    result.append(field.whole.data(), field.whole.size());
  }
  if (depth < std::size(kPath)) return result;
  String one;
  AppendInt(value_field::kDimValue, 1, &one);
  for (; dims < rank; ++dims) {
    String all;
    AppendBytes(value_field::kDim, one, &all);
    result.insert(0, all);
  }
  return result;
}

// --------------------------------------------------------------------------------------- the graph

class Rewriter {
 public:
  Rewriter(const OnnxNodes& nodes, const OnnxGraph& graph, const Vector<int64_t>& common_dims)
      : nodes_(nodes), rank_(common_dims.size()) {
    for (const OnnxNode& node : nodes.nodes) {
      if (IsIdentityOfConstant(node))
        renamed_.push_back({String(node.outputs[0]), String(Renamed(node.inputs[0]))});
    }
    if (rank_ == 0) return;
    for (const OnnxTensor& input : graph.inputs) ExpandInput(input, common_dims);
  }

  String Graph(std::string_view message) const {
    String graph = added_;
    std::size_t next = 0;
    ProtobufReader reader(message);
    for (ProtobufField field; reader.Next(&field);) {
      if (field.IsBytes(graph_field::kInput) && rank_ > 0) {
        AppendBytes(graph_field::kInput, WithRank(rank_, field.bytes), &graph);
        continue;
      }
      if (!field.IsBytes(graph_field::kNode)) {
        graph.append(field.whole.data(), field.whole.size());
        continue;
      }
      const OnnxNode& node = nodes_.nodes[next++];
      if (!IsIdentityOfConstant(node))
        AppendBytes(graph_field::kNode, Node(node, field.bytes), &graph);
    }
    return graph;
  }

 private:
  struct Rename {
    String from, to;
  };

  // OpenCV's own broadcasting knows few shapes. It expands one dimension at a time.
  void ExpandInput(const OnnxTensor& input, const Vector<int64_t>& wanted) {
    Vector<int64_t> dims(wanted.size() - input.dims.size(), 1);
    dims.insert(dims.end(), input.dims.begin(), input.dims.end());
    String name = input.name;
    for (std::size_t i = 0; i < dims.size(); ++i) {
      if (dims[i] == wanted[i]) continue;
      dims[i] = wanted[i];
      const String shape = name + "/corvane/shape", expanded = name + "/corvane/expanded";
      AppendConstant(shape, dims, &added_);
      AppendNode("Expand", {name, shape}, {expanded}, {}, &added_);
      name = expanded;
    }
    if (name != input.name) renamed_.push_back({input.name, name});
  }

  // Also a Cast of floats to floats.
  bool IsIdentityOfConstant(const OnnxNode& node) const {
    const bool is_cast = node.op == "Cast" && node.IntOr("to", 0) == int64_t{kOnnxFloat};
    if ((node.op != "Identity" && !is_cast) || !node.HasInput(0) || !node.HasOutput(0))
      return false;
    for (const std::string_view output : nodes_.graph_outputs) {
      if (output == node.outputs[0]) return false;
    }
    const auto* constant = nodes_.FindConstant(Renamed(node.inputs[0]));
    return constant != nullptr && (!is_cast || ConstantType(constant->tensor) == kOnnxFloat);
  }

  std::string_view Renamed(std::string_view value) const {
    for (const Rename& rename : renamed_) {
      if (rename.from == value) return rename.to;
    }
    return value;
  }

  bool IsExp(std::string_view value) const {
    for (const OnnxNode& node : nodes_.nodes) {
      if (node.op == "Exp" && node.HasOutput(0) && node.outputs[0] == value) return true;
    }
    return false;
  }

  bool Floats(const OnnxNode& node, std::size_t input, Vector<float>* numbers) const {
    const auto* constant = nodes_.FindConstant(Renamed(node.inputs[input]));
    return constant != nullptr && ConstantFloats(constant->tensor, numbers) && numbers->size() == 1;
  }

  // Its inputs from the second on become attributes. False where they are not constant.
  bool TakeInputs(const OnnxNode& node, String* attributes) const {
    if (node.inputs.size() < 2) return false;
    if (node.op == "Clip") {
      Vector<float> low = {-FLT_MAX};
      Vector<float> high = {FLT_MAX};
      if (node.HasInput(1) && !Floats(node, 1, &low)) return false;
      if (node.HasInput(2) && !Floats(node, 2, &high)) return false;
      AppendFloatAttribute("min", low[0], attributes);
      AppendFloatAttribute("max", high[0], attributes);
      return true;
    }
    const bool takes_axes =
        node.op == "ReduceSum" || node.op == "Squeeze" || node.op == "Unsqueeze";
    const char* const name = node.op == "Split" ? "split" : "axes";
    // OpenCV knows a Softmax that is written out by its ReduceSum as it stands.
    if ((!takes_axes && node.op != "Split") || !node.HasInput(1) || IsExp(node.inputs[0]))
      return false;
    const auto* constant = nodes_.FindConstant(Renamed(node.inputs[1]));
    Vector<int64_t> axes;
    if (constant == nullptr || !ConstantInts(constant->tensor, &axes) || axes.empty()) return false;
    AppendIntsAttribute(name, axes, attributes);
    return true;
  }

  String Node(const OnnxNode& node, std::string_view message) const {
    String attributes;
    const bool takes_inputs = TakeInputs(node, &attributes);
    const bool is_softmax = node.op == "Softmax" || node.op == "LogSoftmax";
    if (is_softmax && node.Find("axis") == nullptr) {
      AppendIntAttribute("axis", nodes_.opset >= 13 ? -1 : 1, &attributes);
    }
    const bool is_of_one =
        (node.op == "Max" || node.op == "Min" || node.op == "Sum") && node.inputs.size() == 1;

    String result;
    std::size_t input = 0;
    ProtobufReader reader(message);
    for (ProtobufField field; reader.Next(&field);) {
      if (field.IsBytes(node_field::kInput)) {
        if (input++ > 0 && takes_inputs) continue;
        AppendBytes(node_field::kInput, Renamed(field.bytes), &result);
      } else if (field.IsBytes(node_field::kOp) && is_of_one) {
        AppendBytes(node_field::kOp, "Identity", &result);
      } else {
        result.append(field.whole.data(), field.whole.size());
      }
    }
    return result + attributes;
  }

  const OnnxNodes& nodes_;
  const std::size_t rank_;
  Vector<Rename> renamed_;
  String added_;  // fields of the graph
};

}  // namespace

Vector<int64_t> CommonDims(const OnnxNodes& nodes, const OnnxGraph& graph) {
  // These treat elements alike, wherever they stand.
  static constexpr std::string_view kElementwise[] = {
      "Add",  "Clip", "Div", "Exp", "Greater", "Identity", "Less", "Log",     "Max",
      "Mean", "Min",  "Mul", "Neg", "Relu",    "Sub",      "Sum",  "Sigmoid", "Tanh"};
  const bool are_elementwise =
      std::all_of(nodes.nodes.begin(), nodes.nodes.end(), [](const OnnxNode& node) {
        return std::find(std::begin(kElementwise), std::end(kElementwise), node.op) !=
               std::end(kElementwise);
      });
  if (!nodes.constants.empty() || !are_elementwise) return {};
  std::size_t rank = 2;
  for (const OnnxTensor& input : graph.inputs) rank = std::max(rank, input.dims.size());
  Vector<int64_t> common(rank, 1);
  for (const OnnxTensor& input : graph.inputs) {
    auto dim = common.end() - static_cast<std::ptrdiff_t>(input.dims.size());
    for (const int64_t own : input.dims) {
      if (own != 1 && *dim != 1 && own != *dim) return {};
      *dim = std::max(*dim, own);
      ++dim;
    }
  }
  return common;
}

String RewriteOnnx(std::string_view model, const OnnxNodes& nodes, const OnnxGraph& graph,
                   const Vector<int64_t>& common_dims, std::string_view producer) {
  const Rewriter rewriter(nodes, graph, common_dims);
  String result;
  ProtobufReader reader(model);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.IsBytes(model_field::kProducer)) continue;
    if (field.IsBytes(model_field::kGraph)) {
      AppendBytes(model_field::kGraph, rewriter.Graph(field.bytes), &result);
    } else {
      result.append(field.whole.data(), field.whole.size());
    }
  }
  AppendBytes(model_field::kProducer, producer, &result);
  return result;
}

}  // namespace rknn_sim
