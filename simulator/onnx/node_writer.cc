#include "simulator/onnx/node_writer.h"

#include <cstring>

#include "simulator/onnx/fields.h"
#include "simulator/onnx/protobuf_writer.h"
#include "simulator/onnx/types.h"

namespace rknn_sim {

namespace {

constexpr int64_t kFloatKind = 1, kIntKind = 2, kIntsKind = 7;  // of attributes

String Attribute(std::string_view name, int64_t kind) {
  String attribute;
  AppendBytes(attribute_field::kName, name, &attribute);
  AppendInt(attribute_field::kType, kind, &attribute);
  return attribute;
}

template <typename Element>
std::string_view BytesOf(const Element* elements, std::size_t count) {
  return {reinterpret_cast<const char*>(elements), count * sizeof(Element)};
}

void AppendTensor(std::string_view name, std::size_t elements, uint64_t type,
                  std::string_view bytes, String* graph) {
  String tensor;
  AppendInt(tensor_field::kDims, static_cast<int64_t>(elements), &tensor);
  AppendInt(tensor_field::kDataType, static_cast<int64_t>(type), &tensor);
  AppendBytes(tensor_field::kName, name, &tensor);
  AppendBytes(tensor_field::kRawData, bytes, &tensor);
  AppendBytes(graph_field::kInitializer, tensor, graph);
}

}  // namespace

void AppendFloatAttribute(std::string_view name, float value, String* node) {
  String attribute = Attribute(name, kFloatKind);
  AppendTag(attribute_field::kF, WireType::kFixed32, &attribute);
  attribute += BytesOf(&value, 1);
  AppendBytes(node_field::kAttribute, attribute, node);
}

void AppendIntAttribute(std::string_view name, int64_t value, String* node) {
  String attribute = Attribute(name, kIntKind);
  AppendInt(attribute_field::kI, value, &attribute);
  AppendBytes(node_field::kAttribute, attribute, node);
}

void AppendIntsAttribute(std::string_view name, const Vector<int64_t>& values, String* node) {
  String attribute = Attribute(name, kIntsKind);
  for (const int64_t value : values) AppendInt(attribute_field::kInts, value, &attribute);
  AppendBytes(node_field::kAttribute, attribute, node);
}

void AppendNode(std::string_view op, const Vector<std::string_view>& inputs,
                const Vector<std::string_view>& outputs, std::string_view attributes,
                String* graph) {
  String node;
  for (const std::string_view input : inputs) AppendBytes(node_field::kInput, input, &node);
  for (const std::string_view output : outputs) AppendBytes(node_field::kOutput, output, &node);
  AppendBytes(node_field::kOp, op, &node);
  node += attributes;
  AppendBytes(graph_field::kNode, node, graph);
}

void AppendConstant(std::string_view name, float value, String* graph) {
  AppendTensor(name, 1, kOnnxFloat, BytesOf(&value, 1), graph);
}

void AppendConstant(std::string_view name, const Vector<int64_t>& values, String* graph) {
  AppendTensor(name, values.size(), kOnnxInt64, BytesOf(values.data(), values.size()), graph);
}

}  // namespace rknn_sim
