// Contexts and their handles.
#ifndef CORVANE_SIMULATOR_INTERFACE_CONTEXT_H_
#define CORVANE_SIMULATOR_INTERFACE_CONTEXT_H_

#include <atomic>
#include <memory>
#include <mutex>

#include "simulator/interface/model_bytes.h"
#include "simulator/models/model.h"

namespace rknn_sim {

// What one context knows. Only the call that holds it (see Hold) touches it.
class Context {
 public:
  Context(ModelPointer executable, const ModelBytes& bytes);

  // Takes the context for a call, or says which call has it.
  bool Hold(Function function, Function* holder);
  void Release() { holder_.store(kFree, std::memory_order_release); }

  // What an attribute query is about; null for other queries.
  const Vector<rknn_tensor_attr>* AttributesFor(uint32_t command) const;

  void KeepInput(const rknn_input& input);
  int Run(String* why);

  // Bytes that output i has in the caller's or the runtime's buffer.
  uint64_t OutputBytes(uint32_t i, bool want_float) const;
  // Writes output i, at most `size` bytes of it.
  void WriteOutput(uint32_t i, bool want_float, void* to, uint64_t size);
  uint8_t* MakeOutputBuffer(uint32_t i, uint64_t size);
  void ReleaseOutputs();

  const ModelPointer model;
  const ModelBytes bytes;

  rknn_context handle = 0;
  bool is_destroyed = false;
  bool has_inputs = false;
  bool has_run = false;        // since the last outputs_get
  bool holds_outputs = false;  // gotten, not released
  int64_t run_microseconds = -1;
  Vector<const void*> handed_out;  // the buffer of each gotten output
  Vector<uint8_t> marks;           // scratch: which indices a call has described

 private:
  static constexpr int kFree = -1;

  std::atomic<int> holder_{kFree};
  Vector<rknn_input> inputs_;
  Vector<Vector<uint8_t>> input_bytes_;
  Vector<Vector<float>> numbers_;
  Vector<Vector<uint8_t>> output_buffers_;
  Vector<float> output_numbers_;
};

using ContextPointer = std::shared_ptr<Context>;

class Registry {
 public:
  // Gives the context its handle; false when the wanted one is in use.
  bool Add(const ContextPointer& context, bool has_wanted, rknn_context wanted);
  // Null where there is no such context; then *was_destroyed says whether there was one.
  ContextPointer Find(rknn_context handle, bool* was_destroyed);
  void Remove(rknn_context handle);
  std::size_t size();
  Vector<rknn_context> Handles();

 private:
  static constexpr rknn_context kFirstHandle = 0xc0de0001;

  ContextPointer* Locate(rknn_context handle);

  std::mutex mutex_;
  Vector<ContextPointer> live_;
  Vector<rknn_context> wanted_;  // every handle that was asked for
  rknn_context next_ = kFirstHandle;
};

Registry& TheRegistry();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_INTERFACE_CONTEXT_H_
