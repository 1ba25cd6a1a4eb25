// The simulated runtime: its strictness, its scripting and its recording, which the backend's tests
// rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "control.h"
#include "tests/support/allocation_faults.h"
#include "tests/support/guarded_buffer.h"

namespace {

using rknn_sim::Check;
using rknn_sim::Function;
using testing::ElementsAre;
using testing::HasSubstr;

std::string model_bytes = "a model that a test has scripted";

// One RGB pixel in, its three numbers and one constant pair out.
rknn_sim::Model PixelModel(rknn_tensor_type input_type, int8_t fl = 0) {
  rknn_sim::Model model;
  model.inputs = {rknn_sim::MakeTensor({1, 1, 3, 1}, input_type, fl)};
  model.outputs = {rknn_sim::MakeTensor({3}), rknn_sim::MakeTensor({2})};
  model.outputs[0].echo_input = 0;
  model.outputs[1].values = {0.25f};
  return model;
}

rknn_input InputOf(void* buffer, uint32_t size, rknn_tensor_type type, bool pass_through = false,
                   rknn_tensor_format format = RKNN_TENSOR_NCHW) {
  rknn_input input = {};
  input.buf = buffer;
  input.size = size;
  input.type = type;
  input.pass_through = pass_through;
  input.fmt = format;
  return input;
}

rknn_output OutputOf(uint32_t index, void* buffer, uint32_t size) {
  rknn_output output = {};
  output.want_float = 1;
  output.is_prealloc = 1;
  output.index = index;
  output.buf = buffer;
  output.size = size;
  return output;
}

// A context of PixelModel(FLOAT32) and the arguments of every call on it.
struct Rig {
  rknn_context context = 77;
  rknn_context* handle = &context;
  char* model = &model_bytes[0];
  uint32_t flags = 0;
  rknn_query_cmd command = RKNN_QUERY_IN_OUT_NUM;
  rknn_tensor_attr attr = {};
  void* info = &attr;
  uint32_t info_size = sizeof(rknn_input_output_num);
  float pixel[3] = {1.5f, -2.0f, 3.0f};
  float echo[3] = {9, 9, 9}, pair[2] = {9, 9};
  rknn_input input = InputOf(pixel, sizeof(pixel), RKNN_TENSOR_FLOAT32);
  rknn_input* inputs = &input;
  rknn_output outputs[2] = {OutputOf(0, echo, sizeof(echo)), OutputOf(1, pair, sizeof(pair))};
  uint32_t input_count = 1, output_count = 2;

