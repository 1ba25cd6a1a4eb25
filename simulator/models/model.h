// A model that can be run. The runtime's interface knows models only by this class.
#ifndef CORVANE_SIMULATOR_MODELS_MODEL_H_
#define CORVANE_SIMULATOR_MODELS_MODEL_H_

#include <cstdlib>
#include <memory>

#include "control.h"

namespace rknn_sim {

// The most that a model, which may be hostile, can have: tensors of a kind, elements of all of
// them.
constexpr std::size_t kMaxTensors = 256;
constexpr uint64_t kMaxElements = uint64_t{1} << 26;

// Belongs to one context, which never calls it from two threads at once. It lives in memory from
// malloc, as everything of the simulator.
class ExecutableModel {
 public:
  virtual ~ExecutableModel() = default;

  static void* operator new(std::size_t size) { return MallocAllocator<char>().allocate(size); }
  static void operator delete(void* memory) { std::free(memory); }

  const Vector<rknn_tensor_attr>& inputs() const { return inputs_; }
  const Vector<rknn_tensor_attr>& outputs() const { return outputs_; }

  // The engine that computes the outputs; null where nothing is computed.
  virtual const char* computed_by() const { return nullptr; }

  // Whether the outputs depend on input i: if not, its buffer is neither kept nor decoded.
  virtual bool NeedsInput(uint32_t i) const = 0;

  // Converts the numbers of a buffer that was not passed through to what the model takes.
  virtual void ConvertInput(uint32_t, Vector<float>*) const {}

  // inputs[i] holds n_elems numbers of input i in its attribute's layout; empty where not needed.
  // Returns 0 or one of the runtime's codes; then *why says what is wrong.
  virtual int Run(const Vector<Vector<float>>& inputs, String* why) = 0;

  // Writes n_elems numbers of output i of the last run, in its attribute's layout.
  virtual void CopyOutput(uint32_t i, float* to) const = 0;

 protected:
  Vector<rknn_tensor_attr> inputs_;
  Vector<rknn_tensor_attr> outputs_;
};

using ModelPointer = std::unique_ptr<ExecutableModel>;

// The model that a description states: constants and echoes.
ModelPointer MakeDescribedModel(const Model& description);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_MODEL_H_
