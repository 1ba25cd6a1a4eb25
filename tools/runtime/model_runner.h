// A model in the library, with its settings, ready to run pictures.
#ifndef CORVANE_TOOLS_RUNTIME_MODEL_RUNNER_H_
#define CORVANE_TOOLS_RUNTIME_MODEL_RUNNER_H_

#include <memory>
#include <string>
#include <vector>

#include "corvane/backend.h"
#include "rknn_api.h"
#include "tools/pictures/preparation.h"
#include "tools/results/tensor.h"
#include "tools/settings/settings.h"

namespace corvane_tool {

// Milliseconds of one frame.
struct FrameTimes {
  double prepare = 0;  // until the input tensor is made
  double run = 0;      // from there until the runtime has all outputs
  double fetch = 0;    // until the caller has them
};

struct Answer {
  double prepare_ms = 0;
  double run_ms = 0;
  std::vector<Tensor> outputs;
};

class ModelRunner {
 public:
  // Throws Failure, which names the model, where it cannot be loaded or cannot run with these
  // settings, as far as that is known before the first picture. The settings must outlive the
  // object.
  explicit ModelRunner(const RunSettings& settings);

  const ModelInput& input() const { return input_; }
  std::size_t output_count() const { return outputs_.size(); }

  // Throws Failure, which begins with path.
  Answer Run(const std::string& path, const Image& image);
  // The pixels are in the settings' pixel type.
  FrameTimes Forward(const std::string& path, const uint8_t* pixels, int width, int height,
                     std::vector<corvane::OutputTensor>* outputs);

 private:
  const RunSettings& settings_;
  std::unique_ptr<corvane::Backend_<float>> backend_;
  ModelInput input_;
  std::vector<rknn_tensor_attr> outputs_;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_MODEL_RUNNER_H_
