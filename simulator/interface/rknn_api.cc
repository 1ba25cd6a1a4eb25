// The runtime's C interface: every argument and the order of calls are checked here, before
// anything works on them.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

#include "simulator/interface/context.h"
#include "simulator/interface/invocation.h"
#include "simulator/models/onnx_graph.h"
#include "simulator/models/onnx_model.h"
#include "simulator/models/tensor_codec.h"
#include "simulator/models/text_model.h"

namespace rknn_sim {

namespace {

unsigned long long Number(rknn_context handle) { return handle; }

bool Enforces(Check check) { return TheScript().Enforces(check); }

// Runs body(context) on a live context that no other call is using.
template <typename Body>
int OnContext(Function function, Invocation& call, rknn_context handle, Body body) {
  bool was_destroyed = false;
  const ContextPointer context = TheRegistry().Find(handle, &was_destroyed);
  const auto refuse_dead = [&](const char* what) {
    return call.Misuse(RKNN_ERR_CTX_INVALID, "context 0x%llx was %s; wanted a live one",
                       Number(handle), what);
  };
  if (context == nullptr) return refuse_dead(was_destroyed ? "destroyed" : "never created");
  Function holder;
  if (!context->Hold(function, &holder)) {
    return call.Misuse(RKNN_ERR_FAIL,
                       "called while %s is at work on context 0x%llx; wanted one call at a time",
                       NameOf(holder), Number(handle));
  }
  const std::unique_ptr<Context, void (*)(Context*)> hold(context.get(),
                                                          [](Context* held) { held->Release(); });
  if (context->is_destroyed) return refuse_dead("destroyed");
  return body(*context);
}

// 0, or the misuse that the model's bytes show.
int CheckModelBytes(Invocation& call, ModelBytes::State state) {
  if (state == ModelBytes::State::kIntact || !Enforces(Check::kModelBytes)) return RKNN_SUCC;
  return call.Misuse(RKNN_ERR_MODEL_INVALID,
                     "the model's bytes %s since rknn_init; wanted them kept until rknn_destroy",
                     state == ModelBytes::State::kChanged ? "have changed" : "have been freed");
}

// ------------------------------------------------------------------------------- init and destroy

ModelPointer LoadModel(Invocation& call, const uint8_t* bytes, uint32_t size, int* ret) {
  *ret = RKNN_SUCC;
  if (const std::shared_ptr<const Model> scripted = TheScript().model()) {
    return MakeDescribedModel(*scripted);
  }
  const auto refuse = [&](const String& why) {
    *ret = call.Misuse(RKNN_ERR_MODEL_INVALID, "%s", why.c_str());
    return nullptr;
  };
  String why;
  if (IsPayload(bytes, size)) {
    Model model;
    if (ParsePayload(bytes, size, &model, &why)) return MakeDescribedModel(model);
    return refuse(why);
  }
  constexpr char kVendorMagic[] = {'R', 'K', 'N', 'N'};
  if (size >= sizeof(kVendorMagic) && std::memcmp(bytes, kVendorMagic, sizeof(kVendorMagic)) == 0) {
    return refuse(
        "the model is compiled for the NPU, and only the NPU can run it; wanted the ONNX model it "
        "was compiled from, or a text that begins with 'CORVANE-SIM'");
  }
  if (IsOnnx(bytes, size)) {
    ModelPointer model = MakeOnnxModel(bytes, size, &why);
    return model != nullptr ? model : refuse(why);
  }
  char head[16] = "";
  for (uint32_t i = 0; i < std::min(size, 4u); ++i) {
    std::snprintf(head + 3 * i, sizeof(head) - 3 * i, "%02x%s", bytes[i], i < 3 ? " " : "");
  }
  *ret = call.Misuse(RKNN_ERR_MODEL_INVALID,
                     "the model has %u bytes and begins with [%s]; wanted an ONNX model or a "
                     "text that begins with 'CORVANE-SIM'",
                     size, head);
  return nullptr;
}

int Init(Invocation& call, rknn_context* handle, void* model, uint32_t size, uint32_t flags) {
  if (Call* record = call.record()) {
    record->model_address = model;
    record->size = size;
    record->flags = flags;
  }
  if (handle == nullptr) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "context is null; wanted a place for the handle");
  }
  constexpr uint32_t kPriorities = 3, kAllFlags = 15;
  if ((flags & ~kAllFlags) != 0 || (flags & kPriorities) == kPriorities) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "flag is 0x%x; wanted a priority of 0 to 2, and 4 and 8 at most", flags);
  }
  if (!IsReadable(model, size)) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "model is %p; wanted an address from which %u bytes can be read", model,
                       size);
  }
  const auto* bytes = static_cast<const uint8_t*>(model);
  if (call.copies_buffers()) call.record()->model.assign(bytes, bytes + size);
  call.Reach();
  if (call.fails_on_any_code()) return call.code();

  int ret = RKNN_SUCC;
  ModelPointer executable = LoadModel(call, bytes, size, &ret);
  if (ret != RKNN_SUCC) return ret;
  const ContextPointer context = std::allocate_shared<Context>(
      MallocAllocator<Context>(), std::move(executable), ModelBytes(model, size));
  rknn_context wanted = 0;
  const bool has_wanted = TheScript().TakeNextHandle(&wanted);
  if (!TheRegistry().Add(context, has_wanted, wanted)) {
    return call.Misuse(RKNN_ERR_FAIL, "the scripted handle 0x%llx is in use; wanted a free one",
                       Number(wanted));
  }
  *handle = context->handle;
  if (Call* record = call.record()) record->context = context->handle;
  return RKNN_SUCC;
}

