#include "simulator/onnx/nodes.h"

#include <algorithm>
#include <cstring>

#include "simulator/onnx/fields.h"
#include "simulator/onnx/protobuf_reader.h"

namespace rknn_sim {

namespace {

constexpr std::size_t kMaxElements = 64;

template <typename Visit>
void Walk(std::string_view message, Visit visit) {
  ProtobufReader reader(message);
  for (ProtobufField field; reader.Next(&field);) visit(field);
}

// The numbers of a field that may be single or packed.
void AppendInts(const ProtobufField& field, Vector<int64_t>* numbers) {
  if (field.type == WireType::kVarint) numbers->push_back(static_cast<int64_t>(field.value));
  if (field.type != WireType::kBytes) return;
  std::string_view packed = field.bytes;
  for (uint64_t value = 0; !packed.empty() && CutVarint(&packed, &value);) {
    numbers->push_back(static_cast<int64_t>(value));
  }
}

OnnxAttribute ReadAttribute(std::string_view message) {
  OnnxAttribute attribute;
  Walk(message, [&](const ProtobufField& field) {
    if (field.IsBytes(attribute_field::kName)) attribute.name = field.bytes;
    if (field.IsVarint(attribute_field::kI)) attribute.i = static_cast<int64_t>(field.value);
    if (field.IsBytes(attribute_field::kS)) attribute.s = field.bytes;
    if (field.number == attribute_field::kInts) AppendInts(field, &attribute.ints);
    if (field.number == attribute_field::kF && field.type == WireType::kFixed32) {
      std::memcpy(&attribute.f, field.bytes.data(), sizeof(float));
    }
    if (field.IsBytes(attribute_field::kTensor)) {
      attribute.has_tensor = true;
      attribute.tensor = field.bytes;
    }
  });
  return attribute;
}

OnnxNode ReadNode(std::string_view message) {
  OnnxNode node;
  Walk(message, [&](const ProtobufField& field) {
    if (field.IsBytes(node_field::kInput)) node.inputs.push_back(field.bytes);
    if (field.IsBytes(node_field::kOutput)) node.outputs.push_back(field.bytes);
    if (field.IsBytes(node_field::kName)) node.name = field.bytes;
    if (field.IsBytes(node_field::kOp)) node.op = field.bytes;
    if (field.IsBytes(node_field::kDomain)) node.domain = field.bytes;
    if (field.IsBytes(node_field::kAttribute)) {
      node.attributes.push_back(ReadAttribute(field.bytes));
    }
  });
  return node;
}

std::string_view NameOf(std::string_view message, uint64_t name_field) {
  std::string_view name;
  Walk(message, [&](const ProtobufField& field) {
    if (field.IsBytes(name_field)) name = field.bytes;
  });
  return name;
}

void ReadGraph(std::string_view message, OnnxNodes* all) {
  Walk(message, [&](const ProtobufField& field) {
    if (field.IsBytes(graph_field::kNode)) all->nodes.push_back(ReadNode(field.bytes));
    if (field.IsBytes(graph_field::kInitializer)) {
      all->constants.push_back({NameOf(field.bytes, tensor_field::kName), field.bytes});
    }
    if (field.IsBytes(graph_field::kOutput)) {
      all->graph_outputs.push_back(NameOf(field.bytes, value_field::kName));
    }
  });
  for (const OnnxNode& node : all->nodes) {
    const OnnxAttribute* const value = node.Find("value");
    if (node.op == "Constant" && node.HasOutput(0) && value != nullptr && value->has_tensor) {
      all->constants.push_back({node.outputs[0], value->tensor});
    }
  }
}

struct Elements {
  uint64_t type = 0;
  std::string_view raw;
  Vector<int64_t> ints;
  Vector<float> floats;
};

Elements ReadElements(std::string_view tensor) {
  Elements elements;
  Walk(tensor, [&](const ProtobufField& field) {
    if (field.IsVarint(tensor_field::kDataType)) elements.type = field.value;
    if (field.IsBytes(tensor_field::kRawData)) elements.raw = field.bytes;
    if (field.number == tensor_field::kInt64Data || field.number == tensor_field::kInt32Data) {
      AppendInts(field, &elements.ints);
    }
    if (field.number == tensor_field::kFloatData) {
      for (std::size_t i = 0; i + sizeof(float) <= field.bytes.size(); i += sizeof(float)) {
        float value;
        std::memcpy(&value, field.bytes.data() + i, sizeof(value));
        elements.floats.push_back(value);
      }
    }
  });
  return elements;
}

template <typename Element, typename Number>
void AppendRaw(std::string_view raw, Vector<Number>* numbers) {
  for (std::size_t i = 0; i + sizeof(Element) <= raw.size(); i += sizeof(Element)) {
    Element element;
    std::memcpy(&element, raw.data() + i, sizeof(element));
    numbers->push_back(static_cast<Number>(element));
  }
}

}  // namespace

const OnnxAttribute* OnnxNode::Find(std::string_view attribute) const {
  for (const OnnxAttribute& known : attributes) {
    if (known.name == attribute) return &known;
  }
  return nullptr;
}

int64_t OnnxNode::IntOr(std::string_view attribute, int64_t otherwise) const {
  const OnnxAttribute* const found = Find(attribute);
  return found == nullptr ? otherwise : found->i;
}

const OnnxNodes::Constant* OnnxNodes::FindConstant(std::string_view name) const {
  for (const Constant& constant : constants) {
    if (constant.name == name) return &constant;
  }
  return nullptr;
}

bool OnnxNodes::IsRead(std::string_view value) const {
  for (const OnnxNode& node : nodes) {
    if (std::find(node.inputs.begin(), node.inputs.end(), value) != node.inputs.end()) return true;
  }
  return std::find(graph_outputs.begin(), graph_outputs.end(), value) != graph_outputs.end();
}

OnnxNodes ReadOnnxNodes(std::string_view model) {
  OnnxNodes all;
  Walk(model, [&](const ProtobufField& field) {
    if (field.IsBytes(model_field::kProducer)) all.producer = field.bytes;
    if (field.IsBytes(model_field::kGraph)) ReadGraph(field.bytes, &all);
    if (!field.IsBytes(model_field::kOpset)) return;
    int64_t version = 0;
    std::string_view domain;
    Walk(field.bytes, [&](const ProtobufField& part) {
      if (part.IsBytes(opset_field::kDomain)) domain = part.bytes;
      if (part.IsVarint(opset_field::kVersion)) version = static_cast<int64_t>(part.value);
    });
    if (domain.empty() || domain == "ai.onnx") all.opset = version;
  });
  return all;
}

bool ConstantInts(std::string_view tensor, Vector<int64_t>* numbers) {
  const Elements elements = ReadElements(tensor);
  if (elements.raw.size() > kMaxElements * sizeof(int64_t) || elements.ints.size() > kMaxElements) {
    return false;
  }
  *numbers = elements.ints;
  if (elements.type == 7) AppendRaw<int64_t>(elements.raw, numbers);
  if (elements.type == 6) AppendRaw<int32_t>(elements.raw, numbers);
  return elements.type == 6 || elements.type == 7;
}

Vector<int64_t> ConstantDims(std::string_view tensor) {
  Vector<int64_t> dims;
  Walk(tensor, [&](const ProtobufField& field) {
    if (field.number == tensor_field::kDims) AppendInts(field, &dims);
  });
  return dims;
}

uint64_t ConstantType(std::string_view tensor) {
  uint64_t type = 0;
  Walk(tensor, [&](const ProtobufField& field) {
    if (field.IsVarint(tensor_field::kDataType)) type = field.value;
  });
  return type;
}

bool ConstantFloats(std::string_view tensor, Vector<float>* numbers) {
  const Elements elements = ReadElements(tensor);
  if (elements.raw.size() > kMaxElements * sizeof(float) || elements.floats.size() > kMaxElements) {
    return false;
  }
  *numbers = elements.floats;
  AppendRaw<float>(elements.raw, numbers);
  return elements.type == 1;
}

}  // namespace rknn_sim
