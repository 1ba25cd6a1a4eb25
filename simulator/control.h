// Drives the simulated RKNN runtime from a test: what model the next context gets, what goes wrong
// and when, and what was called with what. C++17; link librknn_api.so (target rknn_api).
//
//   rknn_sim::Session session;                        // a clean simulator, recording
//   rknn_sim::Model model;
//   model.inputs = {rknn_sim::MakeTensor({224, 224, 3, 1}, RKNN_TENSOR_FLOAT16)};
//   model.outputs = {rknn_sim::MakeTensor({10, 1, 1, 1})};
//   model.outputs[0].values = {0.5f};
//   rknn_sim::SetModel(model);
//   rknn_sim::ReturnAt(rknn_sim::Function::kQuery, 2, RKNN_ERR_FAIL);
//   ... the code under test ...
//   EXPECT_EQ(rknn_sim::Calls().back().function, rknn_sim::Function::kDestroy);
//   EXPECT_EQ(rknn_sim::MisuseCount(), 0u);
//
// Without a script a model's bytes decide: docs/simulator.md has the text that makes a model.
//
// A misuse of the runtime is refused with the vendor's code and one line on standard error,
//   rknn simulator: FUNCTION: what it got; wanted ... [ret=CODE]
// Failures that a test has scripted write nothing.
//
// Everything here may be called from any thread at any time. Memory comes from malloc, so that a
// test that counts or fails operator new sees the code under test alone; only the std::function
// objects that a test makes itself may use operator new.
#ifndef CORVANE_SIMULATOR_CONTROL_H_
#define CORVANE_SIMULATOR_CONTROL_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <thread>

#include "malloc_allocator.h"
#include "rknn_api.h"

#define RKNN_SIM_EXPORT __attribute__((visibility("default")))

namespace rknn_sim {

enum class Function { kInit, kDestroy, kQuery, kInputsSet, kRun, kOutputsGet, kOutputsRelease };
constexpr std::size_t kFunctionCount = 7;
RKNN_SIM_EXPORT const char* NameOf(Function function);  // "rknn_init", ...

// Forgets script, recording, misuses and call counts. Live contexts stay what they are.
RKNN_SIM_EXPORT void Reset();

// ------------------------------------------------------------------------------- scripting a model

constexpr int32_t kNoEcho = -1;

struct Tensor {
  // What a query answers, whatever it says; `index` is filled in from the position.
  rknn_tensor_attr attr = {};
  // Outputs: element i is values[i % values.size()], or, with echo_input, element i % n_elems of
  // that input as a number (fixed point and half precision decoded, in the model's own layout).
  // With neither, output k's element i is 1000 * (k + 1) + i % 1000.
  Vector<float> values;
  int32_t echo_input = kNoEcho;
};

// A tensor with consistent attributes: dims innermost first (W, H, C, N), n_elems and size from
// them and the type, NCHW; INT16 is dynamic fixed point with fl fractional bits, other types are
// plain unless attr is changed.
RKNN_SIM_EXPORT Tensor MakeTensor(std::initializer_list<uint32_t> dims,
                                  rknn_tensor_type type = RKNN_TENSOR_FLOAT32, int8_t fl = 0);

struct Model {
  Vector<Tensor> inputs;
  Vector<Tensor> outputs;
};

// Every later rknn_init makes a context of this model, whatever the bytes it is handed.
RKNN_SIM_EXPORT void SetModel(Model model);

// The handle of the next context. 0 is a handle like any other.
RKNN_SIM_EXPORT void SetNextHandle(rknn_context handle);

// ---------------------------------------------------------------------------------- scripting
// calls

// nth counts the calls of one function from 1 since Reset, over all contexts and threads. What is
// scripted later for the same call wins, point by point.
constexpr uint64_t kEveryCall = 0;

// The call returns code, unless it is a misuse. Where a non-zero code means failure (init, query),
// and for negative codes of inputs_set, run and outputs_get, nothing is done. A positive code of
// the latter three is a success: the work is done. destroy and outputs_release always do theirs.
RKNN_SIM_EXPORT void ReturnAt(Function function, uint64_t nth, int code);

RKNN_SIM_EXPORT void DelayAt(Function function, uint64_t nth, std::chrono::microseconds delay);

// Both as text, as in the environment variable CORVANE_SIM_FAULTS:
// "rknn_run:3=-1+20ms,rknn_query:*=-5". False, with the entry that is wrong and nothing ordered,
// where it is not understood.
RKNN_SIM_EXPORT bool OrderFaults(const char* text, String* why);

// outputs_get succeeds but writes no output.
RKNN_SIM_EXPORT void LeaveOutputsUnwrittenAt(uint64_t nth);

// Called on the calling thread, after the arguments have been checked and before any work, with
// what the call was handed. May call anything here or in the runtime. An exception makes the call
// return RKNN_ERR_FAIL (RKNN_ERR_MALLOC_FAIL for std::bad_alloc).
struct Call;
using Hook = std::function<void(const Call&)>;
RKNN_SIM_EXPORT void HookAt(Function function, uint64_t nth, Hook hook);

// What a test may have the simulator accept. Whatever is relaxed, no call reads or writes past the
// sizes that it was given.
enum class Check {
  kCallOrder,   // set, run, get, release
  kInputSize,   // input bytes against n_elems and the type
  kInputType,   // the native type where pass_through is 1
  kOutputSize,  // preallocated bytes against n_elems and the type
  kModelBytes,  // unchanged and readable at every run and at destroy
  kUnreleased   // outputs released at destroy
};
constexpr std::size_t kCheckCount = 6;
RKNN_SIM_EXPORT void Relax(Check check);

// -----------------------------------------------------------------------------------------
// recording

struct InputRecord {
  rknn_input record = {};
  Vector<uint8_t> bytes;  // a copy of the buffer; empty when the call was a misuse
};

struct Call {
  Function function = Function::kInit;
  uint64_t nth = 0;  // of this function, from 1
  std::thread::id thread;
  bool has_returned = false;
  bool is_misuse = false;
  String misuse;  // then: what the line says, without the function and the code
  int ret = 0;
  rknn_context context = 0;  // init: the new handle, where it succeeded

