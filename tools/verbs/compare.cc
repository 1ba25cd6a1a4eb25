#include <cstdio>

#include "tools/commands.h"
#include "tools/results/comparison.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

int Compare(const CompareOptions& options) {
  const bool prints_json = options.json == "-";
  if (!options.json.empty() && !prints_json) {
    FileNames({options.reference, options.test}).AddOutput(options.json);
  }
  const Tolerance tolerance = ReadTolerance(options.tolerance);
  const TensorSet reference = ReadTensorSet(options.reference);
  const TensorSet test = ReadTensorSet(options.test);
  const std::vector<Difference> rows = CompareSets(reference, test, tolerance);
  const Json json = DifferencesJson(rows, tolerance);
  if (prints_json) {
    std::printf("%s\n", Text(json).c_str());
  } else {
    PrintDifferences(rows, tolerance);
    if (!options.json.empty()) {
      const std::string text = Text(json) + "\n";
      WriteFile(options.json, text.data(), text.size());
    }
  }
  return json.at("within").get<bool>() ? 0 : kDiffers;
}

}  // namespace corvane_tool
