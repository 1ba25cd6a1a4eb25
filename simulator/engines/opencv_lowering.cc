#include "simulator/engines/opencv_lowering.h"

#include <algorithm>
#include <cfloat>
#include <string>

#include "simulator/engines/opencv_values.h"
#include "simulator/onnx/fields.h"
#include "simulator/onnx/node_writer.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"

namespace rknn_sim {

namespace {

class Lowering {
 public:
  Lowering(const OnnxNodes& nodes, const OnnxGraph& graph)
      : nodes_(nodes), values_(nodes, graph), places_(nodes.nodes.size()) {
    for (std::size_t i = 0; i < places_.size(); ++i) {
      const OnnxNode& node = nodes_.nodes[i];
      if (node.inputs.empty() || !node.HasOutput(0)) continue;
      if (node.op == "Gemm" && node.inputs.size() >= 2) LowerGemm(i);
      if (node.op == "Clip" && node.inputs.size() >= 2) LowerClip(i);
      if (node.op == "Div" && values_.IsConstant(node.inputs[0])) LowerInverse(i);
      if ((node.op == "Mul" || node.op == "Div") && node.inputs.size() == 2) LowerNorm(i);
      if ((node.op == "Add" || node.op == "Sub") && node.inputs.size() == 2) LowerMean(i);
      if (node.op == "Max" || node.op == "Min") LowerBound(i);
      if (node.op == "Concat" && node.inputs.size() == 1) {
        Append(i, "Identity", node.inputs, node.outputs);
      }
      LowerChunk(i);
    }
  }

  String Graph(std::string_view message) const {
    String graph;
    std::size_t next = 0;
    ProtobufReader reader(message);
    for (ProtobufField field; reader.Next(&field);) {
      const bool is_replaced = field.IsBytes(graph_field::kNode) && places_[next++].is_replaced;
      graph += is_replaced ? std::string_view(places_[next - 1].nodes) : field.whole;
    }
    return graph + constants_;
  }

 private:
  struct Place {
    bool is_replaced = false;
    String nodes;  // that stand in the node's place
  };

  // A name that the file does not have.
  static String Name(const OnnxNode& node, const char* part) {
    return String(node.outputs[0]) + "/corvane/" + part;
  }

  // The operation takes the place of node i, after those that are there already.
  void Append(std::size_t i, std::string_view op, const Vector<std::string_view>& inputs,
              const Vector<std::string_view>& outputs, std::string_view attributes = {}) {
    places_[i].is_replaced = true;
    AppendNode(op, inputs, outputs, attributes, &places_[i].nodes);
  }

  // The name of the value times the factor.
  String Scaled(std::size_t i, const String& value, const char* part, float factor) {
    if (factor == 1) return value;
    const String constant = Name(nodes_.nodes[i], part);
    String product = constant + "/product";
    AppendConstant(constant, factor, &constants_);
    Append(i, "Mul", {value, constant}, {product});
    return product;
  }

  String Transposed(std::size_t i, std::size_t input, const char* attribute) {
    const OnnxNode& node = nodes_.nodes[i];
    String value(node.inputs[input]);
    if (node.IntOr(attribute, 0) == 0) return value;
    String permutation;
    AppendIntsAttribute("perm", {1, 0}, &permutation);
    Append(i, "Transpose", {value}, {Name(node, attribute)}, permutation);
    return Name(node, attribute);
  }

  // The name of the value in the sizes of the other one. OpenCV expands right in products only.
  String Expanded(std::size_t i, const String& value, const String& like) {
    const OnnxNode& node = nodes_.nodes[i];
    const String ones = Name(node, "ones");
    String expanded = Name(node, "expanded");
    String bounds;
    AppendFloatAttribute("min", 1, &bounds);
    AppendFloatAttribute("max", 1, &bounds);
    Append(i, "Clip", {like}, {ones}, bounds);
    Append(i, values_.IsRow(node.outputs[0]) ? "MatMul" : "Mul", {value, ones}, {expanded});
    return expanded;
  }

  // A value plus or minus what was reduced from one.
  void LowerMean(std::size_t i) {
    const OnnxNode& node = nodes_.nodes[i];
    const OnnxNode* const reduction = values_.ReductionOf(node.inputs[1]);
    // The largest value is that of a Softmax that is written out, which OpenCV computes right.
    if (reduction == nullptr || reduction->op == "ReduceMax") return;
    if (values_.IsConstant(node.inputs[0])) return;
    const String value(node.inputs[0]);
    Append(i, node.op, {value, Expanded(i, String(node.inputs[1]), value)}, {node.outputs[0]});
  }

  // alpha a b + beta c as beta (alpha / beta a b + c): OpenCV scales computed values only.
  void LowerGemm(std::size_t i) {
    const OnnxNode& node = nodes_.nodes[i];
    const auto factor = [&](const char* name) {
      return node.Find(name) == nullptr ? 1 : node.Find(name)->f;
    };
    const float alpha = factor("alpha");
    const float beta = node.HasInput(2) ? factor("beta") : 0;
    const bool is_layer = values_.IsConstant(node.inputs[1]) && node.IntOr("transA", 0) == 0;
    if (is_layer && alpha == 1 && factor("beta") == 1) return;
    const String a = Transposed(i, 0, "transA"), b = Transposed(i, 1, "transB");
    const String product = Name(node, "product"), sum = Name(node, "sum");
    Append(i, "MatMul", {a, b}, {product});
    const String scaled = Scaled(i, product, "alpha", beta == 0 ? alpha : alpha / beta);
    if (beta == 0) return Append(i, "Identity", {scaled}, {node.outputs[0]});
    String c(node.inputs[2]);
    if (!values_.IsConstant(c)) c = Expanded(i, c, scaled);
    Append(i, "Add", {scaled, c}, {sum});
    Append(i, "Identity", {Scaled(i, sum, "beta", beta)}, {node.outputs[0]});
  }