int Destroy(Invocation& call, Context& context) {
  const ModelBytes::State state = context.bytes.CheckAll();
  if (Call* record = call.record()) {
    record->was_model_intact = state == ModelBytes::State::kIntact;
  }
  call.Reach();
  int ret = CheckModelBytes(call, state);
  if (context.holds_outputs && Enforces(Check::kUnreleased)) {
    ret = call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                      "outputs of the last rknn_outputs_get are not released; wanted "
                      "rknn_outputs_release first");
  }
  // Whatever was wrong, the context is gone: keeping it would only leak.
  context.is_destroyed = true;
  TheRegistry().Remove(context.handle);
  return ret != RKNN_SUCC ? ret : call.code();
}

// --------------------------------------------------------------------------------------- queries

template <typename Record>
void Answer(void* info, const Record& record) {
  std::memcpy(info, &record, sizeof(record));
}

int Query(Invocation& call, Context& context, uint32_t command, void* info, uint32_t size) {
  static constexpr struct {
    const char* name;
    const char* record;
    uint32_t bytes;
  } kCommands[] = {
      {"RKNN_QUERY_IN_OUT_NUM", "rknn_input_output_num", sizeof(rknn_input_output_num)},
      {"RKNN_QUERY_INPUT_ATTR", "rknn_tensor_attr", sizeof(rknn_tensor_attr)},
      {"RKNN_QUERY_OUTPUT_ATTR", "rknn_tensor_attr", sizeof(rknn_tensor_attr)},
      {"RKNN_QUERY_PERF_DETAIL", "", 0},
      {"RKNN_QUERY_PERF_RUN", "rknn_perf_run", sizeof(rknn_perf_run)},
      {"RKNN_QUERY_SDK_VERSION", "rknn_sdk_version", sizeof(rknn_sdk_version)},
  };
  if (command >= std::size(kCommands)) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "cmd is %u; wanted 0 to 5", command);
  }
  const auto& wanted = kCommands[command];
  if (command == RKNN_QUERY_PERF_DETAIL) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "cmd is RKNN_QUERY_PERF_DETAIL, which is not simulated; wanted another");
  }
  if (size != wanted.bytes) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "size is %u for %s; wanted %u, the size of %s", size,
                       wanted.name, wanted.bytes, wanted.record);
  }
  if (info == nullptr) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "info is null; wanted the address of a %s",
                       wanted.record);
  }
  const bool is_input = command == RKNN_QUERY_INPUT_ATTR;
  const bool is_attribute = is_input || command == RKNN_QUERY_OUTPUT_ATTR;
  const auto& attributes = is_input ? context.model->inputs() : context.model->outputs();
  uint32_t index = 0;
  if (is_attribute) {
    std::memcpy(&index, info, sizeof(index));  // the record's first field
    if (Call* record = call.record()) record->index = index;
    if (index >= attributes.size()) {
      return call.Misuse(RKNN_ERR_PARAM_INVALID,
                         "index is %u for %s; wanted one below %zu, the model's count", index,
                         wanted.name, attributes.size());
    }
  }
  if (command == RKNN_QUERY_PERF_RUN && context.run_microseconds < 0 &&
      Enforces(Check::kCallOrder)) {
    return call.Misuse(RKNN_ERR_FAIL,
                       "cmd is RKNN_QUERY_PERF_RUN before any run; wanted rknn_run first");
  }

  call.Reach();
  if (call.fails_on_any_code()) return call.code();
  if (is_attribute) {
    rknn_tensor_attr attr = attributes[index];
    attr.index = index;
    Answer(info, attr);
  } else if (command == RKNN_QUERY_IN_OUT_NUM) {
    Answer(info, rknn_input_output_num{static_cast<uint32_t>(context.model->inputs().size()),
                                       static_cast<uint32_t>(context.model->outputs().size())});
  } else if (command == RKNN_QUERY_PERF_RUN) {
    Answer(info, rknn_perf_run{context.run_microseconds});
  } else {
    rknn_sdk_version version = {};
    std::strncpy(version.api_version, "corvane simulator " RKNN_SIM_VERSION,
                 sizeof(version.api_version) - 1);
    std::strncpy(version.drv_version, "none: a simulator on the CPU, no NPU",
                 sizeof(version.drv_version) - 1);
    Answer(info, version);
  }
  return RKNN_SUCC;
}