  explicit Rig(rknn_sim::Model scripted = PixelModel(RKNN_TENSOR_FLOAT32)) {
    rknn_sim::SetModel(scripted);
    EXPECT_EQ(rknn_init(&context, model, model_bytes.size(), 0), 0);
  }
  int Init() { return rknn_init(handle, model, 8, flags); }
  int Set() { return rknn_inputs_set(context, input_count, inputs); }
  int Run() { return rknn_run(context, nullptr); }
  int Get() { return rknn_outputs_get(context, output_count, outputs, nullptr); }
  int Release() { return rknn_outputs_release(context, output_count, outputs); }
  int Destroy() { return rknn_destroy(context); }
  int Query() { return rknn_query(context, command, info, info_size); }
  int QueryInto(rknn_query_cmd asked, void* record, uint32_t size) {
    return rknn_query(context, asked, record, size);
  }
  void Ask(rknn_query_cmd asked, uint32_t size, uint32_t index = 0) {
    command = asked;
    info_size = size;
    attr.index = index;
  }
  int GetReady() { return Set() | Run(); }
  int Call(Function function) {
    static constexpr int (Rig::*kCalls[])() = {&Rig::Init, &Rig::Destroy, &Rig::Query,  &Rig::Set,
                                               &Rig::Run,  &Rig::Get,     &Rig::Release};
    return (this->*kCalls[static_cast<size_t>(function)])();
  }
};

const std::map<std::string, Function> kShortNames = {{"set", Function::kInputsSet},
                                                     {"run", Function::kRun},
                                                     {"get", Function::kOutputsGet},
                                                     {"release", Function::kOutputsRelease}};

struct Misuse {
  const char* before;  // the calls that succeed first
  Function function;
  void (*spoil)(Rig&);
  const char* line;  // after "rknn simulator: FUNCTION: "
};

const Misuse kMisuses[] = {
    {"", Function::kInit, [](Rig& rig) { rig.handle = nullptr; },
     "context is null; wanted a place for the handle [ret=-5]"},
    {"", Function::kInit, [](Rig& rig) { rig.flags = 3; },
     "flag is 0x3; wanted a priority of 0 to 2, and 4 and 8 at most [ret=-5]"},
    {"", Function::kInit, [](Rig& rig) { rig.model = nullptr; },
     "model is (nil); wanted an address from which 8 bytes can be read [ret=-5]"},
    // The next generation's record.
    {"", Function::kQuery, [](Rig& rig) { rig.Ask(RKNN_QUERY_INPUT_ATTR, 376); },
     "size is 376 for RKNN_QUERY_INPUT_ATTR; wanted 360, the size of rknn_tensor_attr [ret=-5]"},
    {"", Function::kQuery, [](Rig& rig) { rig.info = nullptr; },
     "info is null; wanted the address of a rknn_input_output_num [ret=-5]"},
    {"", Function::kQuery, [](Rig& rig) { rig.Ask(RKNN_QUERY_OUTPUT_ATTR, 360, 2); },
     "index is 2 for RKNN_QUERY_OUTPUT_ATTR; wanted one below 2, the model's count [ret=-5]"},
    {"", Function::kQuery, [](Rig& rig) { rig.Ask(RKNN_QUERY_PERF_RUN, 8); },
     "cmd is RKNN_QUERY_PERF_RUN before any run; wanted rknn_run first [ret=-1]"},
    {"", Function::kQuery, [](Rig& rig) { rig.Ask(RKNN_QUERY_PERF_DETAIL, 8); },
     "cmd is RKNN_QUERY_PERF_DETAIL, which is not simulated; wanted another [ret=-5]"},
    {"", Function::kInputsSet, [](Rig& rig) { rig.input_count = 2; },
     "n_inputs is 2; wanted 1, the model's count [ret=-5]"},
    {"", Function::kInputsSet, [](Rig& rig) { rig.inputs = nullptr; },
     "inputs is null; wanted 1 records [ret=-5]"},
    {"", Function::kInputsSet, [](Rig& rig) { rig.input.index = 1; },
     "inputs[0].index is 1; wanted one below 1 [ret=-5]"},
    {"", Function::kInputsSet, [](Rig& rig) { rig.input.size = 3; },
     "inputs[0].size is 3; wanted 12 bytes, 3 elements of FLOAT32 [ret=-8]"},
    {"", Function::kInputsSet, [](Rig& rig) { rig.input.buf = nullptr; },
     "inputs[0].buf is null; wanted 12 bytes [ret=-8]"},
    {"", Function::kInputsSet,
     [](Rig& rig) { rig.input = InputOf(rig.pixel, 3, RKNN_TENSOR_UINT8, true); },
     "inputs[0] passes UINT8 through; wanted FLOAT32, the model's own type [ret=-8]"},
    {"", Function::kInputsSet, [](Rig& rig) { rig.input.pass_through = 2; },
     "inputs[0] has type 0, fmt 0, pass_through 2; wanted 0 to 4, 0 or 1, 0 or 1 [ret=-5]"},
    {"set run get", Function::kInputsSet, [](Rig&) {},
     "outputs of the last rknn_outputs_get are not released; wanted rknn_outputs_release first "
     "[ret=-9]"},
    {"", Function::kRun, [](Rig&) {},
     "no inputs have been set; wanted rknn_inputs_set first [ret=-8]"},
    {"", Function::kRun, [](Rig& rig) { rig.context = 0x12345; },
     "context 0x12345 was never created; wanted a live one [ret=-7]"},
    {"set run get release", Function::kOutputsGet, [](Rig&) {},
     "there is no run since the last outputs; wanted rknn_run first [ret=-9]"},
    {"set run", Function::kOutputsGet, [](Rig& rig) { rig.output_count = 1; },
     "n_outputs is 1; wanted 2, the model's count [ret=-5]"},
    {"set run", Function::kOutputsGet, [](Rig& rig) { rig.outputs[1].index = 0; },
     "outputs[1].index is 0, as in a record before; wanted each index once [ret=-5]"},
    {"set run", Function::kOutputsGet, [](Rig& rig) { rig.outputs[1].size = 2; },
     "outputs[1].size is 2; wanted 8 bytes, 2 elements of FLOAT32 [ret=-9]"},
    {"set run", Function::kOutputsGet, [](Rig& rig) { rig.outputs[0].buf = nullptr; },
     "outputs[0].buf is null with is_prealloc 1; wanted 12 bytes [ret=-9]"},
    {"set run", Function::kOutputsGet, [](Rig& rig) { rig.outputs[0].want_float = 2; },
     "outputs[0] has want_float 2, is_prealloc 1; wanted 0 or 1 [ret=-5]"},
    {"set run", Function::kOutputsRelease, [](Rig&) {},
     "no outputs are held; wanted rknn_outputs_get first [ret=-9]"},
};

TEST(Simulator, RefusesEachMisuseInOneLine) {
  for (const Misuse& misuse : kMisuses) {
    SCOPED_TRACE(misuse.line);
    rknn_sim::Session session;
    Rig rig;
    const rknn_context context = rig.context;
    testing::internal::CaptureStderr();
    std::istringstream before(misuse.before);
    for (std::string name; before >> name;) {
      EXPECT_EQ(rig.Call(kShortNames.at(name)), 0);
    }
    misuse.spoil(rig);
    const int ret = rig.Call(misuse.function);
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        std::string("rknn simulator: ") + NameOf(misuse.function) + ": " + misuse.line + "\n");
    EXPECT_THAT(misuse.line, testing::EndsWith("[ret=" + std::to_string(ret) + "]"));
    EXPECT_EQ(rknn_sim::MisuseCount(), 1u);
    EXPECT_TRUE(rknn_sim::Calls().back().is_misuse);
    EXPECT_EQ(rknn_sim::Calls().back().ret, ret);
    testing::internal::CaptureStderr();
    rknn_sim::Relax(Check::kUnreleased);
    EXPECT_EQ(rknn_destroy(context), 0) << "a refused call leaves the context in place";
    EXPECT_EQ(rknn_run(context, nullptr), RKNN_ERR_CTX_INVALID);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("was destroyed; wanted"));
  }
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
}