  // Constant bounds are attributes by now.
  void LowerClip(std::size_t i) {
    const OnnxNode& node = nodes_.nodes[i];
    String value(node.inputs[0]);
    if (node.HasInput(1)) {
      Append(i, "Max", {value, node.inputs[1]}, {Name(node, "min")});
      value = Name(node, "min");
    }
    if (node.HasInput(2)) return Append(i, "Min", {value, node.inputs[2]}, {node.outputs[0]});
    Append(i, "Identity", {value}, {node.outputs[0]});
  }

  // The larger or smaller of a value and a number.
  void LowerBound(std::size_t i) {
    const OnnxNode& node = nodes_.nodes[i];
    if (node.inputs.size() != 2) return;
    float bound = 0;
    const bool is_second = values_.Number(node.inputs[1], &bound);
    if (!is_second && !values_.Number(node.inputs[0], &bound)) return;
    String bounds;
    AppendFloatAttribute("min", node.op == "Max" ? bound : -FLT_MAX, &bounds);
    AppendFloatAttribute("max", node.op == "Max" ? FLT_MAX : bound, &bounds);
    Append(i, "Clip", {node.inputs[is_second ? 0 : 1]}, node.outputs, bounds);
  }

  // OpenCV divides a computed value by a constant, also where it stands the other way round.
  void LowerInverse(std::size_t i) {
    const OnnxNode& node = nodes_.nodes[i];
    Append(i, "Reciprocal", {node.inputs[1]}, {Name(node, "inverse")});
    Append(i, "Mul", {Name(node, "inverse"), node.inputs[0]}, {node.outputs[0]});
  }

  void LowerNorm(std::size_t i) {
    const OnnxNode& node = nodes_.nodes[i];
    const std::size_t at =
        node.op == "Mul" && values_.ReductionOf(node.inputs[1]) == nullptr ? 0 : 1;
    const OnnxNode* const reduction = values_.ReductionOf(node.inputs[at]);
    const std::string_view value = node.inputs[1 - at];
    // A Softmax that is written out is one that OpenCV computes right.
    if (reduction == nullptr || values_.IsConstant(value) || values_.IsMadeBy("Exp", value)) return;
    const OnnxNode* const expanded = values_.ProducerOf(node.inputs[at]);
    String norm(expanded->op == "Expand" ? expanded->inputs[0] : node.inputs[at]);
    const OnnxAttribute* const axes = reduction->Find("axes");
    const bool is_number = axes != nullptr && axes->ints.size() == 1 && axes->ints[0] != 0 &&
                           values_.IsRow(value) && values_.IsRow(reduction->inputs[0]);
    if (!is_number) {
      Append(i, "Identity", {norm}, {Name(node, "norm")});
      return Append(i, node.op, {value, Name(node, "norm")}, {node.outputs[0]});
    }
    if (node.op == "Div") {
      Append(i, "Reciprocal", {norm}, {Name(node, "inverse")});
      norm = Name(node, "inverse");
    }
    Append(i, "MatMul", {norm, value}, {node.outputs[0]});
  }

  void LowerChunk(std::size_t i) {
    OnnxPortion first, part;
    if (places_[i].is_replaced || !values_.IsPart(nodes_.nodes[i], &first)) return;
    Vector<String> outputs(static_cast<std::size_t>(first.parts));
    for (std::size_t k = i; k < places_.size(); ++k) {
      const OnnxNode& node = nodes_.nodes[k];
      const bool is_part = values_.IsPart(node, &part) && part.value == first.value &&
                           part.axis == first.axis && part.parts == first.parts;
      if (!is_part) continue;
      String& output = outputs[static_cast<std::size_t>(part.count - 1)];
      places_[k].is_replaced = true;
      if (!output.empty()) Append(k, "Identity", {output}, {node.outputs[0]});
      if (output.empty()) output = node.outputs[0];
    }
    for (std::size_t k = 0; k < outputs.size(); ++k) {
      const std::string name = "part" + std::to_string(k);
      if (outputs[k].empty()) outputs[k] = Name(nodes_.nodes[i], name.c_str());
    }
    String axis;
    AppendIntAttribute("axis", first.axis, &axis);
    Append(i, "Split", {first.value}, {outputs.begin(), outputs.end()}, axis);
  }

  const OnnxNodes& nodes_;
  const OnnxValues values_;
  Vector<Place> places_;  // for each node
  String constants_;
};

}  // namespace

String LowerOnnx(std::string_view model, const OnnxNodes& nodes, const OnnxGraph& graph) {
  const Lowering lowering(nodes, graph);
  String result;
  ProtobufReader reader(model);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.IsBytes(model_field::kGraph)) {
      AppendBytes(model_field::kGraph, lowering.Graph(field.bytes), &result);
    } else {
      result += field.whole;
    }
  }
  return result;
}

}  // namespace rknn_sim
