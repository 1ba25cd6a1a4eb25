// One output of a model, or an array from a file.
#ifndef CORVANE_TOOLS_RESULTS_TENSOR_H_
#define CORVANE_TOOLS_RESULTS_TENSOR_H_

#include <cstdint>
#include <string>
#include <vector>

namespace corvane_tool {

struct Tensor {
  std::string name;             // empty in a .npy file
  std::vector<uint32_t> shape;  // outermost first
  std::vector<float> values;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_TENSOR_H_
