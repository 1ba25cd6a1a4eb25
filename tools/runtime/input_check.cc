#include "tools/runtime/input_check.h"

#include <algorithm>

#include "tools/runtime/rknn_names.h"

namespace corvane_tool {

std::string InputProblem(const std::vector<rknn_tensor_attr>& inputs,
                         const std::vector<uint32_t>& channels, const std::string& text) {
  if (inputs.size() != 1) {
    return std::to_string(inputs.size()) + " inputs; only models with one can run";
  }
  const std::vector<uint32_t> shape = Shape(inputs[0]);
  if (shape.size() != 4) return "";
  if (shape[0] != 1) {
    return "takes " + std::to_string(shape[0]) +
           " pictures at once, the library gives it one; export it with batch 1";
  }
  const auto may_be = [&](uint32_t count) {
    return std::find(channels.begin(), channels.end(), count) != channels.end();
  };
  const bool is_planar = inputs[0].fmt == RKNN_TENSOR_NCHW;
  const uint32_t taken = is_planar ? shape[1] : shape[3];
  if (may_be(taken)) return "";
  const bool looks_swapped = is_planar && may_be(shape[3]);
  return "takes " + std::to_string(taken) + " channel(s), but " + text +
         (looks_swapped ? "; " + ShapeText(shape) +
                              " looks like NHWC, the library gives NCHW: export it with channels "
                              "first"
                        : "");
}

}  // namespace corvane_tool
