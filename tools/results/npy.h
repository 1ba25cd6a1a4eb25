// Arrays in NumPy's own file format.
#ifndef CORVANE_TOOLS_RESULTS_NPY_H_
#define CORVANE_TOOLS_RESULTS_NPY_H_

#include <string>

#include "tools/results/tensor.h"

namespace corvane_tool {

// Reads versions 1 to 3 with boolean, integer or float elements of either byte order, in C or
// Fortran order; all become float. Throws Failure, which names the file, for anything else.
Tensor ReadNpy(const std::string& path);

// Writes version 1.0, little-endian float32.
void WriteNpy(const std::string& path, const Tensor& tensor);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_NPY_H_
