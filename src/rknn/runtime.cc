#include "src/rknn/runtime.h"

#include <cstdio>
#include <utility>

#include "src/rknn/report.h"

namespace corvane {

Runtime::~Runtime() {
  if (has_context_) rknn_destroy(ctx_);
}

bool Runtime::Load(ModelBytes model) {
  model_data_ = std::move(model.data);
  int ret = rknn_init(&ctx_, model_data_.get(), model.size, 0);
  if (ret != 0) {
    WriteLine(stderr, "failed to init RKNN context. [ret=%d]\n", ret);
    return false;
  }
  has_context_ = true;
  ret = rknn_query(ctx_, RKNN_QUERY_IN_OUT_NUM, &io_num_, sizeof(io_num_));
  if (ret != 0) {
    WriteLine(stderr, "failed to query rknn. [ret=%d]\n", ret);
    return false;
  }
  return QueryAttributes(RKNN_QUERY_INPUT_ATTR, io_num_.n_input, "input", &input_attrs_) &&
         QueryAttributes(RKNN_QUERY_OUTPUT_ATTR, io_num_.n_output, "output", &output_attrs_);
}

bool Runtime::QueryAttributes(rknn_query_cmd command, uint32_t count, const char* name,
                              std::vector<rknn_tensor_attr>* attributes) {
  attributes->resize(count);
  for (uint32_t i = 0; i < count; ++i) {
    rknn_tensor_attr& attribute = (*attributes)[i];
    attribute.index = i;
    const int ret = rknn_query(ctx_, command, &attribute, sizeof(attribute));
    if (ret != 0) {
      WriteLine(stderr, "failed to query rknn %s attr. [ret=%d]\n", name, ret);
      return false;
    }
  }
  return true;
}

bool Runtime::Run(const PreparedInput& prepared, std::vector<OutputTensor>* outputs) {
  rknn_input input = {};
  input.buf = const_cast<void*>(prepared.buffer);  // the runtime only reads it
  input.size = prepared.bytes;
  input.pass_through = prepared.pass_through;
  input.type = prepared.type;
  input.fmt = prepared.fmt;
  int ret = rknn_inputs_set(ctx_, io_num_.n_input, &input);
  if (ret < 0) {
    CORVANE_REPORT("ERROR: rknn_inputs_set failed. [ret=%d]\n", ret);
    return false;
  }
  ret = rknn_run(ctx_, nullptr);
  if (ret < 0) {
    CORVANE_REPORT("ERROR: rknn_run failed. [ret=%d]\n", ret);
    return false;
  }

  const std::unique_ptr<rknn_output[]> records(new rknn_output[io_num_.n_output]());
  for (uint32_t i = 0; i < io_num_.n_output; ++i) {
    records[i].want_float = 1;
    records[i].is_prealloc = 1;
    records[i].index = i;
    records[i].buf = (*outputs)[i].data;
    records[i].size = output_attrs_[i].n_elems * static_cast<uint32_t>(sizeof(float));
  }
  ret = rknn_outputs_get(ctx_, io_num_.n_output, records.get(), nullptr);
  if (ret < 0) {
    CORVANE_REPORT("ERROR: rknn_outputs_get failed. [ret=%d]\n", ret);
    return false;
  }
  rknn_outputs_release(ctx_, io_num_.n_output, records.get());
  return true;
}

}  // namespace corvane
