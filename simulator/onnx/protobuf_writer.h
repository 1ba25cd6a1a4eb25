// Writes protobuf's wire format at the end of a string, of whatever allocator. The counterpart of
// protobuf_reader.h.
#ifndef CORVANE_SIMULATOR_ONNX_PROTOBUF_WRITER_H_
#define CORVANE_SIMULATOR_ONNX_PROTOBUF_WRITER_H_

#include <cstdint>
#include <string_view>

#include "simulator/onnx/protobuf_reader.h"

namespace rknn_sim {

template <typename String>
void AppendVarint(uint64_t value, String* bytes) {
  for (; value >= 0x80; value >>= 7) *bytes += static_cast<char>(value | 0x80);
  *bytes += static_cast<char>(value);
}

template <typename String>
void AppendTag(uint64_t field, WireType type, String* bytes) {
  AppendVarint(field << 3 | static_cast<uint64_t>(type), bytes);
}

template <typename String>
void AppendBytes(uint64_t field, std::string_view content, String* bytes) {
  AppendTag(field, WireType::kBytes, bytes);
  AppendVarint(content.size(), bytes);
  bytes->append(content.data(), content.size());
}

template <typename String>
void AppendInt(uint64_t field, int64_t value, String* bytes) {
  AppendTag(field, WireType::kVarint, bytes);
  AppendVarint(static_cast<uint64_t>(value), bytes);
}

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_PROTOBUF_WRITER_H_
