// Forward: what the runtime is handed, what the caller gets back, every failure, the lock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <new>
#include <thread>

#include "corvane/backend.h"
#include "tests/support/allocation_faults.h"
#include "tests/support/runtime_fixture.h"

namespace corvane {
namespace {

using corvane_test::AllocationsLive;
using corvane_test::AllocationsMade;
using corvane_test::FailEachAllocation;
using corvane_test::RuntimeTest;
using rknn_sim::Function;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kPrefix[] = "[src/rknn/rknn(LINE)] ";

class ForwardTest : public RuntimeTest {
 protected:
  // What Forward writes to standard error, with the line number replaced by LINE.
  std::string Forward(Backend_<float>& backend, const std::vector<uint8_t>& image, int pixel_type,
                      int width, int height) {
    testing::internal::CaptureStderr();
    backend.Forward(image.data(), pixel_type, width, height, &outputs_);
    std::string err = testing::internal::GetCapturedStderr();
    const size_t open = err.find('('), close = err.find(')');
    if (err.rfind("[src/rknn/rknn(", 0) == 0 && close != std::string::npos) {
      EXPECT_GT(std::atoi(err.c_str() + open + 1), 0);
      err.replace(open + 1, close - open - 1, "LINE");
    }
    return err;
  }

  template <typename T>
  std::vector<T> LastInput() {
    const std::vector<uint8_t> bytes = LastInputBytes();
    std::vector<T> elements(bytes.size() / sizeof(T));
    if (!elements.empty()) std::memcpy(elements.data(), bytes.data(), bytes.size());
    return elements;
  }

  static std::vector<float> Floats(const OutputTensor& output) {
    return {output.data, output.data + output.count};
  }

