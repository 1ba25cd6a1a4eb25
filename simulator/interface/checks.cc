#include "simulator/interface/checks.h"

#include <algorithm>
#include <cstring>

#include "simulator/interface/rknn_names.h"

namespace rknn_sim {

namespace {

// A test may script an attribute of any type.
const char* TypeText(rknn_tensor_type type) {
  const char* name = TypeName(RawValue(type));
  return name != nullptr ? name : "unknown type";
}

// The call must describe each of the model's `wanted` inputs or outputs once.
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

int CheckInput(Invocation& call, const rknn_tensor_attr& attr, uint32_t i,
               const rknn_input& input) {
  const uint32_t type = RawValue(input.type), format = RawValue(input.fmt);
  if (TypeName(type) == nullptr || format > RKNN_TENSOR_NHWC || input.pass_through > 1) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "inputs[%u] has type %u, fmt %u, pass_through %u; wanted 0 to 4, 0 or 1, "
                       "0 or 1",
                       i, type, format, input.pass_through);
  }
  if (input.pass_through == 1 && type != RawValue(attr.type) && Enforces(Check::kInputType)) {
    return call.Misuse(RKNN_ERR_INPUT_INVALID,
                       "inputs[%u] passes %s through; wanted %s, the model's own type", i,
                       TypeText(input.type), TypeText(attr.type));
  }
  const uint64_t wanted = uint64_t{attr.n_elems} * ElementBytes(input.type);
  if (input.size != wanted && Enforces(Check::kInputSize)) {
    return call.Misuse(RKNN_ERR_INPUT_INVALID,
                       "inputs[%u].size is %u; wanted %llu bytes, %u elements of %s", i, input.size,
                       static_cast<unsigned long long>(wanted), attr.n_elems, TypeText(input.type));
  }
  if (input.buf == nullptr && input.size > 0) {
    return call.Misuse(RKNN_ERR_INPUT_INVALID, "inputs[%u].buf is null; wanted %u bytes", i,
                       input.size);
  }
  return RKNN_SUCC;
}

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
                       want_float ? "FLOAT32" : TypeText(attr.type));
  }
  if (output.buf == nullptr && output.size > 0) {
    return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                       "outputs[%u].buf is null with is_prealloc 1; wanted %u bytes", i,
                       output.size);
  }
  return RKNN_SUCC;
}

struct QueryRecord {
  const char* name;
  uint32_t bytes;
};
// At the index of the query's value.
constexpr QueryRecord kQueryRecords[] = {
    {"rknn_input_output_num", sizeof(rknn_input_output_num)},
    {"rknn_tensor_attr", sizeof(rknn_tensor_attr)},
    {"rknn_tensor_attr", sizeof(rknn_tensor_attr)},
    {"", 0},  // RKNN_QUERY_PERF_DETAIL is refused
    {"rknn_perf_run", sizeof(rknn_perf_run)},
    {"rknn_sdk_version", sizeof(rknn_sdk_version)},
};

}  // namespace

bool Enforces(Check check) { return TheScript().Enforces(check); }

int CheckModelBytes(Invocation& call, ModelBytes::State state) {
  if (state == ModelBytes::State::kIntact || !Enforces(Check::kModelBytes)) return RKNN_SUCC;
  return call.Misuse(RKNN_ERR_MODEL_INVALID,
                     "the model's bytes %s since rknn_init; wanted them kept until rknn_destroy",
                     state == ModelBytes::State::kChanged ? "have changed" : "have been freed");
}

int CheckReleased(Invocation& call, const Context& context) {
  if (!context.holds_outputs) return RKNN_SUCC;
  return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                     "outputs of the last rknn_outputs_get are not released; wanted "
                     "rknn_outputs_release first");
}

int CheckInit(Invocation& call, const rknn_context* handle, const void* model, uint32_t size,
              uint32_t flags) {
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
  return RKNN_SUCC;
}

int CheckQuery(Invocation& call, const Context& context, uint32_t command, const void* info,
               uint32_t size) {
  const char* name = QueryName(command);
  if (name == nullptr) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "cmd is %u; wanted 0 to 5", command);
  }
  if (command == RKNN_QUERY_PERF_DETAIL) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID,
                       "cmd is RKNN_QUERY_PERF_DETAIL, which is not simulated; wanted another");
  }
  const QueryRecord& record = kQueryRecords[command];
  if (size != record.bytes) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "size is %u for %s; wanted %u, the size of %s", size,
                       name, record.bytes, record.name);
  }
  if (info == nullptr) {
    return call.Misuse(RKNN_ERR_PARAM_INVALID, "info is null; wanted the address of a %s",
                       record.name);
  }
  if (const Vector<rknn_tensor_attr>* attributes = context.AttributesFor(command)) {
    uint32_t index;
    std::memcpy(&index, info, sizeof(index));  // the record's first field
    if (Call* recorded = call.record()) recorded->index = index;
    if (index >= attributes->size()) {
      return call.Misuse(RKNN_ERR_PARAM_INVALID,
                         "index is %u for %s; wanted one below %zu, the model's count", index, name,
                         attributes->size());
    }
  }
  if (command == RKNN_QUERY_PERF_RUN && context.run_microseconds < 0 &&
      Enforces(Check::kCallOrder)) {
    return call.Misuse(RKNN_ERR_FAIL,
                       "cmd is RKNN_QUERY_PERF_RUN before any run; wanted rknn_run first");
  }
  return RKNN_SUCC;
}

int CheckInputsSet(Invocation& call, Context& context, uint32_t count, const rknn_input* inputs) {
  const auto& attributes = context.model->inputs();
  int ret = CheckRecords(call, context, "inputs", count, inputs, attributes.size());
  for (uint32_t i = 0; ret == RKNN_SUCC && i < count; ++i) {
    // CheckRecords has refused a null array. NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
    ret = CheckInput(call, attributes[inputs[i].index], i, inputs[i]);
  }
  if (ret != RKNN_SUCC) return ret;
  return Enforces(Check::kCallOrder) ? CheckReleased(call, context) : RKNN_SUCC;
}

int CheckRun(Invocation& call, const Context& context) {
  if (Enforces(Check::kCallOrder)) {
    if (!context.has_inputs) {
      return call.Misuse(RKNN_ERR_INPUT_INVALID,
                         "no inputs have been set; wanted rknn_inputs_set first");
    }
    if (const int ret = CheckReleased(call, context)) return ret;
  }
  // A few places only: reading all bytes would cost more than a small run.
  if (!Enforces(Check::kModelBytes)) return RKNN_SUCC;
  return CheckModelBytes(call, context.bytes.CheckSamples());
}

int CheckOutputsGet(Invocation& call, Context& context, uint32_t count,
                    const rknn_output* outputs) {
  int ret = CheckRecords(call, context, "outputs", count, outputs, context.model->outputs().size());
  for (uint32_t i = 0; ret == RKNN_SUCC && i < count; ++i) {
    ret = CheckOutput(call, context, i, outputs[i]);
  }
  if (ret != RKNN_SUCC || !Enforces(Check::kCallOrder)) return ret;
  ret = CheckReleased(call, context);
  if (ret == RKNN_SUCC && !context.has_run) {
    return call.Misuse(RKNN_ERR_OUTPUT_INVALID,
                       "there is no run since the last outputs; wanted rknn_run first");
  }
  return ret;
}

int CheckOutputsRelease(Invocation& call, Context& context, uint32_t count,
                        const rknn_output* outputs) {
  const int ret =
      CheckRecords(call, context, "outputs", count, outputs, context.model->outputs().size());
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
  return RKNN_SUCC;
}

}  // namespace rknn_sim
