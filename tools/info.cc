#include <cstdio>
#include <cstring>

#include "rknn_api.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/model_file.h"
#include "tools/rknn_names.h"

namespace corvane_tool {

namespace {

class Context {
 public:
  Context(const std::string& path, std::vector<uint8_t>* model) : path_(path) {
    Check("rknn_init", rknn_init(&handle_, model->data(), static_cast<uint32_t>(model->size()), 0));
    is_live_ = true;
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() {
    if (is_live_) rknn_destroy(handle_);
  }

  template <typename Record>
  void Query(const char* name, rknn_query_cmd command, Record* record) const {
    Check(std::string("rknn_query(") + name + ")",
          rknn_query(handle_, command, record, sizeof(*record)));
  }

 private:
  void Check(const std::string& call, int code) const {
    if (code == RKNN_SUCC) return;
    throw Failure(path_ + ": " + call + ": " + CodeName(code) +
                  (code == RKNN_ERR_MODEL_INVALID ? PackingHint(path_) : ""));
  }

  std::string path_;
  rknn_context handle_ = 0;
  bool is_live_ = false;
};

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

  const Context context(options.model, &file.model);
  rknn_sdk_version version = {};
  context.Query("RKNN_QUERY_SDK_VERSION", RKNN_QUERY_SDK_VERSION, &version);
  std::printf("  runtime       %.256s\n  driver        %.256s\n", version.api_version,
              version.drv_version);

  rknn_input_output_num count = {};
  context.Query("RKNN_QUERY_IN_OUT_NUM", RKNN_QUERY_IN_OUT_NUM, &count);
  std::printf("  inputs        %u\n  outputs       %u\n", count.n_input, count.n_output);
  for (uint32_t i = 0; i < count.n_input; ++i) {
    rknn_tensor_attr attribute = {};
    attribute.index = i;
    context.Query("RKNN_QUERY_INPUT_ATTR", RKNN_QUERY_INPUT_ATTR, &attribute);
    PrintTensor("input", attribute);
  }
  for (uint32_t i = 0; i < count.n_output; ++i) {
    rknn_tensor_attr attribute = {};
    attribute.index = i;
    context.Query("RKNN_QUERY_OUTPUT_ATTR", RKNN_QUERY_OUTPUT_ATTR, &attribute);
    PrintTensor("output", attribute);
  }
  return 0;
}

}  // namespace corvane_tool