  std::vector<OutputTensor> outputs_;
};

TEST_F(ForwardTest, DescribesTheInputByItsKind) {
  struct {
    RKNNInputType kind;
    int pixel_type;
    const char* described;
  } const rows[] = {
      {RKNN_INPUT_FLOAT32, PIXEL_BGR, "size 72, pass_through 0, type 0, fmt 0"},
      {RKNN_INPUT_FLOAT32, PIXEL_GRAY, "size 24, pass_through 0, type 0, fmt 0"},
      {RKNN_INPUT_FLOAT16, PIXEL_RGB, "size 36, pass_through 1, type 1, fmt 0"},
      {RKNN_INPUT_INT16, PIXEL_RGB2BGR, "size 36, pass_through 1, type 4, fmt 0"},
      {RKNN_INPUT_INT16, PIXEL_GRAY, "size 12, pass_through 1, type 4, fmt 0"},
      {RKNN_INPUT_UINT8, PIXEL_BGR2RGB, "size 18, pass_through 0, type 3, fmt 1"},
  };
  for (const auto& row : rows) {
    // What the model itself takes does not matter here: the script accepts anything.
    UseModel({Input(3, 2, 3)}, {Output({5}), Output({2, 3})});
    const auto backend = MakeBackend(row.kind);
    ForgetCalls();
    EXPECT_EQ(Forward(*backend, std::vector<uint8_t>(18), row.pixel_type, 3, 2), "");
    EXPECT_EQ(Calls(), "inputs_set(1: index 0, " + std::string(row.described) +
                           ") run(null) outputs_get(null, float prealloc 0:20, float prealloc 1:24)"
                           " outputs_release(2, float prealloc 0:20, float prealloc 1:24)");
  }
}

TEST_F(ForwardTest, LaysOutPlanesAndKeepsConstantsWithTheBytes) {
  struct {
    int pixel_type;
    std::vector<float> planes;
  } const rows[] = {
      {PIXEL_BGR, {50, -52, -50, -57.5, 0, -60}},
      {PIXEL_RGB, {50, -52, -50, -57.5, 0, -60}},
      {PIXEL_BGR2RGB, {0, -60, -50, -57.5, 50, -52}},
      {PIXEL_RGB2BGR, {0, -60, -50, -57.5, 50, -52}},
      {PIXEL_GRAY, {50, -43.5}},
  };
  UseModel({Input(2, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32, {104, 117, 123}, {0.5, 0.5, 0.5});
  for (const auto& row : rows) {
    EXPECT_EQ(Forward(*backend, {204, 17, 123, 0, 2, 3}, row.pixel_type, 2, 1), "");
    EXPECT_EQ(LastInput<float>(), row.planes) << row.pixel_type;
  }
}

TEST_F(ForwardTest, EncodesSixteenBitKinds) {
  UseModel({Input(2, 1, 1, /*fl=*/8)}, {});
  Forward(*MakeBackend(RKNN_INPUT_FLOAT16, {127.5}, {1 / 127.5f}), {255, 0}, PIXEL_GRAY, 2, 1);
  EXPECT_THAT(LastInput<uint16_t>(), ElementsAre(0x3C00, 0xBC00));
  Forward(*MakeBackend(RKNN_INPUT_INT16, {127.5}, {0.0078125}), {255, 127}, PIXEL_GRAY, 2, 1);
  EXPECT_THAT(LastInput<int16_t>(), ElementsAre(255, -1));
  UseModel({Input(1, 1, 3, /*fl=*/7)}, {});
  Forward(*MakeBackend(RKNN_INPUT_INT16, {127.5, 127.5, 127.5}), {200, 127, 0}, PIXEL_BGR2RGB, 1,
          1);
  EXPECT_THAT(LastInput<int16_t>(), ElementsAre(-127 * 128, 0, 9344));
}

TEST_F(ForwardTest, CopiesBytesOfTheEightBitKindUnchanged) {
  UseModel({Input(2, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_UINT8, {1}, {2});  // neither is read
  EXPECT_EQ(Forward(*backend, {1, 2, 3, 4, 5, 255}, PIXEL_BGR2RGB, 2, 1), "");
  EXPECT_THAT(LastInput<uint8_t>(), ElementsAre(1, 2, 3, 4, 5, 255));
}

TEST_F(ForwardTest, GivesEveryOutputInItsRecordAndReusesTheVector) {
  rknn_sim::Tensor wrapping = Output({4}, 2);
  wrapping.attr.dims[0] = 0x10000;
  wrapping.attr.dims[1] = 0x18000;
  UseModel({Input(1, 1, 3)}, {Output({5, 4, 3, 2}, 7.5f), Output({6}, -1), wrapping});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32);
  for (int frame = 0; frame < 2; ++frame) {
    EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, 1, 1), "");
    ASSERT_EQ(outputs_.size(), 3u);
    EXPECT_THAT(outputs_[0].shape, ElementsAre(2, 3, 4, 5));
    EXPECT_EQ(outputs_[0].elem_size, 4u);
    EXPECT_EQ(outputs_[0].plane_size, 20);
    EXPECT_EQ(outputs_[0].count, 120u);
    EXPECT_THAT(Floats(outputs_[0]), Each(7.5f));
    EXPECT_THAT(outputs_[1].shape, ElementsAre(0, 0, 0, 6));  // unused dims stay zero
    EXPECT_EQ(outputs_[1].plane_size, 0);
    EXPECT_THAT(Floats(outputs_[1]), Each(-1.0f));
    EXPECT_EQ(outputs_[2].plane_size, INT_MIN);  // multiplied in 32 bits, widened with its sign
  }
}

TEST_F(ForwardTest, RefusesWithOneLineAndNaNs) {
  struct {
    RKNNInputType kind;
    std::vector<float> means, scales;
    int pixel_type;
    std::string line;
  } const rows[] = {
      {RKNN_INPUT_FLOAT32, {}, {}, PIXEL_RGBA, "Unexpected pixel type. [type='PIXEL_RGBA']\n"},
      {RKNN_INPUT_INT8, {}, {}, PIXEL_RGBA, "Unexpected pixel type. [type='PIXEL_RGBA']\n"},
      {RKNN_INPUT_FLOAT32, {}, {}, 0, "Unexpected pixel type. [type=0]\n"},
      {RKNN_INPUT_FLOAT16, {}, {}, -1, "Unexpected pixel type. [type=-1]\n"},
      {RKNN_INPUT_INT16, {}, {}, 0x10001, "Unexpected pixel type. [type=65537]\n"},
      {RKNN_INPUT_UINT8, {}, {}, PIXEL_GRAY, "FATAL: unexpected channels. [channels=1]"},
      {RKNN_INPUT_FLOAT32, {1, 2}, {}, PIXEL_BGR, "ERROR: too few means. [means=2, channels=3]\n"},
      {RKNN_INPUT_INT16, {}, {1}, PIXEL_RGB, "ERROR: too few scales. [scales=1, channels=3]\n"},
      {RKNN_INPUT_INT8, {}, {}, PIXEL_BGR, ""},
      {static_cast<RKNNInputType>(7), {1}, {}, PIXEL_BGR, ""},
  };
  for (const auto& row : rows) {
    UseModel({Input(2, 2, 3)}, {Output({300}, 9)});
    const auto backend = MakeBackend(row.kind, row.means, row.scales);
    ForgetCalls();
    for (int frame = 0; frame < 2; ++frame) {  // the second sees the first one's memory
      EXPECT_EQ(Forward(*backend, std::vector<uint8_t>(12, 5), row.pixel_type, 2, 2),
                row.line.empty() ? "" : kPrefix + row.line);
      EXPECT_EQ(Calls(), "") << row.line;
      ASSERT_EQ(outputs_.size(), 1u);
      EXPECT_THAT(Floats(outputs_[0]), Each(testing::IsNan())) << row.line;
      std::fill_n(outputs_[0].data, 300, 1.0f);
    }
  }
}

TEST_F(ForwardTest, OneMeanIsEnoughForGray) {
  UseModel({Input(1, 1, 1)}, {});
  EXPECT_EQ(Forward(*MakeBackend(RKNN_INPUT_FLOAT32, {100}, {2}), {101}, PIXEL_GRAY, 1, 1), "");
  EXPECT_THAT(LastInput<float>(), ElementsAre(2));
}

TEST_F(ForwardTest, RunsOnlyModelsWithOneInput) {
  for (unsigned inputs : {0u, 2u}) {
    UseModel(std::vector<rknn_sim::Tensor>(inputs, Input(1, 1, 3)), {Output({3}, 9)});
    const auto backend = MakeBackend(RKNN_INPUT_INT16);
    ForgetCalls();
    EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, 1, 1),
              kPrefix + ("ERROR: only models with one input can run. [n_input=" +
                         std::to_string(inputs) + "]\n"));
    EXPECT_EQ(Calls(), "");
    EXPECT_THAT(Floats(outputs_[0]), Each(testing::IsNan()));
  }
}

TEST_F(ForwardTest, RefusesSizesThatAreNoArrayLengthBeforeReadingTheImage) {
  const std::pair<int, int> sizes[] = {
      {-1, 1},           {1, -5},        {INT_MIN, 1},       {65536, 65536},
      {INT_MAX, 2},      {26755, 26755}, {INT_MIN, INT_MIN}, {715827883, 1},
      {INT_MAX, INT_MAX}};
  for (RKNNInputType kind :
       {RKNN_INPUT_FLOAT32, RKNN_INPUT_FLOAT16, RKNN_INPUT_INT16, RKNN_INPUT_UINT8}) {
    UseModel({Input(1, 1, 3)}, {Output({3}, 9)});
    const auto backend = MakeBackend(kind);
    ForgetCalls();
    for (const auto& size : sizes) {
      EXPECT_THROW(backend->Forward(nullptr, PIXEL_RGB, size.first, size.second, &outputs_),
                   std::bad_array_new_length)
          << size.first << " x " << size.second;
      EXPECT_THAT(Floats(outputs_.at(0)), Each(testing::IsNan()));
    }
    EXPECT_EQ(Calls(), "");
    EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, -1, -1), "") << "only the product counts";
  }
}

