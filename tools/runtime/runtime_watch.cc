#include "tools/runtime/runtime_watch.h"

#include "tools/runtime/loaded_runtime.h"
#include "tools/support/stopwatch.h"

namespace corvane_tool {

RuntimeRecord& WatchedRuntime() {
  static thread_local RuntimeRecord record;
  return record;
}

namespace {

class Call {
 public:
  explicit Call(const char* name) : name_(name) {}

  // Calls the runtime's function of the same name.
  template <auto own, typename... Arguments>
  int Next(Arguments... arguments) const {
    static const auto function = reinterpret_cast<decltype(own)>(FindInRuntime(name_));
    return function != nullptr ? function(arguments...) : RKNN_ERR_DEVICE_UNAVAILABLE;
  }

  int End(int code, bool failed) const {
    RuntimeRecord& record = WatchedRuntime();
    if (failed && record.failed_call == nullptr) {
      record.failed_call = name_;
      record.failed_code = code;
    }
    return code;
  }

 private:
  const char* name_;
};

void NoteAttribute(const rknn_tensor_attr& attribute, std::vector<rknn_tensor_attr>* attributes) {
  if (attribute.index < attributes->size()) (*attributes)[attribute.index] = attribute;
}

}  // namespace

}  // namespace corvane_tool

extern "C" {

int rknn_init(rknn_context* context, void* model, uint32_t size, uint32_t flag) {
  const corvane_tool::Call call("rknn_init");
  corvane_tool::WatchedRuntime() = corvane_tool::RuntimeRecord();
  const int code = call.Next<&rknn_init>(context, model, size, flag);
  return call.End(code, code != 0);
}

int rknn_query(rknn_context context, rknn_query_cmd cmd, void* info, uint32_t size) {
  const corvane_tool::Call call("rknn_query");
  const int code = call.Next<&rknn_query>(context, cmd, info, size);
  if (code == 0) {
    corvane_tool::RuntimeRecord& record = corvane_tool::WatchedRuntime();
    if (cmd == RKNN_QUERY_IN_OUT_NUM) {
      const auto& count = *static_cast<const rknn_input_output_num*>(info);
      record.inputs.resize(count.n_input);
      record.outputs.resize(count.n_output);
    } else if (cmd == RKNN_QUERY_INPUT_ATTR) {
      corvane_tool::NoteAttribute(*static_cast<const rknn_tensor_attr*>(info), &record.inputs);
    } else if (cmd == RKNN_QUERY_OUTPUT_ATTR) {
      corvane_tool::NoteAttribute(*static_cast<const rknn_tensor_attr*>(info), &record.outputs);
    }
  }
  return call.End(code, code != 0);
}

int rknn_inputs_set(rknn_context context, uint32_t count, rknn_input inputs[]) {
  const corvane_tool::Call call("rknn_inputs_set");
  corvane_tool::WatchedRuntime().input_given = corvane_tool::SteadyMilliseconds();
  const int code = call.Next<&rknn_inputs_set>(context, count, inputs);
  return call.End(code, code < 0);
}

int rknn_run(rknn_context context, rknn_run_extend* extend) {
  const corvane_tool::Call call("rknn_run");
  const int code = call.Next<&rknn_run>(context, extend);
  return call.End(code, code < 0);
}

int rknn_outputs_get(rknn_context context, uint32_t count, rknn_output outputs[],
                     rknn_output_extend* extend) {
  const corvane_tool::Call call("rknn_outputs_get");
  const int code = call.Next<&rknn_outputs_get>(context, count, outputs, extend);
  if (code >= 0) {
    corvane_tool::WatchedRuntime().outputs_back = corvane_tool::SteadyMilliseconds();
  }
  return call.End(code, code < 0);
}

int rknn_outputs_release(rknn_context context, uint32_t count, rknn_output outputs[]) {
  const corvane_tool::Call call("rknn_outputs_release");
  const int code = call.Next<&rknn_outputs_release>(context, count, outputs);
  return call.End(code, code < 0);
}

int rknn_destroy(rknn_context context) {
  const corvane_tool::Call call("rknn_destroy");
  const int code = call.Next<&rknn_destroy>(context);
  return call.End(code, code < 0);
}
}