TEST(Simulator, WatchesTheModelBytes) {
  const std::size_t size = 5 * 65536;
  const auto map = [&] {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(memory, MAP_FAILED);
    return static_cast<uint8_t*>(memory);
  };
  struct {
    const char* what;
    std::function<void(uint8_t*)> spoil;
    int run, destroy;
  } cases[] = {
      {"", [](uint8_t*) {}, 0, 0},
      {"have changed", [&](uint8_t* model) { model[size - 1] = 1; }, -6, -6},
      {"have changed", [&](uint8_t* model) { model[1000] = 1; }, 0, -6},  // between the samples
      {"have been freed", [&](uint8_t* model) { mprotect(model, size, PROT_NONE); }, -6, -6},
      {"have been freed", [&](uint8_t* model) { mprotect(model + 2 * 65536, 65536, PROT_NONE); }, 0,
       -6},
  };
  for (auto& row : cases) {
    SCOPED_TRACE(row.what);
    rknn_sim::Session session;
    rknn_sim::SetModel(PixelModel(RKNN_TENSOR_FLOAT32));
    uint8_t* model = map();
    Rig rig;
    const rknn_context unused = rig.context;
    ASSERT_EQ(rknn_init(&rig.context, model, size, 0), 0);
    EXPECT_EQ(rig.Set(), 0);
    row.spoil(model);
    testing::internal::CaptureStderr();
    EXPECT_EQ(rig.Run(), row.run);
    EXPECT_EQ(rig.Destroy(), row.destroy);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(row.what));
    EXPECT_EQ(rknn_sim::Calls().back().was_model_intact, row.destroy == 0);
    EXPECT_EQ(rknn_destroy(unused), 0);
    munmap(model, size);
  }
}

TEST(Simulator, AsksOnlyForTheBytesOfTheModel) {
  rknn_sim::Session session;
  const Rig rig;
  const corvane_test::GuardedBuffer page(4096);
  for (const uint32_t size : {1u, 7u, 8u, 4096u}) {
    uint8_t* model = page.data() + 4096 - size;  // up to an unreadable page
    rknn_context context = 0;
    EXPECT_EQ(rknn_init(&context, model, size, 0), 0);
    EXPECT_EQ(rknn_destroy(context), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(rknn_init(&context, model, size + 1, 0), RKNN_ERR_PARAM_INVALID);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("can be read"));
  }
  EXPECT_EQ(rknn_destroy(rig.context), 0);
}

