// A model in the RKNN runtime. This pair of files alone talks to the runtime.
#ifndef CORVANE_SRC_RKNN_RUNTIME_H_
#define CORVANE_SRC_RKNN_RUNTIME_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "corvane/backend.h"
#include "rknn_api.h"
#include "src/rknn/model_file.h"

namespace corvane {

// The prepared input of one run, and how the runtime is told to take it.
struct PreparedInput {
  const void* buffer;
  uint32_t bytes;
  uint8_t pass_through;
  rknn_tensor_type type;
  rknn_tensor_format fmt;
};

class Runtime {
 public:
  Runtime() = default;
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;
  ~Runtime();

  // Creates the context and queries the tensors' attributes. Called once. False: the runtime
  // refused a call, and the cause has been written to standard error.
  bool Load(ModelBytes model);

  // Runs the model; the runtime writes each output as floats into the record of the same index.
  // False: a call failed, and the cause has been written; the records' contents are then undefined.
  // One call at a time.
  bool Run(const PreparedInput& input, std::vector<OutputTensor>* outputs);

  uint32_t input_count() const { return io_num_.n_input; }
  const std::vector<rknn_tensor_attr>& input_attrs() const { return input_attrs_; }
  const std::vector<rknn_tensor_attr>& output_attrs() const { return output_attrs_; }

 private:
  bool QueryAttributes(rknn_query_cmd command, uint32_t count, const char* name,
                       std::vector<rknn_tensor_attr>* attributes);

  // The runtime works on the model's bytes in place: they must outlive the context.
  std::unique_ptr<uint8_t[]> model_data_;
  rknn_context ctx_ = 0;
  bool has_context_ = false;  // 0 is a valid handle
  rknn_input_output_num io_num_ = {};
  std::vector<rknn_tensor_attr> input_attrs_;
  std::vector<rknn_tensor_attr> output_attrs_;
};

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_RUNTIME_H_
