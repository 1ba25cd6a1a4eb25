#include "simulator/interface/rknn_names.h"

namespace rknn_sim {

namespace {

struct TensorType {
  const char* name;
  const char* name_in_files;
  std::size_t bytes;
};
// At the index of the enumerator's value.
constexpr TensorType kTypes[] = {{"FLOAT32", "float32", 4},
                                 {"FLOAT16", "float16", 2},
                                 {"INT8", "int8", 1},
                                 {"UINT8", "uint8", 1},
                                 {"INT16", "int16", 2}};
constexpr uint32_t kTypeCount = sizeof(kTypes) / sizeof(kTypes[0]);

template <std::size_t kCount>
const char* NameAt(const char* const (&names)[kCount], uint64_t index) {
  return index < kCount ? names[index] : nullptr;
}

}  // namespace

const char* CodeName(int code) {
  static constexpr const char* kNames[] = {
      "RKNN_SUCC",
      "RKNN_ERR_FAIL",
      "RKNN_ERR_TIMEOUT",
      "RKNN_ERR_DEVICE_UNAVAILABLE",
      "RKNN_ERR_MALLOC_FAIL",
      "RKNN_ERR_PARAM_INVALID",
      "RKNN_ERR_MODEL_INVALID",
      "RKNN_ERR_CTX_INVALID",
      "RKNN_ERR_INPUT_INVALID",
      "RKNN_ERR_OUTPUT_INVALID",
      "RKNN_ERR_DEVICE_UNMATCH",
      "RKNN_ERR_INCOMPATILE_PRE_COMPILE_MODEL",
      "RKNN_ERR_INCOMPATILE_OPTIMIZATION_LEVEL_VERSION",
      "RKNN_ERR_TARGET_PLATFORM_UNMATCH",
      "RKNN_ERR_NON_PRE_COMPILED_MODEL_ON_MINI_DRIVER",
  };
  return code <= 0 ? NameAt(kNames, static_cast<uint64_t>(-int64_t{code})) : nullptr;
}

const char* QueryName(uint32_t command) {
  static constexpr const char* kNames[] = {"RKNN_QUERY_IN_OUT_NUM",  "RKNN_QUERY_INPUT_ATTR",
                                           "RKNN_QUERY_OUTPUT_ATTR", "RKNN_QUERY_PERF_DETAIL",
                                           "RKNN_QUERY_PERF_RUN",    "RKNN_QUERY_SDK_VERSION"};
  return NameAt(kNames, command);
}

const char* FormatName(uint32_t format) {
  static constexpr const char* kNames[] = {"NCHW", "NHWC"};
  return NameAt(kNames, format);
}

const char* TypeName(uint32_t type) { return type < kTypeCount ? kTypes[type].name : nullptr; }

const char* TypeNameInFiles(uint32_t type) {
  return type < kTypeCount ? kTypes[type].name_in_files : nullptr;
}

bool ParseTensorType(std::string_view name, rknn_tensor_type* type) {
  for (uint32_t i = 0; i < kTypeCount; ++i) {
    if (name != kTypes[i].name_in_files) continue;
    *type = static_cast<rknn_tensor_type>(i);
    return true;
  }
  return false;
}

std::size_t ElementBytes(uint32_t type) { return type < kTypeCount ? kTypes[type].bytes : 0; }

}  // namespace rknn_sim
