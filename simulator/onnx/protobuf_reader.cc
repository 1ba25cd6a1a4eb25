#include "simulator/onnx/protobuf_reader.h"

namespace rknn_sim {

bool CutVarint(std::string_view* bytes, uint64_t* value) {
  *value = 0;
  for (uint32_t shift = 0; shift < 64 && !bytes->empty(); shift += 7) {
    const auto byte = static_cast<uint8_t>(bytes->front());
    bytes->remove_prefix(1);
    *value |= uint64_t{byte & 0x7Fu} << shift;
    if (byte < 0x80) return true;
  }
  return false;
}

bool ProtobufReader::Next(ProtobufField* field) {
  if (rest_.empty() || !is_valid_) return false;
  std::string_view rest = rest_;
  is_valid_ = false;
  uint64_t tag = 0, length = 0;
  constexpr uint64_t kMaxFieldNumber = (uint64_t{1} << 29) - 1;
  if (!CutVarint(&rest, &tag) || tag < 8 || tag >> 3 > kMaxFieldNumber) return false;
  field->number = tag >> 3;
  field->type = static_cast<WireType>(tag & 7);
  field->value = 0;
  switch (field->type) {
    case WireType::kVarint:
      if (!CutVarint(&rest, &field->value)) return false;
      break;
    case WireType::kFixed64:
      length = 8;
      break;
    case WireType::kBytes:
      if (!CutVarint(&rest, &length)) return false;
      break;
    case WireType::kFixed32:
      length = 4;
      break;
    default:
      return false;
  }
  if (length > rest.size()) return false;
  field->bytes = rest.substr(0, static_cast<std::size_t>(length));
  rest.remove_prefix(static_cast<std::size_t>(length));
  field->whole = rest_.substr(0, rest_.size() - rest.size());
  rest_ = rest;
  is_valid_ = true;
  return true;
}

}  // namespace rknn_sim
