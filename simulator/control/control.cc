#include "control.h"

#include <cstdio>
#include <utility>

#include "simulator/control/environment.h"
#include "simulator/control/faults.h"
#include "simulator/control/script.h"
#include "simulator/control/trace.h"
#include "simulator/interface/context.h"
#include "simulator/interface/report.h"
#include "simulator/interface/rknn_names.h"

namespace rknn_sim {

const char* NameOf(Function function) {
  static constexpr const char* kNames[kFunctionCount] = {
      "rknn_init", "rknn_destroy",     "rknn_query",          "rknn_inputs_set",
      "rknn_run",  "rknn_outputs_get", "rknn_outputs_release"};
  return kNames[static_cast<std::size_t>(function)];
}

void Reset() {
  ReadEnvironmentOnce();  // so that what it orders is forgotten too
  TheScript().Reset();
  TheTrace().Reset();
  ForgetReports();
}

Tensor MakeTensor(std::initializer_list<uint32_t> dims, rknn_tensor_type type, int8_t fl) {
  Tensor tensor;
  rknn_tensor_attr& attr = tensor.attr;
  attr.n_elems = 1;
  for (const uint32_t dim : dims) {
    if (attr.n_dims == RKNN_MAX_DIMS) break;
    attr.dims[attr.n_dims++] = dim;
    attr.n_elems *= dim;
  }
  attr.size = attr.n_elems * static_cast<uint32_t>(ElementBytes(type));
  attr.type = type;
  attr.qnt_type = type == RKNN_TENSOR_INT16 ? RKNN_TENSOR_QNT_DFP : RKNN_TENSOR_QNT_NONE;
  attr.fl = fl;
  attr.scale = 1.0f;
  return tensor;
}

void SetModel(Model model) { TheScript().SetModel(std::move(model)); }
void SetNextHandle(rknn_context handle) { TheScript().SetNextHandle(handle); }

void ReturnAt(Function function, uint64_t nth, int code) {
  Effects effects;
  effects.has_code = true;
  effects.code = code;
  TheScript().AddEffects(function, nth, effects);
}

void DelayAt(Function function, uint64_t nth, std::chrono::microseconds delay) {
  Effects effects;
  effects.delay = delay;
  TheScript().AddEffects(function, nth, effects);
}

bool OrderFaults(const char* text, String* why) { return OrderFaults(text, &TheScript(), why); }

void LeaveOutputsUnwrittenAt(uint64_t nth) {
  Effects effects;
  effects.leaves_outputs_unwritten = true;
  TheScript().AddEffects(Function::kOutputsGet, nth, effects);
}

void HookAt(Function function, uint64_t nth, Hook hook) {
  Effects effects;
  effects.hook = std::allocate_shared<Hook>(MallocAllocator<Hook>(), std::move(hook));
  TheScript().AddEffects(function, nth, effects);
}

void Relax(Check check) { TheScript().Relax(check); }

void SetRecording(bool is_on) { TheTrace().SetOn(is_on); }

Vector<Call> Calls() { return TheTrace().Calls(); }

Vector<Call> Calls(Function function) {
  Vector<Call> calls;
  for (Call& call : TheTrace().Calls()) {
    if (call.function == function) calls.push_back(std::move(call));
  }
  return calls;
}

String CallOrder() {
  constexpr std::size_t kPrefix = sizeof("rknn_") - 1;
  String order;
  for (const Call& call : TheTrace().Calls()) {
    if (!order.empty()) order += ' ';
    order += NameOf(call.function) + kPrefix;
  }
  return order;
}

uint64_t CallCount(Function function) { return TheScript().CallCount(function); }
uint64_t MisuseCount() { return ReportedCount(); }
Vector<String> Misuses() { return ReportedLines(); }
std::size_t LiveContexts() { return TheRegistry().size(); }

namespace {

// After every other destructor of the program: what is still there now is never destroyed.
__attribute__((destructor)) void ReportContextsLeft() {
  for (const rknn_context handle : TheRegistry().Handles()) {
    std::fprintf(stderr,
                 "rknn simulator: exit: context 0x%llx is still there; wanted rknn_destroy\n",
                 static_cast<unsigned long long>(handle));
  }
}

}  // namespace

}  // namespace rknn_sim
