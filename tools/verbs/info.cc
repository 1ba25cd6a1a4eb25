#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "rknn_api.h"
#include "simulator/models/model_problems.h"
#include "tools/commands.h"
#include "tools/results/comparison.h"
#include "tools/results/recording_summary.h"
#include "tools/runtime/context.h"
#include "tools/runtime/engine_answer.h"
#include "tools/runtime/input_check.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

void PrintTensor(const char* role, const rknn_tensor_attr& attribute) {
  std::printf("%s %u  \"%s\"\n", role, attribute.index, TensorName(attribute).c_str());
  std::printf("  shape         %s\n", ShapeText(Shape(attribute)).c_str());
  std::printf("  runtime dims  ");
  for (uint32_t i = 0; i < attribute.n_dims && i < RKNN_MAX_DIMS; ++i) {
    std::printf("%s%u", i == 0 ? "" : ", ", attribute.dims[i]);
  }
  std::printf("\n  elements      %u in %u bytes\n", attribute.n_elems, attribute.size);
  std::printf("  type          %s, %s, quantisation: %s\n", TypeName(attribute.type).c_str(),
              FormatName(attribute.fmt).c_str(), QuantisationText(attribute).c_str());
}

// A line for each operation that the simulated runtime cannot run.
void PrintProblems(const std::vector<uint8_t>& model) {
  // The vendor's runtime does not have it.
  const auto problems = reinterpret_cast<decltype(&rknn_sim_model_problems)>(
      dlsym(RTLD_DEFAULT, "rknn_sim_model_problems"));
  if (problems == nullptr) return;
  const std::unique_ptr<char, decltype(&std::free)> lines(
      problems(model.data(), static_cast<uint32_t>(model.size())), &std::free);
  if (lines == nullptr) return;
  std::printf("what the simulated runtime cannot run\n");
  std::istringstream stream(lines.get());
  for (std::string line; std::getline(stream, line);) std::printf("  %s\n", line.c_str());
  std::fflush(stdout);
}

std::unique_ptr<Context> Load(const std::string& path, const std::vector<uint8_t>& model) {
  try {
    return std::make_unique<Context>(path, model);
  } catch (const Failure&) {
    PrintProblems(model);
    throw;
  }
}

// The runtime has been called by neither engine's name yet.
int Check(const InfoOptions& options, const std::vector<uint8_t>& model) {
  const Tolerance tolerance = ReadTolerance(options.tolerance);
  const EngineAnswer reference = AskEngine("onnxruntime", options.model, model);
  const EngineAnswer test = AskEngine("opencv", options.model, model);
  if (!reference.problem.empty()) throw Failure("--check: ONNX Runtime: " + reference.problem);
  if (!test.problem.empty()) throw Failure("--check: OpenCV: " + test.problem);
  if (reference.engine == test.engine) {
    throw Failure("--check: this runtime has one engine only: " + test.engine);
  }
  std::printf("%s against %s, on the same noise\n", test.engine.c_str(), reference.engine.c_str());
  const bool is_within =
      PrintDifferences(CompareSets(reference.outputs, test.outputs, tolerance), tolerance);
  return is_within ? 0 : kDiffers;
}

}  // namespace

int Info(const InfoOptions& options) {
  if (!options.check && PrintIfRecording(options.model)) return 0;
  const ModelFile file = ReadModelFile(options.model);
  if (options.check) return Check(options, file.model);
  std::printf("%s\n  prefix        \"%s\"\n  model         %zu bytes\n", options.model.c_str(),
              file.prefix.c_str(), file.model.size());
  std::fflush(stdout);  // before what the runtime may have to say

  const std::unique_ptr<Context> loaded = Load(options.model, file.model);
  const Context& context = *loaded;
  rknn_sdk_version version = {};
  context.Query("RKNN_QUERY_SDK_VERSION", RKNN_QUERY_SDK_VERSION, &version);
  std::printf("  runtime       %.256s\n  driver        %.256s\n", version.api_version,
              version.drv_version);

  const std::vector<rknn_tensor_attr> inputs = context.Inputs();
  const std::vector<rknn_tensor_attr> outputs = context.Outputs();
  std::printf("  inputs        %zu\n  outputs       %zu\n", inputs.size(), outputs.size());
  for (const rknn_tensor_attr& attribute : inputs) PrintTensor("input", attribute);
  for (const rknn_tensor_attr& attribute : outputs) PrintTensor("output", attribute);
  const std::string problem = InputProblem(inputs, {1, 3}, "pictures have 1 or 3");
  if (!problem.empty()) std::printf("corvane run cannot run it: %s\n", problem.c_str());
  return 0;
}

}  // namespace corvane_tool
