// How far tensors are from reference tensors.
#ifndef CORVANE_TOOLS_RESULTS_COMPARISON_H_
#define CORVANE_TOOLS_RESULTS_COMPARISON_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/results/json.h"
#include "tools/results/tensor.h"

namespace corvane_tool {

// An element t is within the tolerance of a reference r if |t - r| <= atol + rtol * |r|, or if both
// are NaN, or the same infinity.
struct Tolerance {
  double rtol = 1e-3;
  double atol = 1e-5;
};

// rtol and atol as the options give them. Throws Failure for what is no number of at least 0.
Tolerance ReadTolerance(const ToleranceOptions& options);

struct Difference {
  std::string name;
  std::string problem;  // "missing in ...", "shape ... against ..."; empty: the rest holds
  std::vector<uint32_t> shape;
  std::size_t elements = 0;
  std::size_t beyond = 0;  // the tolerance
  std::size_t reference_nan = 0, reference_infinite = 0, test_nan = 0, test_infinite = 0;
  // Over the elements that are finite in both. 0 where there are none.
  double largest = 0;
  std::vector<uint32_t> largest_index;
  float largest_reference = 0, largest_test = 0;
  double rms = 0;
  double cosine = 1;  // 1 also where both are all 0, 0 where one is

  bool is_within() const { return problem.empty() && beyond == 0; }
};

// Shapes that differ in extents of 1 alone are compared.
Difference Compare(const std::string& name, const Tensor& reference, const Tensor& test,
                   const Tolerance& tolerance);

// Tensors by picture and number of the output, "portrait.0"; a single file's has an empty name.
using TensorSet = std::map<std::string, Tensor>;

// Of a .npy file, a folder of them, or a results file. In a folder without .npy files the file
// results.json is read. Throws Failure.
TensorSet ReadTensorSet(const std::string& path);

// One row for each name of either. Two single tensors are paired whatever their names.
std::vector<Difference> CompareSets(const TensorSet& reference, const TensorSet& test,
                                    const Tolerance& tolerance);

// Prints the rows and how many are beyond the tolerance. Returns whether none is.
bool PrintDifferences(const std::vector<Difference>& differences, const Tolerance& tolerance);
Json DifferencesJson(const std::vector<Difference>& differences, const Tolerance& tolerance);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_COMPARISON_H_