TEST_F(ForwardTest, RunsAnEmptyImageAndRefusesNullOnes) {
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32);
  ForgetCalls();
  EXPECT_EQ(Forward(*backend, {}, PIXEL_RGB, 0, 7), "");
  EXPECT_EQ(Calls(),
            "inputs_set(1: index 0, size 0, pass_through 0, type 0, fmt 0) run(null) "
            "outputs_get(null) outputs_release(0)");
  ForgetCalls();
  EXPECT_EQ(Forward(*backend, {}, PIXEL_RGB, 1, 7),
            std::string(kPrefix) + "ERROR: no image. [image=null, width=1, height=7]\n");
  testing::internal::CaptureStderr();
  backend->Forward(nullptr, PIXEL_RGB, 1, 1, nullptr);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("ERROR: no outputs vector."));
  EXPECT_EQ(Calls(), "");
  // What would be refused anyway is not asked for its pixels.
  UseModel({Input(1, 1, 1)}, {});
  EXPECT_EQ(Forward(*MakeBackend(RKNN_INPUT_UINT8), {}, PIXEL_GRAY, 1, 7),
            std::string(kPrefix) + "FATAL: unexpected channels. [channels=1]");
}

TEST_F(ForwardTest, ReportsFailuresOfTheRuntimeAndGoesOnWithPositiveCodes) {
  struct {
    rknn_sim::Function function;
    const char* calls_after;  // the functions called when this one fails
  } const rows[] = {{Function::kInputsSet, "inputs_set"},
                    {Function::kRun, "inputs_set run"},
                    {Function::kOutputsGet, "inputs_set run outputs_get"}};
  for (const auto& row : rows) {
    UseModel({Input(1, 1, 3)}, {Output({3}, 4)});
    const auto backend = MakeBackend(RKNN_INPUT_UINT8);
    ForgetCalls();
    rknn_sim::ReturnAt(row.function, 1, -7);
    EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, 1, 1),
              kPrefix + ("ERROR: " + std::string(NameOf(row.function)) + " failed. [ret=-7]\n"));
    EXPECT_EQ(CallNames(), row.calls_after);
    ForgetCalls();
    rknn_sim::ReturnAt(row.function, 1, 7);
    EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, 1, 1), "");
    EXPECT_EQ(CallNames(), "inputs_set run outputs_get outputs_release");
    EXPECT_THAT(Floats(outputs_[0]), Each(4.0f));
  }
  // The result of the release is not examined.
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_UINT8);
  rknn_sim::ReturnAt(Function::kOutputsRelease, 1, -9);
  EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, 1, 1), "");
}

