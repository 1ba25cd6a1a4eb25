// The backend on the RKNN runtime.
#ifndef CORVANE_SRC_RKNN_BACKEND_H_
#define CORVANE_SRC_RKNN_BACKEND_H_

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "corvane/backend.h"
#include "src/rknn/runtime.h"

namespace corvane {

class BackendRKNN final : public Backend_<float> {
 public:
  // Throws std::runtime_error when the model cannot be loaded, with the errno value that
  // InitBackend is to leave in *reason.
  BackendRKNN(const std::string& model_path, const std::string& aux_string,
              const std::vector<std::string>& aux_strings, const std::vector<float>& means,
              const std::vector<float>& scales, RKNNInputType input_type, int* reason);

  void Forward(const uint8_t* image, int pixel_type, int width, int height,
               std::vector<OutputTensor>* outputs) override;
  void Reserved() override;

 private:
  // These return 0, or the errno value for the failure after its cause has been written.
  int LoadModel(const std::string& model_path);
  int PrepareAndRun(const uint8_t* image, int pixel_type, int width, int height,
                    std::vector<OutputTensor>* outputs);

  void AppendRecords(std::vector<OutputTensor>* outputs) const;
  // False after the cause has been written.
  bool HasConstantsFor(int channels) const;

  Runtime runtime_;
  RKNNInputType input_type_ = RKNN_INPUT_FLOAT32;
  std::string aux_string_;
  std::vector<std::string> aux_strings_;
  std::vector<float> means_;
  std::vector<float> scales_;
  std::mutex mutex_;
};

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_BACKEND_H_