TEST(Simulator, RefusesOverlappingCallsOnOneContextOnly) {
  rknn_sim::Session session;
  Rig rig, other;
  ASSERT_EQ(rig.Set() | other.Set(), 0);
  int inner[3] = {1, 1, 1};
  rknn_sim::HookAt(Function::kRun, 1, [&](const rknn_sim::Call&) {
    std::thread([&] {
      inner[0] = rig.Run();
      inner[1] = rig.Destroy();
      inner[2] = other.Run();
    }).join();
  });
  testing::internal::CaptureStderr();
  EXPECT_EQ(rig.Run(), 0);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("rknn_destroy: called while rknn_run is at work on context"));
  EXPECT_THAT(inner, ElementsAre(RKNN_ERR_FAIL, RKNN_ERR_FAIL, 0));
  EXPECT_EQ(rig.Get() | rig.Release() | rig.Destroy() | other.Destroy(), 0);
  const auto calls = rknn_sim::Calls(Function::kRun);
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].ret, 0);  // in the order in which they began
  EXPECT_NE(calls[0].thread, calls[1].thread);
}

TEST(Simulator, ReportsOutputsAndContextsThatAreNotReleased) {
  rknn_sim::Session session;
  Rig rig;
  ASSERT_EQ(rig.GetReady() | rig.Get(), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(rig.Destroy(), RKNN_ERR_OUTPUT_INVALID);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("rknn_destroy: outputs of the"));
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
  EXPECT_EXIT(
      {
        rknn_sim::SetNextHandle(0xabc);
        const Rig left;
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      "rknn simulator: exit: context 0xabc is still there; wanted rknn_destroy");
}

TEST(Simulator, AcceptsWhatIsRelaxed) {
  rknn_sim::Session session;
  Rig rig;
  for (const Check check : {Check::kCallOrder, Check::kInputSize, Check::kInputType,
                            Check::kOutputSize, Check::kUnreleased}) {
    rknn_sim::Relax(check);
  }
  rig.input = InputOf(rig.pixel, 5, RKNN_TENSOR_FLOAT32);  // one element and a bit
  rig.outputs[0].size = 8;
  EXPECT_EQ(rig.Run() | rig.Set() | rig.Run() | rig.Get() | rig.Get() | rig.Set(), 0);
  EXPECT_THAT(rig.echo, ElementsAre(1.5f, 0, 9)) << "no more than the sizes allow";
  EXPECT_EQ(rig.Destroy(), 0);
  EXPECT_EQ(rknn_sim::MisuseCount(), 0u);
}

TEST(Simulator, RecordsEveryCallWithCopies) {
  rknn_sim::Session session;
  rknn_sim::SetNextHandle(0);
  Rig rig;
  EXPECT_EQ(rig.context, 0u);
  rknn_input_output_num counts;
  EXPECT_EQ(rig.QueryInto(RKNN_QUERY_IN_OUT_NUM, &counts, sizeof(counts)), 0);
  EXPECT_EQ(counts.n_input, 1u);
  EXPECT_EQ(counts.n_output, 2u);
  rig.Ask(RKNN_QUERY_OUTPUT_ATTR, sizeof(rig.attr), 1);
  EXPECT_EQ(rig.Query(), 0);
  EXPECT_EQ(rig.attr.index, 1u);
  EXPECT_EQ(rig.attr.n_elems, 2u);
  EXPECT_EQ(rig.attr.n_dims, 1u);
  EXPECT_EQ(rig.Set(), 0);
  const float* const sent = rig.pixel;
  rig.pixel[0] = 77;  // the runtime took its own copy
  EXPECT_EQ(rig.Run() | rig.Get() | rig.Release() | rig.Destroy(), 0);
  EXPECT_THAT(rig.echo, ElementsAre(1.5f, -2, 3));
  EXPECT_THAT(rig.pair, ElementsAre(0.25f, 0.25f));

  EXPECT_EQ(rknn_sim::CallOrder(),
            "init query query inputs_set run outputs_get outputs_release destroy");
  const auto calls = rknn_sim::Calls();
  EXPECT_EQ(std::string(calls[0].model.begin(), calls[0].model.end()), model_bytes);
  EXPECT_EQ(calls[0].model_address, model_bytes.data());
  EXPECT_EQ(calls[2].query, RKNN_QUERY_OUTPUT_ATTR);
  EXPECT_EQ(calls[2].index, 1u);
  EXPECT_EQ(calls[2].size, 360u);
  ASSERT_EQ(calls[3].inputs.size(), 1u);
  EXPECT_EQ(calls[3].inputs[0].record.buf, sent);
  ASSERT_EQ(calls[3].inputs[0].bytes.size(), sizeof(rig.pixel));
  EXPECT_EQ(std::memcmp(&calls[3].inputs[0].bytes[4], &rig.pixel[1], 8), 0);
  EXPECT_TRUE(calls[4].is_extend_null);
  ASSERT_EQ(calls[6].outputs.size(), 2u);
  EXPECT_EQ(calls[6].outputs[1].buf, rig.pair);
  EXPECT_TRUE(calls[7].was_model_intact);
  for (const auto& call : calls) EXPECT_TRUE(call.has_returned && !call.is_misuse && call.ret == 0);
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
}

TEST(Simulator, ReturnsScriptedCodes) {
  constexpr float kUntouched = 9, kWritten = 0.25f;
  struct {
    Function function;
    int code;
    float pair;          // what outputs[1] holds after the sequence below
    const char* effect;  // codes of set run get release destroy
  } cases[] = {
      {Function::kInputsSet, 3, kWritten, "3 0 0 0 0"},  // positive: a success, the work is done
      {Function::kRun, 4, kWritten, "0 4 0 0 0"},
      {Function::kOutputsGet, 5, kWritten, "0 0 5 0 0"},
      {Function::kInputsSet, -8, kUntouched, "-8 -8 -9 -9 0"},  // misuse of what follows
      {Function::kRun, -2, kUntouched, "0 -2 -9 -9 0"},
      {Function::kOutputsGet, -1, kUntouched, "0 0 -1 -9 0"},
      {Function::kOutputsRelease, -1, kWritten, "0 0 0 -1 0"},  // released all the same
      {Function::kDestroy, -1, kWritten, "0 0 0 0 -1"},
  };
  for (const auto& row : cases) {
    rknn_sim::Session session;
    Rig rig;
    rknn_sim::ReturnAt(row.function, 1, row.code);
    testing::internal::CaptureStderr();
    const int codes[] = {rig.Set(), rig.Run(), rig.Get(), rig.Release(), rig.Destroy()};
    testing::internal::GetCapturedStderr();
    std::string effect;
    for (const int code : codes) effect += (effect.empty() ? "" : " ") + std::to_string(code);
    EXPECT_EQ(effect, row.effect);
    EXPECT_EQ(rig.pair[0], row.pair);
    EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
  }

  rknn_sim::Session session;
  testing::internal::CaptureStderr();
  rknn_sim::ReturnAt(Function::kInit, 2, 1);  // positive: for init and query a failure
  rknn_sim::ReturnAt(Function::kQuery, rknn_sim::kEveryCall, 2);
  Rig rig;
  rknn_context context = 55;
  EXPECT_EQ(rknn_init(&context, &model_bytes[0], 1, 0), 1);
  EXPECT_EQ(context, 55u);
  rknn_input_output_num counts = {7, 7};
  EXPECT_EQ(rig.QueryInto(RKNN_QUERY_IN_OUT_NUM, &counts, sizeof(counts)), 2);
  EXPECT_EQ(counts.n_input, 7u);
  rknn_sim::LeaveOutputsUnwrittenAt(1);
  EXPECT_EQ(rig.GetReady() | rig.Get() | rig.Release() | rig.Destroy(), 0);
  EXPECT_EQ(rig.pair[0], kUntouched);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "scripted failures are silent";
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
}

TEST(Simulator, KeepsExceptionsInsideAndHandlesApart) {
  rknn_sim::Session session;
  Rig rig;
  rknn_sim::HookAt(Function::kInputsSet, 1, [](const rknn_sim::Call& call) {
    if (call.inputs[0].bytes.size() == sizeof(rig.pixel)) throw std::bad_alloc();
  });
  rknn_sim::HookAt(Function::kInputsSet, 2, [](const rknn_sim::Call&) { throw 1; });
  EXPECT_THAT((std::vector<int>{rig.Set(), rig.Set(), rig.Set()}),
              ElementsAre(RKNN_ERR_MALLOC_FAIL, RKNN_ERR_FAIL, 0));
  rknn_sim::SetNextHandle(rig.context);
  rknn_context context = 0;
  testing::internal::CaptureStderr();
  EXPECT_EQ(rknn_init(&context, &model_bytes[0], 1, 0), RKNN_ERR_FAIL);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("is in use; wanted a free one"));
  EXPECT_EQ(rig.Destroy(), 0);
}

