#include "simulator/engines/opencv_rewrite.h"

#include <algorithm>
#include <cfloat>
#include <cstring>
#include <iterator>
#include <utility>

#include "simulator/onnx/fields.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"

namespace rknn_sim {

namespace {

constexpr uint64_t kFloatKind = 1, kIntKind = 2, kIntsKind = 7;  // of attributes

String Attribute(std::string_view name, uint64_t kind) {
  String attribute;
  AppendBytes(attribute_field::kName, name, &attribute);
  AppendInt(attribute_field::kType, static_cast<int64_t>(kind), &attribute);
  return attribute;
}

void AppendFloatAttribute(std::string_view name, float value, String* node) {
  String attribute = Attribute(name, kFloatKind);
  AppendTag(attribute_field::kF, WireType::kFixed32, &attribute);
  char bytes[sizeof(value)];
  std::memcpy(bytes, &value, sizeof(value));
  attribute.append(bytes, sizeof(bytes));
  AppendBytes(node_field::kAttribute, attribute, node);
}

void AppendIntsAttribute(std::string_view name, const Vector<int64_t>& values, String* node) {
  String attribute = Attribute(name, kIntsKind);
  for (const int64_t value : values) AppendInt(attribute_field::kInts, value, &attribute);
  AppendBytes(node_field::kAttribute, attribute, node);
}

void AppendIntAttribute(std::string_view name, int64_t value, String* node) {
  String attribute = Attribute(name, kIntKind);
  AppendInt(attribute_field::kI, value, &attribute);
  AppendBytes(node_field::kAttribute, attribute, node);
}

// A graph's input with a dimension of 1 in front, if it has one dimension. depth: how far message
// is down the path from the input to its shape.
String AsRow(std::string_view message, std::size_t depth = 0) {
  constexpr uint64_t kPath[] = {value_field::kType, value_field::kTensorType, value_field::kShape};
  String result;
  std::size_t dims = 0;
  ProtobufReader reader(message);
  for (ProtobufField field; reader.Next(&field);) {
    if (depth < std::size(kPath) && field.IsBytes(kPath[depth])) {
      AppendBytes(field.number, AsRow(field.bytes, depth + 1), &result);
      continue;
    }
    dims += field.IsBytes(value_field::kDim) ? 1 : 0;
    result.append(field.whole.data(), field.whole.size());
  }
  if (depth < std::size(kPath) || dims != 1) return result;
  String one;
  AppendInt(value_field::kDimValue, 1, &one);
  String row;
  AppendBytes(value_field::kDim, one, &row);
  return row + result;
}

// --------------------------------------------------------------------------------------- the graph

class Rewriter {
 public:
  explicit Rewriter(const OnnxNodes& nodes) : nodes_(nodes) {
    for (const OnnxNode& node : nodes.nodes) {
      if (IsIdentityOfConstant(node))
        renamed_.push_back({node.outputs[0], Renamed(node.inputs[0])});
    }
  }

  String Graph(std::string_view message) const {
    const bool are_vectors = TakesVectorsAsRows(nodes_);
    String graph;
    std::size_t next = 0;
    ProtobufReader reader(message);
    for (ProtobufField field; reader.Next(&field);) {
      if (field.IsBytes(graph_field::kInput) && are_vectors) {
        AppendBytes(graph_field::kInput, AsRow(field.bytes), &graph);
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
    std::string_view from, to;
  };

  bool IsIdentityOfConstant(const OnnxNode& node) const {
    if (node.op != "Identity" || !node.HasInput(0) || !node.HasOutput(0)) return false;
    for (const std::string_view output : nodes_.graph_outputs) {
      if (output == node.outputs[0]) return false;
    }
    return nodes_.FindConstant(Renamed(node.inputs[0])) != nullptr;
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
    // OpenCV knows a Softmax that is written out by its ReduceSum as it stands.
    if (!takes_axes || !node.HasInput(1) || IsExp(node.inputs[0])) return false;
    const auto* constant = nodes_.FindConstant(Renamed(node.inputs[1]));
    Vector<int64_t> axes;
    if (constant == nullptr || !ConstantInts(constant->tensor, &axes) || axes.empty()) return false;
    AppendIntsAttribute("axes", axes, attributes);
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
  Vector<Rename> renamed_;
};

}  // namespace

bool TakesVectorsAsRows(const OnnxNodes& nodes) {
  // These treat elements alike, wherever they stand.
  static constexpr std::string_view kElementwise[] = {"Add", "Div", "Identity", "Max",
                                                      "Min", "Mul", "Neg",      "Relu",
                                                      "Sub", "Sum", "Sigmoid",  "Tanh"};
  return nodes.constants.empty() &&
         std::all_of(nodes.nodes.begin(), nodes.nodes.end(), [](const OnnxNode& node) {
           return std::find(std::begin(kElementwise), std::end(kElementwise), node.op) !=
                  std::end(kElementwise);
         });
}

String RewriteOnnx(std::string_view model, const OnnxNodes& nodes, std::string_view producer) {
  const Rewriter rewriter(nodes);
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