  const void* model_address = nullptr;  // init
  uint32_t size = 0;                    // init: of the model; query: of the info record
  uint32_t flags = 0;                   // init
  Vector<uint8_t> model;                // init: a copy

  rknn_query_cmd query = RKNN_QUERY_IN_OUT_NUM;
  uint32_t index = 0;  // query of an attribute: the index asked about

  uint32_t count = 0;           // n_inputs or n_outputs
  Vector<InputRecord> inputs;   // inputs_set
  Vector<rknn_output> outputs;  // outputs_get and outputs_release, as the caller handed them in
  bool is_extend_null = true;   // run, outputs_get

  bool was_model_intact = false;  // destroy: the model's bytes could be read and were unchanged
};

// Off at start. Recording copies every buffer; without it no call allocates or copies for it, and a
// benchmark that also relaxes kModelBytes (a few system calls at each run) sees little else than
// its own work.
RKNN_SIM_EXPORT void SetRecording(bool is_on);
// All calls so far, in the order in which they began.
RKNN_SIM_EXPORT Vector<Call> Calls();
RKNN_SIM_EXPORT Vector<Call> Calls(Function function);
// "init query query destroy": the order alone, without "rknn_".
RKNN_SIM_EXPORT String CallOrder();
RKNN_SIM_EXPORT uint64_t CallCount(Function function);  // also without recording

// Misuses since Reset; the lines without their line break, the first thousand of them.
RKNN_SIM_EXPORT uint64_t MisuseCount();
RKNN_SIM_EXPORT Vector<String> Misuses();

RKNN_SIM_EXPORT std::size_t LiveContexts();

// A clean, recording simulator for the length of a test.
class Session {
 public:
  Session() {
    Reset();
    SetRecording(true);
  }
  ~Session() { Reset(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_H_