TEST_F(ForwardTest, AllocatesOnceForTheInputAndOnceForEachOutput) {
  UseModel({Input(1, 1, 3)}, {Output({3}), Output({4})});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32, {1, 2, 3}, {1, 2, 3});
  const uint8_t image[3] = {};
  for (int frame = 0; frame < 2; ++frame) {
    const long before = AllocationsMade();
    backend->Forward(image, PIXEL_RGB, 1, 1, &outputs_);
    // Two outputs, the input, the runtime's output records; the vector only grows the first time.
    EXPECT_EQ(AllocationsMade() - before, frame == 0 ? 5 : 4);
  }
}

TEST_F(ForwardTest, AFailedAllocationLeaksNothingAndFreesTheLock) {
  UseModel({Input(1, 1, 3)}, {Output({3}, 9), Output({4}, 9)});
  for (RKNNInputType kind :
       {RKNN_INPUT_FLOAT32, RKNN_INPUT_FLOAT16, RKNN_INPUT_INT16, RKNN_INPUT_UINT8}) {
    const auto backend = MakeBackend(kind);
    const uint8_t image[3] = {};
    std::vector<OutputTensor> outputs;
    const long live_before = AllocationsLive();
    const long failures = FailEachAllocation(
        [&] {
          outputs.clear();
          outputs.shrink_to_fit();
          backend->Forward(image, PIXEL_RGB, 1, 1, &outputs);
          outputs.clear();
          outputs.shrink_to_fit();
        },
        [&](long nth, bool threw, long) {
          EXPECT_TRUE(threw) << nth;
          for (const OutputTensor& output : outputs)
            EXPECT_THAT(Floats(output), Each(testing::IsNan())) << nth;
          std::thread([&] {  // would wait forever for a lock that was kept
            std::vector<OutputTensor> others;
            backend->Forward(image, PIXEL_RGB, 1, 1, &others);
            EXPECT_THAT(Floats(others.at(1)), Each(9.0f));
          })
              .join();
          std::vector<OutputTensor>().swap(outputs);
          EXPECT_EQ(AllocationsLive(), live_before) << nth;
        });
    EXPECT_EQ(failures, 5);
  }
}

TEST_F(ForwardTest, CallsOnOneBackendTakeTurnsAndBackendsRunInParallel) {
  // The simulator refuses overlapping calls on one context, so a missing lock shows as an error
  // line.
  UseModel({Input(8, 8, 3)}, {Output({64}, 3)});
  rknn_sim::DelayAt(Function::kRun, rknn_sim::kEveryCall, std::chrono::milliseconds(1));
  const auto shared = MakeBackend(RKNN_INPUT_FLOAT32);
  const auto other = MakeBackend(RKNN_INPUT_INT16);
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      const std::vector<uint8_t> image(8 * 8 * 3, static_cast<uint8_t>(t));
      std::vector<OutputTensor> outputs;
      for (int frame = 0; frame < 20; ++frame) {
        (t % 3 == 2 ? *other : *shared).Forward(image.data(), PIXEL_RGB, 8, 8, &outputs);
        EXPECT_THAT(Floats(outputs.at(0)), Each(3.0f));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace corvane
