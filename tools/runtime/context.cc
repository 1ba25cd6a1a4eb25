#include "tools/runtime/context.h"

#include <algorithm>
#include <utility>

#include "tools/runtime/model_file.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/failure.h"

namespace corvane_tool {

Context::Context(std::string path, std::vector<uint8_t> model)
    : path_(std::move(path)), model_(std::move(model)) {
  Check("rknn_init", rknn_init(&handle_, model_.data(), static_cast<uint32_t>(model_.size()), 0));
}

Context::~Context() { rknn_destroy(handle_); }

void Context::Check(const std::string& call, int code) const {
  if (code == RKNN_SUCC) return;
  throw Failure(path_ + ": " + call + ": " + CodeName(code) +
                (code == RKNN_ERR_MODEL_INVALID ? PackingHint(path_) : ""));
}

std::vector<rknn_tensor_attr> Context::Attributes(const char* name, rknn_query_cmd command,
                                                  uint32_t count) const {
  std::vector<rknn_tensor_attr> attributes;
  for (uint32_t i = 0; i < count; ++i) {
    rknn_tensor_attr attribute = {};
    attribute.index = i;
    Query(name, command, &attribute);
    attributes.push_back(attribute);
  }
  return attributes;
}

std::vector<rknn_tensor_attr> Context::Inputs() const {
  rknn_input_output_num count = {};
  Query("IN_OUT_NUM", RKNN_QUERY_IN_OUT_NUM, &count);
  return Attributes("INPUT_ATTR", RKNN_QUERY_INPUT_ATTR, count.n_input);
}

std::vector<rknn_tensor_attr> Context::Outputs() const {
  rknn_input_output_num count = {};
  Query("IN_OUT_NUM", RKNN_QUERY_IN_OUT_NUM, &count);
  return Attributes("OUTPUT_ATTR", RKNN_QUERY_OUTPUT_ATTR, count.n_output);
}

std::vector<std::vector<float>> Context::Run(std::vector<float>* tensors, std::size_t count) {
  std::vector<rknn_input> inputs(count);
  for (std::size_t i = 0; i < count; ++i) {
    inputs[i].index = static_cast<uint32_t>(i);
    inputs[i].buf = tensors[i].data();
    inputs[i].size = static_cast<uint32_t>(tensors[i].size() * sizeof(float));
    inputs[i].type = RKNN_TENSOR_FLOAT32;
    inputs[i].fmt = RKNN_TENSOR_NCHW;
  }
  // Of these calls a positive code is a success, as the library sees it.
  const int set = rknn_inputs_set(handle_, static_cast<uint32_t>(count), inputs.data());
  Check("rknn_inputs_set", std::min(set, 0));
  Check("rknn_run", std::min(rknn_run(handle_, nullptr), 0));
  rknn_input_output_num number = {};
  Query("IN_OUT_NUM", RKNN_QUERY_IN_OUT_NUM, &number);
  std::vector<rknn_output> outputs(number.n_output);
  for (uint32_t i = 0; i < number.n_output; ++i) {
    outputs[i].index = i;
    outputs[i].want_float = 1;
  }
  Check("rknn_outputs_get",
        std::min(rknn_outputs_get(handle_, number.n_output, outputs.data(), nullptr), 0));
  std::vector<std::vector<float>> values;
  for (const rknn_output& output : outputs) {
    const auto* floats = static_cast<const float*>(output.buf);
    values.emplace_back(floats, floats + output.size / sizeof(float));
  }
  rknn_outputs_release(handle_, number.n_output, outputs.data());
  return values;
}

}  // namespace corvane_tool
