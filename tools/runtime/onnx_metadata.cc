#include "tools/runtime/onnx_metadata.h"

#include <string_view>

#include "simulator/onnx/fields.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"
#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

using rknn_sim::ProtobufField;
using rknn_sim::ProtobufReader;
namespace entry_field = rknn_sim::entry_field;
namespace model_field = rknn_sim::model_field;

std::string FieldOf(std::string_view entry, uint64_t field_number) {
  std::string text;
  ProtobufReader reader(entry);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.IsBytes(field_number)) text = field.bytes;
  }
  return text;
}

ProtobufReader ReaderOf(const std::vector<uint8_t>& onnx) {
  return ProtobufReader({reinterpret_cast<const char*>(onnx.data()), onnx.size()});
}

}  // namespace

std::vector<uint8_t> WithMetadata(const std::string& path, const std::vector<uint8_t>& onnx,
                                  const std::map<std::string, std::string>& properties) {
  if (!IsOnnx(onnx)) {
    throw Failure(path + ": no ONNX model (for a model compiled for the board there is --raw)");
  }
  std::string result;
  ProtobufReader reader = ReaderOf(onnx);
  for (ProtobufField field; reader.Next(&field);) {
    const bool is_replaced = field.IsBytes(model_field::kMetadata) &&
                             properties.count(FieldOf(field.bytes, entry_field::kKey)) != 0;
    if (!is_replaced) result += field.whole;
  }
  for (const auto& property : properties) {
    if (property.second.empty()) continue;
    std::string entry;
    rknn_sim::AppendBytes(entry_field::kKey, property.first, &entry);
    rknn_sim::AppendBytes(entry_field::kValue, property.second, &entry);
    rknn_sim::AppendBytes(model_field::kMetadata, entry, &result);
  }
  return {result.begin(), result.end()};
}

std::map<std::string, std::string> ReadMetadata(const std::vector<uint8_t>& onnx) {
  std::map<std::string, std::string> properties;
  if (!IsOnnx(onnx)) return properties;
  ProtobufReader reader = ReaderOf(onnx);
  for (ProtobufField field; reader.Next(&field);) {
    if (!field.IsBytes(model_field::kMetadata)) continue;
    properties[FieldOf(field.bytes, entry_field::kKey)] = FieldOf(field.bytes, entry_field::kValue);
  }
  return properties;
}

bool IsOnnx(const std::vector<uint8_t>& bytes) {
  bool has_version = false;
  bool has_graph = false;
  ProtobufReader reader = ReaderOf(bytes);
  for (ProtobufField field; reader.Next(&field);) {
    has_version |= field.IsVarint(model_field::kIrVersion);
    has_graph |= field.IsBytes(model_field::kGraph);
  }
  return reader.is_valid() && has_version && has_graph;
}

}  // namespace corvane_tool
