#include "tools/onnx_metadata.h"

#include <string_view>

#include "simulator/models/onnx_fields.h"
#include "simulator/models/protobuf_reader.h"
#include "tools/failure.h"

namespace corvane_tool {

namespace {

using rknn_sim::ProtobufField;
using rknn_sim::ProtobufReader;
namespace entry_field = rknn_sim::entry_field;
namespace model_field = rknn_sim::model_field;

std::string KeyOf(std::string_view entry) {
  std::string key;
  ProtobufReader reader(entry);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.IsBytes(entry_field::kKey)) key = field.bytes;
  }
  return key;
}

void AppendVarint(uint64_t value, std::string* bytes) {
  for (; value >= 0x80; value >>= 7) *bytes += static_cast<char>(value | 0x80);
  *bytes += static_cast<char>(value);
}

void AppendBytes(uint64_t field, const std::string& content, std::string* bytes) {
  AppendVarint(field << 3 | static_cast<uint64_t>(rknn_sim::WireType::kBytes), bytes);
  AppendVarint(content.size(), bytes);
  *bytes += content;
}

}  // namespace

std::vector<uint8_t> WithMetadata(const std::string& path, const std::vector<uint8_t>& onnx,
                                  const std::map<std::string, std::string>& properties) {
  std::string result;
  bool has_version = false;
  bool has_graph = false;
  ProtobufReader reader({reinterpret_cast<const char*>(onnx.data()), onnx.size()});
  for (ProtobufField field; reader.Next(&field);) {
    has_version |= field.IsVarint(model_field::kIrVersion);
    has_graph |= field.IsBytes(model_field::kGraph);
    const bool is_replaced =
        field.IsBytes(model_field::kMetadata) && properties.count(KeyOf(field.bytes)) != 0;
    if (!is_replaced) result += field.whole;
  }
  if (!reader.is_valid() || !has_version || !has_graph) {
    throw Failure(path + ": no ONNX model (for a model compiled for the board there is --raw)");
  }
  for (const auto& property : properties) {
    std::string entry;
    AppendBytes(entry_field::kKey, property.first, &entry);
    AppendBytes(entry_field::kValue, property.second, &entry);
    AppendBytes(model_field::kMetadata, entry, &result);
  }
  return {result.begin(), result.end()};
}

}  // namespace corvane_tool