TEST(Simulator, NeverUsesOperatorNew) {
  rknn_sim::Session session;
  rknn_sim::SetModel(PixelModel(RKNN_TENSOR_FLOAT32));
  const long made_before = corvane_test::AllocationsMade();
  Rig rig;
  rig.outputs[1].is_prealloc = 0;
  EXPECT_EQ(rig.GetReady() | rig.Get() | rig.Release(), 0);
  rknn_sim::ReturnAt(Function::kDestroy, 1, 5);
  EXPECT_EQ(rig.Destroy(), 5);
  EXPECT_EQ(rknn_sim::Calls().size(), 6u);
  EXPECT_EQ(corvane_test::AllocationsMade(), made_before);
}

TEST(Simulator, TakesAllInputKinds) {
  float floats[] = {0.5f, -2, 100};
  uint16_t halves[] = {0x3800, 0xc000, 0x0001};
  int16_t fixed[] = {3, -4, 32767};
  int8_t bytes[] = {-128, 0, 127, 1, 2, 3};
  uint8_t unsigned_bytes[] = {0, 128, 255, 1, 2, 3};
  struct {
    rknn_tensor_type native;
    rknn_input input;
    std::vector<float> numbers;
  } cases[] = {
      {RKNN_TENSOR_FLOAT16, InputOf(floats, 12, RKNN_TENSOR_FLOAT32), {0.5f, -2, 100}},
      {RKNN_TENSOR_FLOAT16, InputOf(halves, 6, RKNN_TENSOR_FLOAT16, true), {0.5f, -2, 0x1p-24f}},
      {RKNN_TENSOR_INT16, InputOf(fixed, 6, RKNN_TENSOR_INT16, true), {0.75f, -1, 8191.75f}},
      {RKNN_TENSOR_INT16, InputOf(fixed, 6, RKNN_TENSOR_INT16, false), {3, -4, 32767}},
      // Two pixels, interleaved, for a planar model.
      {RKNN_TENSOR_FLOAT32,
       InputOf(bytes, 6, RKNN_TENSOR_INT8, false, RKNN_TENSOR_NHWC),
       {-128, 1, 0, 2, 127, 3}},
      {RKNN_TENSOR_FLOAT32,
       InputOf(unsigned_bytes, 6, RKNN_TENSOR_UINT8, false, RKNN_TENSOR_NHWC),
       {0, 1, 128, 2, 255, 3}},
      {RKNN_TENSOR_FLOAT32,
       InputOf(unsigned_bytes, 6, RKNN_TENSOR_UINT8, false, RKNN_TENSOR_NCHW),
       {0, 128, 255, 1, 2, 3}},
  };
  for (auto& row : cases) {
    rknn_sim::Session session;
    const auto count = static_cast<uint32_t>(row.numbers.size());
    rknn_sim::Model model = PixelModel(row.native, 2);
    model.inputs[0] = rknn_sim::MakeTensor({count / 3, 1, 3, 1}, row.native, 2);
    model.outputs[0] = rknn_sim::MakeTensor({count});
    model.outputs[0].echo_input = 0;
    Rig rig(model);
    rig.input = row.input;
    std::vector<float> numbers(count);
    rig.outputs[0] = OutputOf(0, numbers.data(), 4 * count);
    EXPECT_EQ(rig.GetReady() | rig.Get() | rig.Release() | rig.Destroy(), 0);
    EXPECT_EQ(numbers, row.numbers);
  }
}

