// Forward, when it succeeds: what the runtime is handed, what the caller gets, allocations,
// threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "corvane/backend.h"
#include "tests/support/allocation_faults.h"
#include "tests/support/runtime_fixture.h"

namespace {

struct Advice {
  std::uintptr_t begin;
  std::size_t bytes;
  int advice;
};
std::vector<Advice> advices;

}  // namespace

// In place of the C library's: the library's large inputs ask for large pages.
extern "C" __attribute__((visibility("default"))) int madvise(void* begin, std::size_t bytes,
                                                              int advice) noexcept {
  advices.push_back({reinterpret_cast<std::uintptr_t>(begin), bytes, advice});
  errno = EINVAL;
  return -1;
}

namespace corvane {
namespace {

using corvane_test::AllocationsMade;
using corvane_test::DirtyAllocator;
using corvane_test::RuntimeTest;
using rknn_sim::Function;
using testing::Each;
using testing::ElementsAre;

using ForwardTest = RuntimeTest;

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

TEST_F(ForwardTest, OneMeanIsEnoughForGray) {
  UseModel({Input(1, 1, 1)}, {});
  EXPECT_EQ(Forward(*MakeBackend(RKNN_INPUT_FLOAT32, {100}, {2}), {101}, PIXEL_GRAY, 1, 1), "");
  EXPECT_THAT(LastInput<float>(), ElementsAre(2));
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

TEST_F(ForwardTest, RunsAnEmptyImage) {
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32);
  ForgetCalls();
  EXPECT_EQ(Forward(*backend, {}, PIXEL_RGB, 0, 7), "");
  EXPECT_EQ(Calls(),
            "inputs_set(1: index 0, size 0, pass_through 0, type 0, fmt 0) run(null) "
            "outputs_get(null) outputs_release(0)");
  EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, -1, -1), "") << "only the product counts";
}

TEST_F(ForwardTest, GoesOnAfterPositiveCodesAndAnyCodeOfTheRelease) {
  const std::pair<Function, int> rows[] = {{Function::kInputsSet, 7},
                                           {Function::kRun, 7},
                                           {Function::kOutputsGet, 7},
                                           {Function::kOutputsRelease, -9}};
  for (const auto& row : rows) {
    UseModel({Input(1, 1, 3)}, {Output({3}, 4)});
    const auto backend = MakeBackend(RKNN_INPUT_UINT8);
    ForgetCalls();
    rknn_sim::ReturnAt(row.first, 1, row.second);
    EXPECT_EQ(Forward(*backend, {1, 2, 3}, PIXEL_RGB, 1, 1), "");
    EXPECT_EQ(CallNames(), "inputs_set run outputs_get outputs_release");
    EXPECT_THAT(Floats(outputs_[0]), Each(4.0f));
  }
}

TEST_F(ForwardTest, SuccessLeavesErrnoAsItWas) {
  UseModel({Input(1, 1, 3)}, {Output({3}, 4)});
  for (Function function :
       {Function::kInputsSet, Function::kRun, Function::kOutputsGet, Function::kOutputsRelease}) {
    rknn_sim::HookAt(function, rknn_sim::kEveryCall, [](const rknn_sim::Call&) { errno = ENOSPC; });
  }
  // 32 MiB, so that madvise is called and fails, too.
  const int width = 11184811;
  const std::vector<uint8_t> image(3 * static_cast<std::size_t>(width));
  for (int preset : {0, EDOM, EAGAIN, -1}) {
    const DirtyAllocator dirty_allocator;
    const auto backend = MakeBackend(RKNN_INPUT_UINT8);
    errno = preset;
    backend->Forward(image.data(), PIXEL_RGB, width, 1, &outputs_);
    EXPECT_EQ(errno, preset);
    EXPECT_TRUE(TryForward(*backend, image.data(), PIXEL_RGB, 1, 1, &outputs_));
    EXPECT_EQ(errno, preset);
    EXPECT_THAT(Floats(outputs_.at(0)), Each(4.0f));
  }
}