// ---------------------------------------------------------------------------------------- running

// A count of records against the model's, and the indices of the records: each of the model's
// once. 0 or the misuse.
template <typename Record>
int CheckRecords(Invocation& call, Context& context, const char* name, uint32_t count,
                 const Record* records, std::size_t wanted) {
  if (count != wanted) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "n_%s is %u; wanted %zu, the model's count", name,
                       count, wanted);
  }
  if (count > 0 && records == nullptr) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "%s is null; wanted %u records", name, count);
  }
  std::fill(context.marks.begin(), context.marks.end(), uint8_t{0});
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t index = records[i].index;
    if (index >= wanted) {
      return call.Misuse(RKNN_ERR_PARAM_INVALID, "%s[%u].index is %u; wanted one below %zu", name,
                         i, index, wanted);
    }
    if (context.marks[index]++ != 0) {
      return call.Misuse(RKNN_ERR_PARAM_INVALID,
                         "%s[%u].index is %u, as in a record before; wanted each index once", name,
                         i, index);
    }
  }
  return RKNN_SUCC;
}

int RefuseHeldOutputs(Invocation& call) {
  return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                     "outputs of the last rknn_outputs_get are not released; wanted "
                     "rknn_outputs_release first");
}

// 0 or the misuse of input record i.
int CheckInput(Invocation& call, const rknn_tensor_attr& attr, uint32_t i,
               const rknn_input& input) {
  const uint32_t type = RawValue(input.type), format = RawValue(input.fmt);
  if (!IsTensorType(type) || format > RKNN_TENSOR_NHWC || input.pass_through > 1) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "inputs[%u] has type %u, fmt %u, pass_through %u; wanted 0 to 4, 0 or 1, "
                       "0 or 1",
                       i, type, format, input.pass_through);
  }
  if (input.pass_through == 1 && type != RawValue(attr.type) && Enforces(Check::kInputType)) {
    return call.Misuse(RKNN_ERR_INPUT_INVALID,
                       "inputs[%u] passes %s through; wanted %s, the model's own type", i,
                       TypeName(input.type), TypeName(attr.type));
  }
  const uint64_t wanted = uint64_t{attr.n_elems} * ElementBytes(input.type);
  if (input.size != wanted && Enforces(Check::kInputSize)) {
    return call.Misuse(RKNN_ERR_INPUT_INVALID,
                       "inputs[%u].size is %u; wanted %llu bytes, %u elements of %s", i, input.size,
                       static_cast<unsigned long long>(wanted), attr.n_elems, TypeName(input.type));
  }
  if (input.buf == nullptr && input.size > 0) {
    return call.Misuse(RKNN_ERR_INPUT_INVALID, "inputs[%u].buf is null; wanted %u bytes", i,
                       input.size);
  }
  return RKNN_SUCC;
}