TEST(Simulator, GivesNativeElementsInItsOwnBuffers) {
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = INFINITY;
  struct {
    rknn_tensor_type type;
    rknn_tensor_qnt_type quantisation;
    rknn_sim::Vector<float> values;
    std::vector<int> elements;
  } cases[] = {
      {RKNN_TENSOR_INT16, RKNN_TENSOR_QNT_DFP, {0.75f, -1, 1e6f, nan}, {3, -4, 32767, 0}},
      {RKNN_TENSOR_INT8, RKNN_TENSOR_QNT_NONE, {2.5f, 3.5f, -inf}, {2, 4, -128}},
      {RKNN_TENSOR_UINT8, RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC, {-5, 0, 5, 500}, {0, 10, 20, 255}},
      {RKNN_TENSOR_FLOAT16,
       RKNN_TENSOR_QNT_NONE,
       // Ties to even at 1, the last value before infinity, a tie below the least half.
       {1 + 0x1p-11f, 1 + 0x3p-11f, 65519, 65520, 0x1p-25f, 0x1.8p-25f, 0x1.ffcp-15f, -inf},
       {0x3c00, 0x3c02, 0x7bff, 0x7c00, 0, 1, 0x0400, -0x0400}},
  };
  for (auto& row : cases) {
    rknn_sim::Session session;
    const std::size_t count = row.values.size();
    rknn_sim::Model model = PixelModel(RKNN_TENSOR_FLOAT32);
    model.outputs[1] = rknn_sim::MakeTensor({static_cast<uint32_t>(count)}, row.type, 2);
    model.outputs[1].attr.qnt_type = row.quantisation;
    model.outputs[1].attr.zp = 10;
    model.outputs[1].attr.scale = 0.5f;
    model.outputs[1].values = row.values;
    Rig rig(model);
    rig.outputs[1] = {};
    rig.outputs[1].index = 1;
    EXPECT_EQ(rig.GetReady() | rig.Get(), 0);
    const rknn_output& output = rig.outputs[1];
    const std::size_t width = output.size / count;
    std::vector<int> elements;
    for (std::size_t i = 0; i < count; ++i) {
      int16_t element = 0;
      std::memcpy(&element, static_cast<uint8_t*>(output.buf) + i * width, width);
      const bool is_signed_byte = row.type == RKNN_TENSOR_INT8;
      elements.push_back(is_signed_byte ? static_cast<int8_t>(element) : element);
    }
    EXPECT_EQ(elements, row.elements) << row.type;
    EXPECT_EQ(rig.Release() | rig.Destroy(), 0);
  }
}

