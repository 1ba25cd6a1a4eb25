// ONNX Runtime's C interface, in our own words, as far as an engine needs it. The library is
// looked for at run time; nothing of it is needed to build.
#ifndef CORVANE_SIMULATOR_ENGINES_ONNXRUNTIME_LIBRARY_H_
#define CORVANE_SIMULATOR_ENGINES_ONNXRUNTIME_LIBRARY_H_

#include <cstddef>
#include <cstdint>
#include <memory>

#include "malloc_allocator.h"

namespace rknn_sim {
namespace onnxruntime {

// Objects of the library, each released by a function of its own.
struct Status;
struct Env;
struct SessionOptions;
struct Session;
struct MemoryInfo;
struct Value;
struct TensorInfo;

constexpr int kOnlyFatal = 4;          // log level
constexpr int kAllOptimizations = 99;  // graph optimization level
constexpr int kSequential = 0;         // execution mode
constexpr int kArenaAllocator = 1, kDefaultMemory = 0;

// The library's functions stand in one table, which only ever grows at its end: this is a
// function's place in it. Functions that return a Status return null for success.
template <typename Signature>
struct Function {
  std::size_t index;
};

constexpr Function<const char*(const Status*)> kGetErrorMessage = {2};  // the status owns the text
constexpr Function<Status*(int log_level, const char* id, Env**)> kCreateEnv = {3};
constexpr Function<Status*(const Env*, const void* model, std::size_t size, const SessionOptions*,
                           Session**)>
    kCreateSessionFromArray = {8};
constexpr Function<Status*(Session*, const void* run_options, const char* const* input_names,
                           const Value* const* inputs, std::size_t, const char* const* output_names,
                           std::size_t, Value** outputs)>
    kRun = {9};
constexpr Function<Status*(SessionOptions**)> kCreateSessionOptions = {10};
constexpr Function<Status*(SessionOptions*, int)> kSetExecutionMode = {13};
constexpr Function<Status*(SessionOptions*, int)> kSetLogLevel = {22};
constexpr Function<Status*(SessionOptions*, int)> kSetOptimizationLevel = {23};
constexpr Function<Status*(SessionOptions*, int)> kSetIntraOpThreads = {24};
constexpr Function<Status*(SessionOptions*, int)> kSetInterOpThreads = {25};
// The data stays the caller's and outlives the value.
constexpr Function<Status*(const MemoryInfo*, void* data, std::size_t size, const int64_t* dims,
                           std::size_t rank, int element_type, Value**)>
    kCreateTensorWithData = {49};
constexpr Function<Status*(const Value*, int*)> kIsTensor = {50};
constexpr Function<Status*(Value*, void**)> kGetTensorData = {51};  // lives as long as the value
constexpr Function<Status*(const TensorInfo*, int*)> kGetElementType = {60};
constexpr Function<Status*(const TensorInfo*, std::size_t*)> kGetRank = {61};
constexpr Function<Status*(const TensorInfo*, int64_t*, std::size_t)> kGetDims = {62};
constexpr Function<Status*(const Value*, TensorInfo**)> kGetTensorInfo = {65};
constexpr Function<Status*(int allocator, int memory, MemoryInfo**)> kCreateCpuMemoryInfo = {69};
constexpr Function<void(Env*)> kReleaseEnv = {92};
constexpr Function<void(Status*)> kReleaseStatus = {93};
constexpr Function<void(MemoryInfo*)> kReleaseMemoryInfo = {94};
constexpr Function<void(Session*)> kReleaseSession = {95};
constexpr Function<void(Value*)> kReleaseValue = {96};
constexpr Function<void(TensorInfo*)> kReleaseTensorInfo = {99};
constexpr Function<void(SessionOptions*)> kReleaseSessionOptions = {100};

// The library, once it is loaded; it is never unloaded. Only where Load has returned true.
class Library {
 public:
  // Loads what CORVANE_SIM_ONNXRUNTIME names, a library or the folder that holds it; else looks for
  // the library's usual names where the dynamic loader looks. False with what was not found.
  static bool Load(String* why);

  static const char* Version();

  template <typename Result, typename... Parameters, typename... Arguments>
  static Result Call(Function<Result(Parameters...)> function, Arguments... arguments) {
    return reinterpret_cast<Result (*)(Parameters...)>(table_[function.index])(arguments...);
  }

 private:
  static void (*const* table_)();
};

// The owner of an object of the library.
template <typename Object, const Function<void(Object*)>& kRelease>
struct Releaser {
  void operator()(Object* object) const { Library::Call(kRelease, object); }
};
template <typename Object, const Function<void(Object*)>& kRelease>
using Owner = std::unique_ptr<Object, Releaser<Object, kRelease>>;

using EnvPointer = Owner<Env, kReleaseEnv>;
using SessionOptionsPointer = Owner<SessionOptions, kReleaseSessionOptions>;
using SessionPointer = Owner<Session, kReleaseSession>;
using MemoryInfoPointer = Owner<MemoryInfo, kReleaseMemoryInfo>;
using ValuePointer = Owner<Value, kReleaseValue>;
using TensorInfoPointer = Owner<TensorInfo, kReleaseTensorInfo>;

}  // namespace onnxruntime
}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_ONNXRUNTIME_LIBRARY_H_
