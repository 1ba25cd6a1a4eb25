// Reads protobuf's wire format in place: it copies nothing and never reads past the end. The
// simulator reads ONNX models with it, and the tool changes their metadata.
#ifndef CORVANE_SIMULATOR_ONNX_PROTOBUF_READER_H_
#define CORVANE_SIMULATOR_ONNX_PROTOBUF_READER_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rknn_sim {

enum class WireType : uint32_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

struct ProtobufField {
  uint64_t number = 0;
  WireType type = WireType::kVarint;
  uint64_t value = 0;      // of kVarint
  std::string_view bytes;  // the content, of every other type
  std::string_view whole;  // the field with its tag and length

  bool IsBytes(uint64_t wanted) const { return number == wanted && type == WireType::kBytes; }
  bool IsVarint(uint64_t wanted) const { return number == wanted && type == WireType::kVarint; }
};

// Iterates over the fields of one message, in file order. Groups, which protobuf has deprecated,
// are refused.
class ProtobufReader {
 public:
  explicit ProtobufReader(std::string_view message) : rest_(message) {}

  // False at the end and at bytes that are no field; is_valid() tells the two apart.
  bool Next(ProtobufField* field);
  bool is_valid() const { return is_valid_; }
  std::size_t bytes_left() const { return rest_.size(); }

 private:
  std::string_view rest_;
  bool is_valid_ = true;
};

// Removes a varint from the front of *bytes; false where the bytes do not begin with one.
bool CutVarint(std::string_view* bytes, uint64_t* value);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_PROTOBUF_READER_H_