TEST(Simulator, DecodesAndEncodesEveryHalf) {
  rknn_sim::Session session;
  rknn_sim::Model model;
  model.inputs = {rknn_sim::MakeTensor({65536}, RKNN_TENSOR_FLOAT16)};
  model.outputs = {rknn_sim::MakeTensor({65536}, RKNN_TENSOR_FLOAT16)};
  model.outputs[0].echo_input = 0;
  Rig rig(model);
  std::vector<uint16_t> halves(65536), back(65536);
  for (int i = 0; i < 65536; ++i) halves[i] = static_cast<uint16_t>(i);
  rig.input = InputOf(halves.data(), 131072, RKNN_TENSOR_FLOAT16, true);
  rknn_output output = OutputOf(0, back.data(), 131072);
  output.want_float = 0;
  ASSERT_EQ(rig.GetReady() | rknn_outputs_get(rig.context, 1, &output, nullptr), 0);
  for (int i = 0; i < 65536; ++i) {
    const bool is_nan = (i & 0x7fff) > 0x7c00;
    ASSERT_EQ(back[i], is_nan ? (i & 0x8000) | 0x7e00 : i);
  }
  EXPECT_EQ(rknn_outputs_release(rig.context, 1, &output) | rig.Destroy(), 0);
}

int InitText(std::string text, rknn_context* context = nullptr) {
  rknn_context own = 0;
  const int ret = rknn_init(context == nullptr ? &own : context, &text[0], text.size(), 0);
  if (ret == 0 && context == nullptr) {
    EXPECT_EQ(rknn_destroy(own), 0);
  }
  return ret;
}

TEST(Simulator, RunsAModelStatedAsText) {
  rknn_sim::Session session;
  std::string text =
      "CORVANE-SIM\r\n# a comment\n\ninput data int16 1x2x1x3 nhwc fl=4\n"
      "output echo float32 3 echo=0\noutput pair uint8 1x2 values=0.25,-1e1 zp=20 scale=0.5";
  rknn_context context = 0;
  ASSERT_EQ(rknn_init(&context, &text[0], text.size(), 0), 0);
  rknn_tensor_attr attr = {};
  ASSERT_EQ(rknn_query(context, RKNN_QUERY_INPUT_ATTR, &attr, sizeof(attr)), 0);
  EXPECT_STREQ(attr.name, "data");
  EXPECT_THAT(std::vector<uint32_t>(attr.dims, attr.dims + 5), ElementsAre(3, 1, 2, 1, 0));
  EXPECT_THAT((std::vector<int>{int(attr.n_dims), int(attr.n_elems), int(attr.size), attr.fmt,
                                attr.type, attr.qnt_type, attr.fl}),
              ElementsAre(4, 6, 12, RKNN_TENSOR_NHWC, RKNN_TENSOR_INT16, RKNN_TENSOR_QNT_DFP, 4));
  int16_t fixed[6] = {16, 32, -48};
  rknn_input input = InputOf(fixed, sizeof(fixed), RKNN_TENSOR_INT16, true);
  float echo[3], pair[2];
  rknn_output outputs[2] = {OutputOf(1, pair, 8), OutputOf(0, echo, 12)};
  EXPECT_EQ(rknn_inputs_set(context, 1, &input) | rknn_run(context, nullptr), 0);
  EXPECT_EQ(rknn_outputs_get(context, 2, outputs, nullptr), 0);
  EXPECT_EQ(rknn_outputs_release(context, 2, outputs) | rknn_destroy(context), 0);
  EXPECT_THAT(echo, ElementsAre(1, 2, -3));
  EXPECT_THAT(pair, ElementsAre(0.25f, -10));
}