int InputsSet(Invocation& call, Context& context, uint32_t count, const rknn_input* inputs) {
  const auto& attributes = context.model->inputs();
  if (Call* record = call.record()) {
    record->count = count;
    if (count == attributes.size() && inputs != nullptr) {
      record->inputs.resize(count);
      for (uint32_t i = 0; i < count; ++i) record->inputs[i].record = inputs[i];
    }
  }
  int ret = CheckRecords(call, context, "inputs", count, inputs, attributes.size());
  for (uint32_t i = 0; ret == RKNN_SUCC && i < count; ++i) {
    // CheckRecords has refused a null array. NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
    ret = CheckInput(call, attributes[inputs[i].index], i, inputs[i]);
  }
  if (ret != RKNN_SUCC) return ret;
  if (context.holds_outputs && Enforces(Check::kCallOrder)) return RefuseHeldOutputs(call);
  if (call.copies_buffers()) {
    for (InputRecord& input : call.record()->inputs) {
      const auto* bytes = static_cast<const uint8_t*>(input.record.buf);
      input.bytes.assign(bytes, bytes + input.record.size);
    }
  }
  call.Reach();
  if (call.fails()) return call.code();
  for (uint32_t i = 0; i < count; ++i) context.KeepInput(inputs[i]);
  context.has_inputs = true;
  return call.code();
}

int Run(Invocation& call, Context& context) {
  if (Enforces(Check::kCallOrder)) {
    if (!context.has_inputs) {
      return call.Misuse(RKNN_ERR_INPUT_INVALID,
                         "no inputs have been set; wanted rknn_inputs_set first");
    }
    if (context.holds_outputs) return RefuseHeldOutputs(call);
  }
  if (Enforces(Check::kModelBytes)) {
    const int ret = CheckModelBytes(call, context.bytes.CheckSamples());
    if (ret != RKNN_SUCC) return ret;
  }
  const auto start = std::chrono::steady_clock::now();
  call.Reach();
  if (call.fails()) return call.code();
  String why;
  const int ret = context.Run(&why);
  if (ret != RKNN_SUCC) return call.Misuse(ret, "%s", why.c_str());
  context.run_microseconds = std::chrono::duration_cast<std::chrono::microseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count();
  context.has_run = true;
  return call.code();
}

// 0 or the misuse of output record i.
int CheckOutput(Invocation& call, const Context& context, uint32_t i, const rknn_output& output) {
  if (output.want_float > 1 || output.is_prealloc > 1) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "outputs[%u] has want_float %u, is_prealloc %u; wanted 0 or 1", i,
                       output.want_float, output.is_prealloc);
  }
  if (output.is_prealloc == 0) return RKNN_SUCC;
  const bool want_float = output.want_float == 1;
  const rknn_tensor_attr& attr = context.model->outputs()[output.index];
  const uint64_t wanted = context.OutputBytes(output.index, want_float);
  if (output.size != wanted && Enforces(Check::kOutputSize)) {
    return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                       "outputs[%u].size is %u; wanted %llu bytes, %u elements of %s", i,
                       output.size, static_cast<unsigned long long>(wanted), attr.n_elems,
                       want_float ? "FLOAT32" : TypeName(attr.type));
  }
  if (output.buf == nullptr && output.size > 0) {
    return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                       "outputs[%u].buf is null with is_prealloc 1; wanted %u bytes", i,
                       output.size);
  }
  return RKNN_SUCC;
}

void NoteOutputs(Invocation& call, const Context& context, uint32_t count,
                 const rknn_output* outputs) {
  Call* record = call.record();
  if (record == nullptr) return;
  record->count = count;
  if (count == context.model->outputs().size() && outputs != nullptr) {
    record->outputs.assign(outputs, outputs + count);
  }
}

int OutputsGet(Invocation& call, Context& context, uint32_t count, rknn_output* outputs) {
  NoteOutputs(call, context, count, outputs);
  int ret = CheckRecords(call, context, "outputs", count, outputs, context.model->outputs().size());
  for (uint32_t i = 0; ret == RKNN_SUCC && i < count; ++i) {
    ret = CheckOutput(call, context, i, outputs[i]);
  }
  if (ret != RKNN_SUCC) return ret;
  if (Enforces(Check::kCallOrder)) {
    if (context.holds_outputs) return RefuseHeldOutputs(call);
    if (!context.has_run) {
      return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                         "there is no run since the last outputs; wanted rknn_run first");
    }
  }
  call.Reach();
  if (call.fails()) return call.code();
  for (uint32_t i = 0; i < count; ++i) {
    rknn_output& output = outputs[i];
    const bool want_float = output.want_float == 1;
    if (output.is_prealloc == 0) {
      const uint64_t bytes = context.OutputBytes(output.index, want_float);
      output.buf = context.MakeOutputBuffer(output.index, bytes);
      output.size = static_cast<uint32_t>(bytes);
    }
    context.handed_out[output.index] = output.buf;
    if (!call.leaves_outputs_unwritten() && output.size > 0) {
      context.WriteOutput(output.index, want_float, output.buf, output.size);
    }
  }
  context.has_run = false;
  context.holds_outputs = true;
  return call.code();
}

