// The backend on the RKNN runtime. Only this pair of files talks to the runtime.
#ifndef CORVANE_SRC_RKNN_RKNN_H_
#define CORVANE_SRC_RKNN_RKNN_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "corvane/backend.h"
#include "rknn_api.h"

namespace corvane {

// A runtime context, destroyed with its owner once it is live. The handle's value says nothing: 0
// is a handle like any other.
class RknnContext {
 public:
  RknnContext() = default;
  RknnContext(const RknnContext&) = delete;
  RknnContext& operator=(const RknnContext&) = delete;
  ~RknnContext() { Destroy(); }

  int Init(void* model, uint32_t model_bytes) {
    const int ret = rknn_init(&handle_, model, model_bytes, 0);
    live_ = ret == 0;
    return ret;
  }
  void Destroy() {
    if (live_) rknn_destroy(handle_);
    live_ = false;
  }
  rknn_context handle() const { return handle_; }

 private:
  rknn_context handle_ = 0;
  bool live_ = false;
};

class BackendRKNN final : public Backend_<float> {
 public:
  BackendRKNN(const std::string& model_path, const std::string& aux_string,
              const std::vector<std::string>& aux_strings, const std::vector<float>& means,
              const std::vector<float>& scales, RKNNInputType input_type);
  ~BackendRKNN() override;

  void Forward(const uint8_t* image, int pixel_type, int width, int height,
               std::vector<OutputTensor>* outputs) override;
  void Reserved() override;

 private:
  // 0, or -1 after the cause has been written.
  int32_t LoadModel(const std::string& model_path);
  int32_t ReadModelFile(const std::string& model_path, uint32_t* model_bytes);
  int32_t QueryAttributes(rknn_query_cmd command, uint32_t count, const char* name,
                          std::vector<rknn_tensor_attr>* attributes);

  void AppendRecords(std::vector<OutputTensor>* outputs) const;
  // False after the cause has been written.
  bool HasConstantsFor(int channels) const;
  // Prepares and runs under the lock; true once the runtime has been called.
  bool PrepareAndRun(const uint8_t* image, int pixel_type, int width, int height,
                     std::vector<OutputTensor>* outputs);
  void Run(const void* buffer, int width, int height, int channels,
           std::vector<OutputTensor>* outputs);

  // The runtime works on the model's bytes in place: they must outlive the context.
  std::unique_ptr<uint8_t[]> model_data_;
  RknnContext ctx_;
  RKNNInputType input_type_ = RKNN_INPUT_FLOAT32;
  std::string aux_string_;
  std::vector<std::string> aux_strings_;
  std::vector<float> means_;
  std::vector<float> scales_;
  rknn_input_output_num io_num_ = {};
  std::vector<rknn_tensor_attr> input_attrs_;
  std::vector<rknn_tensor_attr> output_attrs_;
  std::mutex mutex_;
};

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_RKNN_H_
