// The runtime's C functions: each records what it was handed, has it checked, meets what a test has
// scripted, and then does its work.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "simulator/interface/checks.h"
#include "simulator/interface/context.h"
#include "simulator/interface/invocation.h"
#include "simulator/interface/rknn_names.h"
#include "simulator/models/load_model.h"
#include "simulator/replay/player.h"

namespace rknn_sim {

namespace {

unsigned long long Number(rknn_context handle) { return handle; }

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

int Init(Invocation& call, rknn_context* handle, void* model, uint32_t size, uint32_t flags) {
  if (Call* record = call.record()) {
    record->model_address = model;
    record->size = size;
    record->flags = flags;
  }
  if (const int ret = CheckInit(call, handle, model, size, flags)) return ret;
  const auto* bytes = static_cast<const uint8_t*>(model);
  if (call.copies_buffers()) call.record()->model.assign(bytes, bytes + size);
  call.Reach();
  if (call.fails_on_any_code()) return call.code();

  String why;
  ModelPointer executable = LoadModel(bytes, size, &why);
  if (executable == nullptr) return call.Misuse(RKNN_ERR_MODEL_INVALID, "%s", why.c_str());
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
  if (context.holds_outputs && Enforces(Check::kUnreleased)) ret = CheckReleased(call, context);
  // A misused context is destroyed all the same: no caller would try again.
  context.is_destroyed = true;
  TheRegistry().Remove(context.handle);
  return ret != RKNN_SUCC ? ret : call.code();
}

template <typename Record>
void Answer(void* info, const Record& record) {
  std::memcpy(info, &record, sizeof(record));
}

int Query(Invocation& call, Context& context, uint32_t command, void* info, uint32_t size) {
  if (const int ret = CheckQuery(call, context, command, info, size)) return ret;
  call.Reach();
  if (call.fails_on_any_code()) return call.code();
  if (const Vector<rknn_tensor_attr>* attributes = context.AttributesFor(command)) {
    uint32_t index;
    std::memcpy(&index, info, sizeof(index));
    rknn_tensor_attr attr = (*attributes)[index];
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
    const char* const engine = context.model->computed_by();
    std::snprintf(version.drv_version, sizeof(version.drv_version), "none: %s on the CPU, no NPU",
                  engine != nullptr ? engine : "a simulator");
    Answer(info, version);
  }
  return RKNN_SUCC;
}

int InputsSet(Invocation& call, Context& context, uint32_t count, const rknn_input* inputs) {
  if (Call* record = call.record()) {
    record->count = count;
    if (count == context.model->inputs().size() && inputs != nullptr) {
      record->inputs.resize(count);
      for (uint32_t i = 0; i < count; ++i) record->inputs[i].record = inputs[i];
    }
  }
  if (const int ret = CheckInputsSet(call, context, count, inputs)) return ret;
  if (call.copies_buffers()) {
    for (InputRecord& input : call.record()->inputs) {
      const auto* bytes = static_cast<const uint8_t*>(input.record.buf);
      input.bytes.assign(bytes, bytes + input.record.size);
    }
  }
  call.Reach();
  if (call.fails()) return call.code();
  for (uint32_t i = 0; i < count; ++i) {
    // Refused by CheckInputsSet if null. NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
    context.KeepInput(inputs[i]);
  }
  context.has_inputs = true;
  return call.code();
}

int Run(Invocation& call, Context& context) {
  if (const int ret = CheckRun(call, context)) return ret;
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
  if (const int ret = CheckOutputsGet(call, context, count, outputs)) return ret;
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
  if (const int ret = CheckOutputsRelease(call, context, count, outputs)) return ret;
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
using rknn_sim::Player;

extern "C" {

RKNN_SIM_EXPORT int rknn_init(rknn_context* context, void* model, uint32_t size, uint32_t flag) {
  if (Player* player = Player::Get()) return player->Init(context, model, size);
  return rknn_sim::Invoke(Function::kInit, 0, [&](Invocation& call) {
    return rknn_sim::Init(call, context, model, size, flag);
  });
}

RKNN_SIM_EXPORT int rknn_destroy(rknn_context context) {
  if (Player* player = Player::Get()) return player->Destroy(context);
  return rknn_sim::InvokeOn(Function::kDestroy, context, rknn_sim::Destroy);
}

RKNN_SIM_EXPORT int rknn_query(rknn_context context, rknn_query_cmd cmd, void* info,
                               uint32_t size) {
  if (Player* player = Player::Get())
    return player->Query(context, rknn_sim::RawValue(cmd), info, size);
  return rknn_sim::InvokeOn(Function::kQuery, context, [&](Invocation& call, Context& live) {
    if (rknn_sim::Call* record = call.record()) {
      std::memcpy(&record->query, &cmd, sizeof(cmd));
      record->size = size;
    }
    return rknn_sim::Query(call, live, rknn_sim::RawValue(cmd), info, size);
  });
}

RKNN_SIM_EXPORT int rknn_inputs_set(rknn_context context, uint32_t n_inputs, rknn_input inputs[]) {
  if (Player* player = Player::Get()) return player->InputsSet(context, n_inputs, inputs);
  return rknn_sim::InvokeOn(Function::kInputsSet, context, [&](Invocation& call, Context& live) {
    return rknn_sim::InputsSet(call, live, n_inputs, inputs);
  });
}

RKNN_SIM_EXPORT int rknn_run(rknn_context context, rknn_run_extend* extend) {
  if (Player* player = Player::Get()) return player->Run(context);
  return rknn_sim::InvokeOn(Function::kRun, context, [&](Invocation& call, Context& live) {
    if (rknn_sim::Call* record = call.record()) record->is_extend_null = extend == nullptr;
    return rknn_sim::Run(call, live);
  });
}

RKNN_SIM_EXPORT int rknn_outputs_get(rknn_context context, uint32_t n_outputs,
                                     rknn_output outputs[], rknn_output_extend* extend) {
  if (Player* player = Player::Get()) return player->OutputsGet(context, n_outputs, outputs);
  return rknn_sim::InvokeOn(Function::kOutputsGet, context, [&](Invocation& call, Context& live) {
    if (rknn_sim::Call* record = call.record()) record->is_extend_null = extend == nullptr;
    return rknn_sim::OutputsGet(call, live, n_outputs, outputs);
  });
}

RKNN_SIM_EXPORT int rknn_outputs_release(rknn_context context, uint32_t n_outputs,
                                         rknn_output outputs[]) {
  if (Player* player = Player::Get()) return player->OutputsRelease(context);
  return rknn_sim::InvokeOn(Function::kOutputsRelease, context,
                            [&](Invocation& call, Context& live) {
                              return rknn_sim::OutputsRelease(call, live, n_outputs, outputs);
                            });
}
}
