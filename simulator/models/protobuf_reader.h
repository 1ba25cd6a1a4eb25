// Reads protobuf's wire format where it stands: no copy, nothing past the end, whatever the bytes.
#ifndef CORVANE_SIMULATOR_MODELS_PROTOBUF_READER_H_
#define CORVANE_SIMULATOR_MODELS_PROTOBUF_READER_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rknn_sim {

enum class WireType : uint32_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

struct ProtobufField {
  uint64_t number = 0;
  WireType type = WireType::kVarint;
  uint64_t value = 0;      // of a varint
  std::string_view bytes;  // of everything else

  bool IsBytes(uint64_t wanted) const { return number == wanted && type == WireType::kBytes; }
  bool IsVarint(uint64_t wanted) const { return number == wanted && type == WireType::kVarint; }
};

// The fields of one message, in the order of the bytes. Groups, long deprecated, are refused.
class ProtobufReader {
 public:
  explicit ProtobufReader(std::string_view message) : rest_(message) {}

  // False at the end, and where the bytes are no message: then is_valid() is false from there on.
  bool Next(ProtobufField* field);
  bool is_valid() const { return is_valid_; }
  std::size_t bytes_left() const { return rest_.size(); }

 private:
  std::string_view rest_;
  bool is_valid_ = true;
};

// Cuts a varint off the front of *bytes; false where there is none.
bool CutVarint(std::string_view* bytes, uint64_t* value);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_PROTOBUF_READER_H_
