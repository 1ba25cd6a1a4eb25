#include "tools/rknn_names.h"

#include <algorithm>
#include <cstring>

namespace corvane_tool {

std::string CodeName(int code) {
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
  constexpr int kCount = sizeof(kNames) / sizeof(kNames[0]);
  const char* name = code <= 0 && code > -kCount ? kNames[-code] : "unknown code";
  return std::string(name) + " (" + std::to_string(code) + ")";
}

std::string TypeName(rknn_tensor_type type) {
  switch (type) {
    case RKNN_TENSOR_FLOAT32:
      return "float32";
    case RKNN_TENSOR_FLOAT16:
      return "float16";
    case RKNN_TENSOR_INT8:
      return "int8";
    case RKNN_TENSOR_UINT8:
      return "uint8";
    case RKNN_TENSOR_INT16:
      return "int16";
  }
  return "type " + std::to_string(static_cast<int>(type));
}

std::string FormatName(rknn_tensor_format format) {
  switch (format) {
    case RKNN_TENSOR_NCHW:
      return "NCHW";
    case RKNN_TENSOR_NHWC:
      return "NHWC";
  }
  return "format " + std::to_string(static_cast<int>(format));
}

std::string QuantisationText(const rknn_tensor_attr& attribute) {
  switch (attribute.qnt_type) {
    case RKNN_TENSOR_QNT_NONE:
      return "none";
    case RKNN_TENSOR_QNT_DFP:
      return "fixed point, fl " + std::to_string(attribute.fl);
    case RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC:
      return "affine, zero point " + std::to_string(attribute.zp) + ", scale " +
             std::to_string(attribute.scale);
  }
  return "kind " + std::to_string(static_cast<int>(attribute.qnt_type));
}

std::string TensorName(const rknn_tensor_attr& attribute) {
  return {attribute.name, strnlen(attribute.name, sizeof(attribute.name))};
}

std::vector<uint32_t> Shape(const rknn_tensor_attr& attribute) {
  std::vector<uint32_t> shape(attribute.dims,
                              attribute.dims + std::min<uint32_t>(attribute.n_dims, RKNN_MAX_DIMS));
  std::reverse(shape.begin(), shape.end());
  return shape;
}

std::string ShapeText(const std::vector<uint32_t>& extents) {
  std::string text;
  for (uint32_t extent : extents) text += (text.empty() ? "" : " x ") + std::to_string(extent);
  return text.empty() ? "scalar" : text;
}

}  // namespace corvane_tool
