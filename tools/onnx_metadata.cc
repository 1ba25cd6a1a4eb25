#include "tools/onnx_metadata.h"

#include <cstddef>

#include "tools/failure.h"

namespace corvane_tool {

namespace {

// Field numbers of the ONNX messages.
constexpr uint64_t kModelIrVersion = 1;
constexpr uint64_t kModelGraph = 7;
constexpr uint64_t kModelMetadata = 14;
constexpr uint64_t kEntryKey = 1;
constexpr uint64_t kEntryValue = 2;

// Protobuf's wire types.
enum WireType { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

struct Field {
  uint64_t number = 0;
  unsigned wire_type = 0;
  const uint8_t* whole = nullptr;    // with its tag
  const uint8_t* content = nullptr;  // of kBytes: behind the length
  const uint8_t* end = nullptr;
};

// Walks the fields of one message. Protobuf lets them come in any order and repeat.
class FieldReader {
 public:
  FieldReader(const uint8_t* begin, const uint8_t* end) : at_(begin), end_(end) {}

  // False at the end, and for bytes that are no message: then is_valid() is false too.
  bool Next(Field* field) {
    if (at_ == end_ || !is_valid_) return false;
    field->whole = at_;
    uint64_t tag = 0;
    uint64_t length = 0;
    is_valid_ = Varint(&tag);
    field->number = tag >> 3;
    field->wire_type = static_cast<unsigned>(tag & 7);
    switch (field->wire_type) {
      case kVarint:
        is_valid_ = is_valid_ && Varint(&length);
        length = 0;
        break;
      case kFixed64:
        length = 8;
        break;
      case kBytes:
        is_valid_ = is_valid_ && Varint(&length);
        break;
      case kFixed32:
        length = 4;
        break;
      default:
        is_valid_ = false;
    }
    is_valid_ = is_valid_ && field->number != 0 && length <= static_cast<uint64_t>(end_ - at_);
    if (!is_valid_) return false;
    field->content = at_;
    at_ += length;
    field->end = at_;
    return true;
  }

  bool is_valid() const { return is_valid_; }

 private:
  bool Varint(uint64_t* value) {
    *value = 0;
    for (unsigned shift = 0; shift < 64 && at_ != end_; shift += 7) {
      const uint8_t byte = *at_++;
      *value |= uint64_t{byte & 0x7Fu} << shift;
      if (byte < 0x80) return true;
    }
    return false;
  }

  const uint8_t* at_;
  const uint8_t* end_;
  bool is_valid_ = true;
};

std::string KeyOf(const Field& entry) {
  std::string key;
  Field field;
  for (FieldReader reader(entry.content, entry.end); reader.Next(&field);) {
    if (field.number == kEntryKey && field.wire_type == kBytes) {
      key.assign(field.content, field.end);
    }
  }
  return key;
}

void AppendVarint(uint64_t value, std::vector<uint8_t>* bytes) {
  for (; value >= 0x80; value >>= 7) bytes->push_back(static_cast<uint8_t>(value | 0x80));
  bytes->push_back(static_cast<uint8_t>(value));
}

template <typename Bytes>
void AppendField(uint64_t number, const Bytes& content, std::vector<uint8_t>* bytes) {
  AppendVarint(number << 3 | kBytes, bytes);
  AppendVarint(content.size(), bytes);
  bytes->insert(bytes->end(), content.begin(), content.end());
}

}  // namespace

std::vector<uint8_t> WithMetadata(const std::string& path, const std::vector<uint8_t>& onnx,
                                  const std::map<std::string, std::string>& properties) {
  std::vector<uint8_t> result;
  bool has_version = false;
  bool has_graph = false;
  FieldReader reader(onnx.data(), onnx.data() + onnx.size());
  for (Field field; reader.Next(&field);) {
    has_version |= field.number == kModelIrVersion && field.wire_type == kVarint;
    has_graph |= field.number == kModelGraph && field.wire_type == kBytes;
    const bool is_replaced = field.number == kModelMetadata && field.wire_type == kBytes &&
                             properties.count(KeyOf(field)) != 0;
    if (!is_replaced) result.insert(result.end(), field.whole, field.end);
  }
  if (!reader.is_valid() || !has_version || !has_graph) {
    throw Failure(path + ": no ONNX model (for a model compiled for the board there is --raw)");
  }
  for (const auto& property : properties) {
    std::vector<uint8_t> entry;
    AppendField(kEntryKey, property.first, &entry);
    AppendField(kEntryValue, property.second, &entry);
    AppendField(kModelMetadata, entry, &result);
  }
  return result;
}

}  // namespace corvane_tool
