#include <cstdio>
#include <utility>
#include <vector>

#include "rknn_api.h"
#include "tools/commands.h"
#include "tools/runtime/context.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/rknn_names.h"

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

}  // namespace

int Info(const InfoOptions& options) {
  ModelFile file = ReadModelFile(options.model);
  std::printf("%s\n  prefix        \"%s\"\n  model         %zu bytes\n", options.model.c_str(),
              file.prefix.c_str(), file.model.size());
  std::fflush(stdout);  // before what the runtime may have to say

  const Context context(options.model, std::move(file.model));
  rknn_sdk_version version = {};
  context.Query("RKNN_QUERY_SDK_VERSION", RKNN_QUERY_SDK_VERSION, &version);
  std::printf("  runtime       %.256s\n  driver        %.256s\n", version.api_version,
              version.drv_version);

  const std::vector<rknn_tensor_attr> inputs = context.Inputs();
  const std::vector<rknn_tensor_attr> outputs = context.Outputs();
  std::printf("  inputs        %zu\n  outputs       %zu\n", inputs.size(), outputs.size());
  for (const rknn_tensor_attr& attribute : inputs) PrintTensor("input", attribute);
  for (const rknn_tensor_attr& attribute : outputs) PrintTensor("output", attribute);
  return 0;
}

}  // namespace corvane_tool