int OutputsRelease(Invocation& call, Context& context, uint32_t count, const rknn_output* outputs) {
  NoteOutputs(call, context, count, outputs);
  int ret = CheckRecords(call, context, "outputs", count, outputs, context.model->outputs().size());
  if (ret != RKNN_SUCC) return ret;
  if (!context.holds_outputs && Enforces(Check::kCallOrder)) {
    return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                       "no outputs are held; wanted rknn_outputs_get first");
  }
  for (uint32_t i = 0; context.holds_outputs && i < count; ++i) {
    if (outputs[i].buf == context.handed_out[outputs[i].index]) continue;
    return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                       "outputs[%u].buf is %p; wanted %p, as rknn_outputs_get left it", i,
                       outputs[i].buf, context.handed_out[outputs[i].index]);
  }
  call.Reach();
  context.ReleaseOutputs();
  return call.code();
}

template <typename Body>
int InvokeOn(Function function, rknn_context handle, Body body) noexcept {
  return Invoke(function, handle, [&](Invocation& call) {
    return OnContext(function, call, handle, [&](Context& context) { return body(call, context); });
  });
}

}  // namespace

}  // namespace rknn_sim

using rknn_sim::Context;
using rknn_sim::Function;
using rknn_sim::Invocation;

extern "C" {

RKNN_SIM_EXPORT int rknn_init(rknn_context* context, void* model, uint32_t size, uint32_t flag) {
  return rknn_sim::Invoke(Function::kInit, 0, [&](Invocation& call) {
    return rknn_sim::Init(call, context, model, size, flag);
  });
}

RKNN_SIM_EXPORT int rknn_destroy(rknn_context context) {
  return rknn_sim::InvokeOn(Function::kDestroy, context, rknn_sim::Destroy);
}

RKNN_SIM_EXPORT int rknn_query(rknn_context context, rknn_query_cmd cmd, void* info,
                               uint32_t size) {
  return rknn_sim::InvokeOn(Function::kQuery, context, [&](Invocation& call, Context& live) {
    if (rknn_sim::Call* record = call.record()) {
      std::memcpy(&record->query, &cmd, sizeof(cmd));
      record->size = size;
    }
    return rknn_sim::Query(call, live, rknn_sim::RawValue(cmd), info, size);
  });
}

RKNN_SIM_EXPORT int rknn_inputs_set(rknn_context context, uint32_t n_inputs, rknn_input inputs[]) {
  return rknn_sim::InvokeOn(Function::kInputsSet, context, [&](Invocation& call, Context& live) {
    return rknn_sim::InputsSet(call, live, n_inputs, inputs);
  });
}

RKNN_SIM_EXPORT int rknn_run(rknn_context context, rknn_run_extend* extend) {
  return rknn_sim::InvokeOn(Function::kRun, context, [&](Invocation& call, Context& live) {
    if (rknn_sim::Call* record = call.record()) record->is_extend_null = extend == nullptr;
    return rknn_sim::Run(call, live);
  });
}

RKNN_SIM_EXPORT int rknn_outputs_get(rknn_context context, uint32_t n_outputs,
                                     rknn_output outputs[], rknn_output_extend* extend) {
  return rknn_sim::InvokeOn(Function::kOutputsGet, context, [&](Invocation& call, Context& live) {
    if (rknn_sim::Call* record = call.record()) record->is_extend_null = extend == nullptr;
    return rknn_sim::OutputsGet(call, live, n_outputs, outputs);
  });
}

RKNN_SIM_EXPORT int rknn_outputs_release(rknn_context context, uint32_t n_outputs,
                                         rknn_output outputs[]) {
  return rknn_sim::InvokeOn(Function::kOutputsRelease, context,
                            [&](Invocation& call, Context& live) {
                              return rknn_sim::OutputsRelease(call, live, n_outputs, outputs);
                            });
}
}
