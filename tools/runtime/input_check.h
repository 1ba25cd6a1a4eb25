// Whether the library, which gives a model one picture at a time, can feed it.
#ifndef CORVANE_TOOLS_RUNTIME_INPUT_CHECK_H_
#define CORVANE_TOOLS_RUNTIME_INPUT_CHECK_H_

#include <cstdint>
#include <string>
#include <vector>

#include "rknn_api.h"

namespace corvane_tool {

// What cannot be, with a cure; empty: nothing. channels: what pictures may have, as the text says:
// "pixel type RGB has 3". Inputs of other than four dimensions are taken as they are.
std::string InputProblem(const std::vector<rknn_tensor_attr>& inputs,
                         const std::vector<uint32_t>& channels, const std::string& text);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_INPUT_CHECK_H_
