#include <algorithm>
#include <utility>

#include "simulator/models/model.h"

namespace rknn_sim {

namespace {

class DescribedModel final : public ExecutableModel {
 public:
  explicit DescribedModel(const Model& description) : description_(description) {
    for (const Tensor& input : description_.inputs) inputs_.push_back(input.attr);
    for (const Tensor& output : description_.outputs) outputs_.push_back(output.attr);
    echoes_.resize(inputs_.size());
  }

  bool NeedsInput(uint32_t i) const override {
    for (const Tensor& output : description_.outputs) {
      if (output.echo_input == static_cast<int64_t>(i)) return true;
    }
    return false;
  }

  int Run(const Vector<Vector<float>>& inputs, String*) override {
    for (uint32_t i = 0; i < inputs.size(); ++i) {
      if (NeedsInput(i)) echoes_[i] = inputs[i];
    }
    return RKNN_SUCC;
  }

  void CopyOutput(uint32_t i, float* to) const override {
    const Tensor& output = description_.outputs[i];
    const std::size_t count = output.attr.n_elems;
    const Vector<float>* values = &output.values;
    if (output.echo_input != kNoEcho) {
      const auto input = static_cast<std::size_t>(output.echo_input);
      if (input >= echoes_.size() || echoes_[input].empty()) {
        std::fill_n(to, count, 0.0f);
        return;
      }
      values = &echoes_[input];
    }
    if (values->empty()) {
      for (std::size_t k = 0; k < count; ++k) {
        to[k] = static_cast<float>(1000 * (uint64_t{i} + 1) + k % 1000);
      }
      return;
    }
    if (values->size() == 1) {
      std::fill_n(to, count, values->front());
      return;
    }
    for (std::size_t k = 0; k < count; k += values->size()) {
      std::copy_n(values->begin(), std::min(values->size(), count - k), to + k);
    }
  }

 private:
  Model description_;
  Vector<Vector<float>> echoes_;
};

}  // namespace

ModelPointer MakeDescribedModel(const Model& description) {
  return std::make_unique<DescribedModel>(description);
}

}  // namespace rknn_sim
