// The results of a run as JSON: results.json when it has ended, and results.jsonl, one picture a
// line, while it goes on.
#ifndef CORVANE_TOOLS_RESULTS_RESULTS_H_
#define CORVANE_TOOLS_RESULTS_RESULTS_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/results/run_summary.h"
#include "tools/results/tensor.h"
#include "tools/settings/settings.h"

namespace corvane_tool {

struct ImageResult {
  std::string file;
  std::string error;  // empty: everything below holds
  int width = 0;      // of the file
  int height = 0;
  int input_width = 0;  // of what went to the model
  int input_height = 0;
  const Landmarks* landmarks = nullptr;  // null: not aligned; lives in the settings
  double fit_error = 0;
  double prepare_ms = 0;
  double run_ms = 0;
  std::vector<Tensor> outputs;
};

// How many elements are no ordinary numbers.
struct NotFinite {
  std::size_t nan = 0;
  std::size_t infinite = 0;
};
NotFinite CountNotFinite(const std::vector<float>& values);

// What the terminal shows of one picture.
void PrintTable(const ImageResult& result);

// One line without its end. Numbers are written so that reading them gives the same floats; NaN and
// the infinities, which JSON lacks, become null and are counted beside the values.
std::string ResultLine(const ImageResult& result);

// The file that a run leaves: lines are those of ResultLine, in the order of the pictures.
void WriteResults(const std::string& path, const RunSettings& settings,
                  const std::vector<std::string>& lines, const RunSummary& summary);

// Reads either form back: the outputs of the pictures that did not fail, by ResultNames and number,
// "portrait.0". null becomes NaN. Throws Failure, which names the file and what is wrong in it.
std::map<std::string, Tensor> ReadResults(const std::string& path);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_RESULTS_H_
