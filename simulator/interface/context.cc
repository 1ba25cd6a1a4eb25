#include "simulator/interface/context.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "simulator/forever.h"
#include "simulator/interface/rknn_names.h"
#include "simulator/numbers/tensor_codec.h"

namespace rknn_sim {

namespace {
Forever<Registry> registry;
}  // namespace

Registry& TheRegistry() { return *registry; }

Context::Context(ModelPointer executable, const ModelBytes& watched)
    : model(std::move(executable)), bytes(watched) {
  const std::size_t inputs = model->inputs().size(), outputs = model->outputs().size();
  inputs_.resize(inputs);
  input_bytes_.resize(inputs);
  numbers_.resize(inputs);
  handed_out.resize(outputs);
  output_buffers_.resize(outputs);
  marks.resize(std::max(inputs, outputs));
}

bool Context::Hold(Function function, Function* holder) {
  int current = kFree;
  if (holder_.compare_exchange_strong(current, static_cast<int>(function),
                                      std::memory_order_acquire)) {
    return true;
  }
  *holder = static_cast<Function>(current);
  return false;
}

const Vector<rknn_tensor_attr>* Context::AttributesFor(uint32_t command) const {
  if (command == RKNN_QUERY_INPUT_ATTR) return &model->inputs();
  if (command == RKNN_QUERY_OUTPUT_ATTR) return &model->outputs();
  return nullptr;
}

void Context::KeepInput(const rknn_input& input) {
  inputs_[input.index] = input;
  if (!model->NeedsInput(input.index)) return;
  const auto* from = static_cast<const uint8_t*>(input.buf);
  input_bytes_[input.index].assign(from, from + input.size);
}

int Context::Run(String* why) {
  for (uint32_t i = 0; i < inputs_.size(); ++i) {
    if (!model->NeedsInput(i)) continue;
    DecodeInput(model->inputs()[i], inputs_[i], input_bytes_[i].data(), &numbers_[i]);
    if (inputs_[i].pass_through == 0) model->ConvertInput(i, &numbers_[i]);
  }
  return model->Run(numbers_, why);
}

uint64_t Context::OutputBytes(uint32_t i, bool want_float) const {
  const rknn_tensor_attr& attr = model->outputs()[i];
  return uint64_t{attr.n_elems} * (want_float ? sizeof(float) : ElementBytes(attr.type));
}

void Context::WriteOutput(uint32_t i, bool want_float, void* to, uint64_t size) {
  const rknn_tensor_attr& attr = model->outputs()[i];
  const uint64_t bytes_wanted = OutputBytes(i, want_float);
  const bool is_aligned = reinterpret_cast<uintptr_t>(to) % alignof(float) == 0;
  if (want_float && is_aligned && size >= bytes_wanted) {
    model->CopyOutput(i, static_cast<float*>(to));
    return;
  }
  output_numbers_.resize(attr.n_elems);
  model->CopyOutput(i, output_numbers_.data());
  const std::size_t width = want_float ? sizeof(float) : ElementBytes(attr.type);
  const std::size_t count =
      width == 0 ? 0 : static_cast<std::size_t>(std::min(size, bytes_wanted)) / width;
  if (count == 0) return;
  if (want_float) {
    std::memcpy(to, output_numbers_.data(), count * width);
  } else {
    EncodeNative(attr, output_numbers_.data(), count, static_cast<uint8_t*>(to));
  }
}

uint8_t* Context::MakeOutputBuffer(uint32_t i, uint64_t size) {
  // One byte more: an empty output has an address too.
  output_buffers_[i].assign(static_cast<std::size_t>(size) + 1, 0);
  return output_buffers_[i].data();
}

void Context::ReleaseOutputs() {
  for (Vector<uint8_t>& buffer : output_buffers_) Vector<uint8_t>().swap(buffer);
  holds_outputs = false;
}

ContextPointer* Registry::Locate(rknn_context handle) {
  for (ContextPointer& context : live_) {
    if (context->handle == handle) return &context;
  }
  return nullptr;
}

bool Registry::Add(const ContextPointer& context, bool has_wanted, rknn_context wanted) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (has_wanted && Locate(wanted) != nullptr) return false;
  if (has_wanted) {
    wanted_.push_back(wanted);
  } else {
    // Never given twice, so that a destroyed handle is known for what it is.
    while (Locate(next_) != nullptr) ++next_;
    wanted = next_++;
  }
  live_.push_back(context);
  context->handle = wanted;
  return true;
}

ContextPointer Registry::Find(rknn_context handle, bool* was_destroyed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  *was_destroyed = false;
  const ContextPointer* context = Locate(handle);
  if (context != nullptr) return *context;
  *was_destroyed = (handle >= kFirstHandle && handle < next_) ||
                   std::find(wanted_.begin(), wanted_.end(), handle) != wanted_.end();
  return nullptr;
}

void Registry::Remove(rknn_context handle) {
  ContextPointer removed;  // its model goes when the lock is gone
  const std::lock_guard<std::mutex> lock(mutex_);
  ContextPointer* context = Locate(handle);
  if (context == nullptr) return;
  removed.swap(*context);
  live_.erase(live_.begin() + (context - live_.data()));
}

std::size_t Registry::size() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return live_.size();
}

Vector<rknn_context> Registry::Handles() {
  const std::lock_guard<std::mutex> lock(mutex_);
  Vector<rknn_context> handles;
  for (const ContextPointer& context : live_) handles.push_back(context->handle);
  return handles;
}

}  // namespace rknn_sim
