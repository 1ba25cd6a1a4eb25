#include "tools/runtime/rknn_names.h"

#include <algorithm>
#include <cstring>

#include "simulator/interface/rknn_names.h"

namespace corvane_tool {

namespace {
std::string NameOr(const char* name, const char* kind, uint32_t value) {
  return name != nullptr ? name : kind + std::to_string(value);
}
}  // namespace

std::string CodeName(int code) {
  const char* name = rknn_sim::CodeName(code);
  return std::string(name != nullptr ? name : "unknown code") + " (" + std::to_string(code) + ")";
}

std::string TypeName(rknn_tensor_type type) {
  const uint32_t value = rknn_sim::RawValue(type);
  return NameOr(rknn_sim::TypeNameInFiles(value), "type ", value);
}

std::string FormatName(rknn_tensor_format format) {
  const uint32_t value = rknn_sim::RawValue(format);
  return NameOr(rknn_sim::FormatName(value), "format ", value);
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
