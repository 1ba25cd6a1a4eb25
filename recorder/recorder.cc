// A library that is loaded before a program's others (LD_PRELOAD) and stands between the program
// and the runtime: it writes every call to a file and changes none. `corvane record` sets it up.
//
//   CORVANE_RECORD            the file; it must not be there yet
//   CORVANE_RECORD_EVERY      keep the bytes of every Nth frame only
//   CORVANE_RECORD_FRAMES     leave out the frames after that many
//   CORVANE_RECORD_MAX_BYTES  stop before the file grows larger
//
// The process that first calls the runtime is recorded, but not its children. Where the file cannot
// be written the program runs on without a recording, and a line says so. It needs the C library
// alone, so that it loads into any program.
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "recorder/recording_writer.h"
#include "rknn_api.h"

namespace {

using namespace corvane_recording;  // NOLINT: this file is all about it

// What is kept of a frame is decided when its input comes; the thread's further calls follow it.
thread_local Kept kept = Kept::kBytes;

// One call: its time, and what is recorded of it. The program's errno stays what the runtime made
// it.
class Call {
 public:
  explicit Call(Function function, rknn_context context)
      : errno_(errno), recorder_(Recorder::Get()) {
    header_.function = function;
    header_.context = context;
    header_.at_ns = Now();
    errno = errno_;
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  bool is_recorded() const {
    return recorder_ != nullptr && (kept != Kept::kNothing || header_.function <= kDestroy);
  }
  void BeginFrame() {
    if (recorder_ != nullptr) kept = recorder_->BeginFrame();
  }
  RecordHeader& header() { return header_; }

  void Returned(int ret) {
    errno_ = errno;
    header_.took_ns = Now() - header_.at_ns;
    header_.ret = ret;
  }

  // data: null where it cannot be read. Beyond kMaxItems they are left out.
  void Add(ItemHeader item, const void* data, bool keeps) {
    if (header_.items == kMaxItems) return;
    constexpr uint32_t kLargest = uint32_t{1} << 30;
    if (data != nullptr) {
      item.hash = Hash(data, item.size);
      item.stored = keeps && item.size <= kLargest - stored_ ? item.size : 0;
      stored_ += item.stored;
    }
    items_[header_.items++] = {item, data};
  }

  int End() {
    if (is_recorded() && recorder_->is_on()) recorder_->Write(&header_, items_);
    errno = errno_;
    return header_.ret;
  }

 private:
  int errno_;
  Recorder* const recorder_;
  RecordHeader header_ = {};
  uint32_t stored_ = 0;  // bytes of all items
  Item items_[kMaxItems];
};

// The runtime's function, which this library's own of the same name hides. slot: remembers it.
template <typename Type>
Type* Next(void** slot, const char* name, Type* /*same type*/) {
  void* found = __atomic_load_n(slot, __ATOMIC_RELAXED);
  if (found == nullptr) {
    const int error = errno;
    found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {  // loaded with a plug-in, out of sight of the program's own libraries
      void* const runtime = dlopen("librknn_api.so", RTLD_LAZY | RTLD_NOLOAD);
      if (runtime != nullptr) found = dlsym(runtime, name);
    }
    errno = error;
    if (found == nullptr) {
      dprintf(STDERR_FILENO, "corvane recorder: the program has no runtime with %s\n", name);
      abort();
    }
    __atomic_store_n(slot, found, __ATOMIC_RELAXED);
  }
  return reinterpret_cast<Type*>(found);
}

}  // namespace

#define CORVANE_RECORDED extern "C" __attribute__((visibility("default")))

CORVANE_RECORDED int rknn_init(rknn_context* context, void* model, uint32_t size, uint32_t flag) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_init", &rknn_init);
  Call call(kInit, 0);
  call.Returned(next(context, model, size, flag));
  if (call.is_recorded()) {
    call.header().flags = flag;
    if (call.header().ret == RKNN_SUCC) call.header().context = *context;
    ItemHeader item = {};
    item.size = size;
    // What was refused as an argument may not be readable.
    const bool is_read = call.header().ret != RKNN_ERR_PARAM_INVALID && model != nullptr;
    call.Add(item, is_read && size > 0 ? model : nullptr, false);
  }
  return call.End();
}

