// Names of the runtime's codes, queries, tensor types and formats, for the simulator and the tool.
// A program may hand in any 32-bit value as an enumerator, so the functions here take all of them.
#ifndef CORVANE_SIMULATOR_INTERFACE_RKNN_NAMES_H_
#define CORVANE_SIMULATOR_INTERFACE_RKNN_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "rknn_api.h"

namespace rknn_sim {

// The number in an enumerator, which need not be one that the enumeration names.
template <typename Enum>
uint32_t RawValue(const Enum& enumerator) {
  static_assert(sizeof(Enum) == sizeof(uint32_t), "the size in the runtime's binary interface");
  uint32_t value;
  std::memcpy(&value, &enumerator, sizeof(value));
  return value;
}

// These return null for a value without a name.
const char* CodeName(int code);              // "RKNN_ERR_TIMEOUT"
const char* QueryName(uint32_t command);     // "RKNN_QUERY_IN_OUT_NUM"
const char* FormatName(uint32_t format);     // "NCHW"
const char* TypeName(uint32_t type);         // "FLOAT32", as in messages
const char* TypeNameInFiles(uint32_t type);  // "float32", as in model files and options

// Reads a name as TypeNameInFiles gives it; false for any other text.
bool ParseTensorType(std::string_view name, rknn_tensor_type* type);

std::size_t ElementBytes(uint32_t type);  // 0 where the value is no type

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_INTERFACE_RKNN_NAMES_H_
