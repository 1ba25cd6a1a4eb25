#include "simulator/engines/opencv_halves.h"

#include <cstring>

#include "simulator/numbers/tensor_codec.h"
#include "simulator/onnx/fields.h"
#include "simulator/onnx/nodes.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"
#include "simulator/onnx/types.h"

namespace rknn_sim {

namespace {

// The message with every field of that number replaced by what rewrite makes of it.
template <typename Rewrite>
String WithFields(std::string_view message, uint64_t number, Rewrite rewrite) {
  String result;
  ProtobufReader reader(message);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.IsBytes(number)) {
      AppendBytes(number, rewrite(field.bytes), &result);
    } else {
      result += field.whole;
    }
  }
  return result;
}

void AppendFloat(uint64_t half, String* floats) {
  const float value = HalfToFloat(static_cast<uint16_t>(half));
  floats->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

// A constant has its halves as bytes, or as whole numbers, single or packed.
String WidenTensor(std::string_view tensor) {
  if (ConstantType(tensor) != kOnnxFloat16) return String(tensor);
  String result, floats;
  ProtobufReader reader(tensor);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.IsBytes(tensor_field::kRawData)) {
      for (std::size_t i = 0; i + 2 <= field.bytes.size(); i += 2) {
        uint16_t half;
        std::memcpy(&half, field.bytes.data() + i, sizeof(half));
        AppendFloat(half, &floats);
      }
    } else if (field.IsVarint(tensor_field::kInt32Data)) {
      AppendFloat(field.value, &floats);
    } else if (field.IsBytes(tensor_field::kInt32Data)) {
      std::string_view packed = field.bytes;
      for (uint64_t half = 0; !packed.empty() && CutVarint(&packed, &half);) {
        AppendFloat(half, &floats);
      }
    } else if (!field.IsVarint(tensor_field::kDataType)) {
      result += field.whole;
    }
  }
  AppendInt(tensor_field::kDataType, static_cast<int64_t>(kOnnxFloat), &result);
  AppendBytes(tensor_field::kRawData, floats, &result);
  return result;
}

String WidenNode(std::string_view node) {
  return WithFields(node, node_field::kAttribute, [](std::string_view attribute) {
    return WithFields(attribute, attribute_field::kTensor, WidenTensor);
  });
}

}  // namespace

String WidenHalves(std::string_view model) {
  return WithFields(model, model_field::kGraph, [](std::string_view graph) {
    const String nodes = WithFields(graph, graph_field::kNode, WidenNode);
    return WithFields(nodes, graph_field::kInitializer, WidenTensor);
  });
}

}  // namespace rknn_sim
