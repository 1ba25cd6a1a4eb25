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
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "recorder/recording_format.h"
#include "rknn_api.h"

namespace {

using namespace corvane_recording;  // NOLINT: this file is all about it

constexpr uint32_t kMaxItems = 256;

uint64_t Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

// 0 where the variable is not set or no number.
uint64_t Setting(const char* name) {
  const char* const text = getenv(name);
  return text == nullptr ? 0 : strtoull(text, nullptr, 10);
}

struct Item {
  ItemHeader header;
  const void* data;
};

enum class Kept { kBytes, kHashes, kNothing };

class Recorder {
 public:
  // Null where nothing is recorded.
  static Recorder* Get() {
    if (!__atomic_load_n(&the_recorder.is_opened_, __ATOMIC_ACQUIRE)) {
      pthread_mutex_lock(&the_recorder.mutex_);
      if (!the_recorder.is_opened_) the_recorder.Open();
      __atomic_store_n(&the_recorder.is_opened_, true, __ATOMIC_RELEASE);
      pthread_mutex_unlock(&the_recorder.mutex_);
    }
    return the_recorder.is_on() ? &the_recorder : nullptr;
  }

  bool is_on() const { return __atomic_load_n(&file_, __ATOMIC_RELAXED) >= 0; }

  // What is kept of the frame that an rknn_inputs_set begins.
  Kept BeginFrame() {
    const uint64_t frame = __atomic_fetch_add(&frames_, 1, __ATOMIC_RELAXED);
    if (max_frames_ > 0 && frame >= max_frames_) return Kept::kNothing;
    return every_ <= 1 || frame % every_ == 0 ? Kept::kBytes : Kept::kHashes;
  }

  void Write(RecordHeader* header, Item* items) {
    const uint32_t count = header->items;
    iovec parts[3 * kMaxItems + 1];
    ItemHeader headers[kMaxItems];
    static const uint64_t zeros = 0;
    int used = 1;
    for (uint32_t i = 0; i < count; ++i) {
      headers[i] = items[i].header;
      const uint32_t padding = Padding(headers[i].stored);
      parts[used++] = {&headers[i], sizeof(headers[i])};
      header->bytes += static_cast<uint32_t>(sizeof(headers[i])) + headers[i].stored + padding;
      if (headers[i].stored > 0)
        parts[used++] = {const_cast<void*>(items[i].data), headers[i].stored};
      if (padding > 0) parts[used++] = {const_cast<uint64_t*>(&zeros), padding};
    }
    header->at_ns -= began_;
    header->thread = static_cast<uint32_t>(syscall(SYS_gettid));
    header->checksum = Checksum(*header, headers);
    parts[0] = {header, sizeof(*header)};
    const uint64_t bytes = sizeof(*header) + header->bytes;
    pthread_mutex_lock(&mutex_);
    if (!is_on()) {  // stopped meanwhile
    } else if (max_bytes_ > 0 && written_ + bytes > max_bytes_) {
      Stop("the next call does not fit below the largest size asked for");
    } else {
      // Not writev, where a thread may be cancelled, which then would leave the mutex locked.
      const long done = syscall(SYS_writev, file_, parts, used);
      if (done != static_cast<long>(bytes)) Stop(done < 0 ? strerror(errno) : "no more room");
      written_ += bytes;
    }
    pthread_mutex_unlock(&mutex_);
  }

 private:
  static Recorder the_recorder;

  void Open() {
    const char* const path = getenv("CORVANE_RECORD");
    if (path == nullptr || *path == '\0') return;
    every_ = Setting("CORVANE_RECORD_EVERY");
    max_frames_ = Setting("CORVANE_RECORD_FRAMES");
    max_bytes_ = Setting("CORVANE_RECORD_MAX_BYTES");
    pthread_atfork([] { pthread_mutex_lock(&the_recorder.mutex_); },
                   [] { pthread_mutex_unlock(&the_recorder.mutex_); },
                   [] {
                     the_recorder.file_ = -1;
                     pthread_mutex_unlock(&the_recorder.mutex_);
                   });
    const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    FileHeader header = {};
    memcpy(header.magic, kMagic, sizeof(kMagic));
    header.began_us = int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
    header.every = static_cast<uint32_t>(every_);
#ifdef __aarch64__
    header.is_arm64 = 1;
#endif
    if (file < 0 || write(file, &header, sizeof(header)) != static_cast<ssize_t>(sizeof(header))) {
      dprintf(STDERR_FILENO, "corvane recorder: %s: %s; nothing is recorded\n", path,
              errno == EEXIST ? "is there already, perhaps of the process that started this one"
                              : strerror(errno));
      return;
    }
    written_ = sizeof(header);
    began_ = Now();
    __atomic_store_n(&file_, file, __ATOMIC_RELAXED);
  }

  // The file stays open: another thread may be about to write.
  void Stop(const char* why) {
    if (*why != '\0') dprintf(STDERR_FILENO, "corvane recorder: stopped: %s\n", why);
    __atomic_store_n(&file_, -1, __ATOMIC_RELAXED);
  }

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  bool is_opened_ = false;
  int file_ = -1;
  uint64_t every_ = 0, max_frames_ = 0, max_bytes_ = 0;
  uint64_t frames_ = 0, written_ = 0, began_ = 0;
};

Recorder Recorder::the_recorder;

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
