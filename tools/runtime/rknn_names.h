// The runtime's codes, enumerations and tensor attributes as text for people.
#ifndef CORVANE_TOOLS_RUNTIME_RKNN_NAMES_H_
#define CORVANE_TOOLS_RUNTIME_RKNN_NAMES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "rknn_api.h"

namespace corvane_tool {

std::string CodeName(int code);  // "RKNN_ERR_TIMEOUT (-2)"
std::string TypeName(rknn_tensor_type type);
std::string FormatName(rknn_tensor_format format);
std::string QuantisationText(const rknn_tensor_attr& attribute);  // "fixed point, fl 7"
std::string TensorName(const rknn_tensor_attr& attribute);        // need not end with NUL

// Outermost dimension first (N, C, H, W), the reverse of the runtime's order.
std::vector<uint32_t> Shape(const rknn_tensor_attr& attribute);
std::string ShapeText(const std::vector<uint32_t>& extents);  // "1 x 3 x 112 x 112"

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_RKNN_NAMES_H_