TEST_F(ForwardTest, AsksForLargePagesOfLargeInputsOnly) {
  constexpr std::uintptr_t kLargePage = 2 << 20;
  constexpr int kJustBelow = (32 << 20) / 3;
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_UINT8);
  const std::vector<uint8_t> image(3 * (kJustBelow + 1));
  advices.clear();
  EXPECT_EQ(Forward(*backend, image, PIXEL_RGB, kJustBelow, 1), "");
  EXPECT_TRUE(advices.empty());
  EXPECT_EQ(Forward(*backend, image, PIXEL_RGB, kJustBelow + 1, 1), "");
  ASSERT_EQ(advices.size(), 1u);
  const Advice advice = advices[0];
  EXPECT_EQ(advice.advice, MADV_HUGEPAGE);
  // All large pages that lie whole in the buffer, and nothing else.
  const auto calls = rknn_sim::Calls(Function::kInputsSet);
  const auto begin = reinterpret_cast<std::uintptr_t>(calls.back().inputs.at(0).record.buf);
  EXPECT_EQ(advice.begin, (begin + kLargePage - 1) / kLargePage * kLargePage);
  EXPECT_EQ(advice.begin + advice.bytes, (begin + image.size()) / kLargePage * kLargePage);
}

TEST_F(ForwardTest, ReadsAnImageThatLiesInTheOutputs) {
  UseModel({Input(4, 1, 3)}, {Output({3}, 4)});
  const auto backend = MakeBackend(RKNN_INPUT_UINT8);
  const std::vector<uint8_t> bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  EXPECT_EQ(Forward(*backend, bytes, PIXEL_RGB, 4, 1), "");
  for (std::size_t offset : {0, 9}) {
    std::memcpy(outputs_[0].data, bytes.data(), bytes.size());
    const uint8_t* image = reinterpret_cast<const uint8_t*>(outputs_[0].data) + offset;
    const std::vector<uint8_t> wanted(image, image + 3);
    EXPECT_TRUE(TryForward(*backend, image, PIXEL_RGB, 1, 1, &outputs_));
    EXPECT_EQ(LastInput<uint8_t>(), wanted);
    EXPECT_THAT(Floats(outputs_.at(0)), Each(4.0f));
  }
}

TEST_F(ForwardTest, CallsOnOneBackendTakeTurns) {
  // The simulator refuses overlapping calls on one context, so a missing lock shows as a failure.
  UseModel({Input(8, 8, 3)}, {Output({64}, 3)});
  rknn_sim::DelayAt(Function::kRun, rknn_sim::kEveryCall, std::chrono::milliseconds(1));
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      const std::vector<uint8_t> image(8 * 8 * 3);
      std::vector<OutputTensor> outputs;
      for (int frame = 0; frame < 10; ++frame) {
        EXPECT_TRUE(TryForward(*backend, image.data(), PIXEL_RGB, 8, 8, &outputs));
        EXPECT_THAT(Floats(outputs.at(0)), Each(3.0f));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(ForwardTest, BackendsRunInParallel) {
  UseModel({Input(1, 1, 3)}, {});
  const std::unique_ptr<Backend_<float>> backends[] = {MakeBackend(RKNN_INPUT_FLOAT32),
                                                       MakeBackend(RKNN_INPUT_UINT8)};
  // Each run waits in the runtime until the other backend's has got there, too.
  std::mutex mutex;
  std::condition_variable arrival;
  int arrived = 0;
  bool have_met = true;
  rknn_sim::HookAt(Function::kRun, rknn_sim::kEveryCall, [&](const rknn_sim::Call&) {
    std::unique_lock<std::mutex> lock(mutex);
    ++arrived;
    arrival.notify_all();
    const auto both_arrived = [&] { return arrived == 2; };
    have_met = arrival.wait_for(lock, std::chrono::seconds(20), both_arrived) && have_met;
  });
  std::vector<std::thread> threads;
  for (const auto& backend : backends) {
    threads.emplace_back([&backend] {
      const uint8_t image[3] = {};
      std::vector<OutputTensor> outputs;
      EXPECT_TRUE(TryForward(*backend, image, PIXEL_RGB, 1, 1, &outputs));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(have_met);
}

}  // namespace
}  // namespace corvane
