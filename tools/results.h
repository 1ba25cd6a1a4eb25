// What a run gave, for people and for machines.
#ifndef CORVANE_TOOLS_RESULTS_H_
#define CORVANE_TOOLS_RESULTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/settings.h"

namespace corvane_tool {

struct Tensor {
  std::string name;
  std::vector<uint32_t> shape;  // outermost first
  std::vector<float> values;
};

struct ImageResult {
  std::string file;
  std::string error;  // empty: everything below holds
  int width = 0;      // of the file
  int height = 0;
  int input_width = 0;  // of what went to the model
  int input_height = 0;
  bool is_aligned = false;
  double fit_error = 0;
  double prepare_ms = 0;
  double run_ms = 0;
  std::vector<Tensor> outputs;
};

void PrintTable(const ImageResult& result);

// All results of a run. Numbers are written so that reading them gives the same floats; NaN and the
// infinities, which JSON lacks, become null.
void WriteJson(const std::string& path, const RunSettings& settings,
               const std::vector<ImageResult>& results);

// NumPy's own format, version 1.0, little-endian float32.
void WriteNpy(const std::string& path, const Tensor& tensor);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_H_