CORVANE_RECORDED int rknn_destroy(rknn_context context) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_destroy", &rknn_destroy);
  Call call(kDestroy, context);
  call.Returned(next(context));
  return call.End();
}

CORVANE_RECORDED int rknn_query(rknn_context context, rknn_query_cmd cmd, void* info,
                                uint32_t size) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_query", &rknn_query);
  Call call(kQuery, context);
  uint32_t asked = 0;
  const bool is_attribute = cmd == RKNN_QUERY_INPUT_ATTR || cmd == RKNN_QUERY_OUTPUT_ATTR;
  if (is_attribute && info != nullptr && size >= sizeof(asked)) memcpy(&asked, info, sizeof(asked));
  call.Returned(next(context, cmd, info, size));
  if (call.is_recorded()) {
    call.header().flags = static_cast<uint32_t>(cmd);
    ItemHeader item = {};
    item.index = asked;
    item.size = size;
    call.Add(item, call.header().ret == RKNN_SUCC ? info : nullptr, true);
  }
  return call.End();
}

CORVANE_RECORDED int rknn_inputs_set(rknn_context context, uint32_t n_inputs, rknn_input inputs[]) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_inputs_set", &rknn_inputs_set);
  Call call(kInputsSet, context);
  call.BeginFrame();
  call.Returned(next(context, n_inputs, inputs));
  for (uint32_t i = 0; call.is_recorded() && inputs != nullptr && i < n_inputs; ++i) {
    ItemHeader item = {};
    item.index = inputs[i].index;
    item.size = inputs[i].size;
    item.pass_through = inputs[i].pass_through;
    item.type = static_cast<uint32_t>(inputs[i].type);
    item.format = static_cast<uint32_t>(inputs[i].fmt);
    call.Add(item, call.header().ret >= 0 ? inputs[i].buf : nullptr, kept == Kept::kBytes);
  }
  return call.End();
}

CORVANE_RECORDED int rknn_run(rknn_context context, rknn_run_extend* extend) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_run", &rknn_run);
  Call call(kRun, context);
  call.Returned(next(context, extend));
  return call.End();
}

namespace {

void AddOutputs(uint32_t n_outputs, const rknn_output* outputs, bool has_bytes, Call* call) {
  for (uint32_t i = 0; call->is_recorded() && outputs != nullptr && i < n_outputs; ++i) {
    ItemHeader item = {};
    item.index = outputs[i].index;
    item.size = outputs[i].size;
    item.want_float = outputs[i].want_float;
    item.is_prealloc = outputs[i].is_prealloc;
    call->Add(item, has_bytes && outputs[i].size > 0 ? outputs[i].buf : nullptr,
              kept == Kept::kBytes);
  }
}

}  // namespace

CORVANE_RECORDED int rknn_outputs_get(rknn_context context, uint32_t n_outputs,
                                      rknn_output outputs[], rknn_output_extend* extend) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_outputs_get", &rknn_outputs_get);
  Call call(kOutputsGet, context);
  call.Returned(next(context, n_outputs, outputs, extend));
  AddOutputs(n_outputs, outputs, call.header().ret >= 0, &call);
  return call.End();
}

CORVANE_RECORDED int rknn_outputs_release(rknn_context context, uint32_t n_outputs,
                                          rknn_output outputs[]) {
  static void* slot;
  auto* const next = Next(&slot, "rknn_outputs_release", &rknn_outputs_release);
  Call call(kOutputsRelease, context);
  call.Returned(next(context, n_outputs, outputs));
  AddOutputs(n_outputs, outputs, false, &call);
  return call.End();
}