TEST(Simulator, RefusesHostileModelBytes) {
  rknn_sim::Session session;
  const struct {
    std::string text;
    const char* line;
  } cases[] = {
      {"", "the model has 0 bytes and begins with []; wanted an ONNX model or a text that"},
      {"RKN", "the model has 3 bytes and begins with [52 4b 4e ]; wanted an ONNX model or a text"},
      {"RKNN\x01", "the model is compiled for the NPU, and only the NPU can run it; wanted"},
      {"CORVANE-SIMULATOR\n", "line 1 of the model's text is not understood; wanted 'CORVANE-SIM'"},
      {"CORVANE-SIM\n\nfoo", "line 3 of the model's text is not understood; wanted 'input'"},
      {"CORVANE-SIM\ninput a int4 1",
       "line 2 of the model's text is not understood; wanted a type"},
      {"CORVANE-SIM\ninput " + std::string(256, 'n') + " int8 1", "wanted a name of 1 to 255"},
      {"CORVANE-SIM\ninput a int8 65536x65536x65536x65536x65536", "wanted a shape as"},
      {"CORVANE-SIM\ninput a int8 -1", "wanted a shape as"},
      {"CORVANE-SIM\ninput a int8 1x", "wanted a shape as"},
      {"CORVANE-SIM\ninput a int8 1x1x1x1x1x1x1x1x1x1x1x1x1x1x1x1x1", "wanted a shape as"},
      {"CORVANE-SIM\ninput a int8 67108864\ninput b int8 1", "at most 2^26 elements in all"},
      {"CORVANE-SIM\ninput a int8 1 values=1", "wanted nhwc, fl=, zp= or scale="},
      {"CORVANE-SIM\ninput a int8 1 fl=128", "wanted nhwc, fl=, zp= or scale="},
      {"CORVANE-SIM\noutput a int8 1 values=1,2",
       "wanted nhwc, fl=, zp=, scale=, values= (no more"},
      {"CORVANE-SIM\noutput a int8 1 echo=0", "an output echoes input 0; wanted one of 0 inputs"},
  };
  for (const auto& row : cases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(InitText(row.text), RKNN_ERR_MODEL_INVALID);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(row.line));
  }
  // Every byte of a good text replaced by bytes that mean something: no crash, no leak.
  const std::string good = "CORVANE-SIM\ninput a int16 1x2 fl=3\noutput b int8 2 echo=0 values=1\n";
  testing::internal::CaptureStderr();
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (const char byte : std::string("\0\n =x9-,\xff", 9)) {
      std::string text = good;
      text[i] = byte;
      InitText(text);
    }
    InitText(good.substr(0, i));
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(InitText(good), 0);
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
}

TEST(Simulator, SaysThatItIsASimulator) {
  rknn_sim::Session session;
  Rig rig;
  rknn_sdk_version version;
  ASSERT_EQ(rig.QueryInto(RKNN_QUERY_SDK_VERSION, &version, sizeof(version)), 0);
  EXPECT_THAT(version.api_version, HasSubstr("simulator"));
  rknn_sim::DelayAt(Function::kRun, 1, std::chrono::milliseconds(20));
  EXPECT_EQ(rig.GetReady(), 0);
  rknn_perf_run run = {-1};
  EXPECT_EQ(rig.QueryInto(RKNN_QUERY_PERF_RUN, &run, sizeof(run)), 0);
  EXPECT_GE(run.run_duration, 20000) << "a scripted delay is part of the run";
  EXPECT_EQ(rig.Get() | rig.Release() | rig.Destroy(), 0);
}

}  // namespace
