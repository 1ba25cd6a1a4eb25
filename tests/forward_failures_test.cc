// Forward, when it fails: the line, errno, the floats, what is not called, leaks and the lock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <new>
#include <thread>

#include "corvane/backend.h"
#include "tests/support/allocation_faults.h"
#include "tests/support/runtime_fixture.h"

namespace corvane {
namespace {

using corvane_test::AllocationsLive;
using corvane_test::DirtyAllocator;
using corvane_test::FailEachAllocation;
using corvane_test::RuntimeTest;
using corvane_test::WriteProbe;
using rknn_sim::Function;
using testing::Each;
using testing::ElementsAre;
using testing::IsNan;

constexpr char kPrefix[] = "[src/rknn/rknn(LINE)] ";
const auto kNoKind = static_cast<RKNNInputType>(7);

class ForwardFailuresTest : public RuntimeTest {
 protected:
  // Fails with line, reason and NaNs, whatever errno was and the allocator does.
  void ExpectFailure(Backend_<float>& backend, const uint8_t* image, int pixel_type, int width,
                     int height, const std::string& line, int reason) {
    const DirtyAllocator dirty_allocator;
    for (int preset : {0, EDOM, reason}) {
      outputs_.clear();
      outputs_.emplace_back();  // the frame before: the new record gets its block
      outputs_[0].data = new float[300];
      outputs_[0].count = 300;
      std::fill_n(outputs_[0].data, 300, 0.25f);
      float* const block = outputs_[0].data;
      testing::internal::CaptureStderr();
      errno = preset;
      backend.Forward(image, pixel_type, width, height, &outputs_);
      const int error = errno;
      EXPECT_EQ(WithoutLine(testing::internal::GetCapturedStderr()),
                line.empty() ? "" : kPrefix + line);
      EXPECT_EQ(error, reason) << line;
      ASSERT_EQ(outputs_.size(), 1u);
      EXPECT_EQ(outputs_[0].data, block) << "the allocator of this test does not work";
      EXPECT_EQ(outputs_[0].count, 300u);
      EXPECT_THAT(Floats(outputs_[0]), Each(IsNan())) << line;
    }
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_FALSE(TryForward(backend, image, pixel_type, width, height, &outputs_)) << line;
    EXPECT_EQ(errno, reason);
    testing::internal::GetCapturedStderr();
  }
};

TEST_F(ForwardFailuresTest, RefusesWithOneLineAnErrnoAndNaNs) {
  const char kTwoInputs[] = "ERROR: only models with one input can run. [n_input=2]\n";
  const char kNoInput[] = "ERROR: only models with one input can run. [n_input=0]\n";
  const char kRgba[] = "Unexpected pixel type. [type='PIXEL_RGBA']\n";
  const char kFewMeans[] = "ERROR: too few means. [means=2, channels=3]\n";
  const char kFewScales[] = "ERROR: too few scales. [scales=1, channels=3]\n";
  const char kGrayBytes[] = "FATAL: unexpected channels. [channels=1]";
  const char kNoImage[] = "ERROR: no image. [image=null, width=2, height=2]\n";
  constexpr auto kFloat32 = RKNN_INPUT_FLOAT32;
  struct {
    const char* why;
    unsigned inputs;
    RKNNInputType kind;
    std::size_t means, scales;  // how many
    bool has_image;
    int pixel_type, reason;
    const char* line;
  } const rows[] = {
      {"four channels", 1, kFloat32, 0, 0, true, PIXEL_RGBA, EINVAL, kRgba},
      {"no type", 1, kFloat32, 0, 0, true, 0, EINVAL, "Unexpected pixel type. [type=0]\n"},
      {"negative", 1, kFloat32, 0, 0, true, -1, EINVAL, "Unexpected pixel type. [type=-1]\n"},
      {"to itself", 1, kFloat32, 0, 0, true, 0x10001, EINVAL,
       "Unexpected pixel type. [type=65537]\n"},
      {"gray bytes", 1, RKNN_INPUT_UINT8, 0, 0, true, PIXEL_GRAY, EINVAL, kGrayBytes},
      {"few means", 1, kFloat32, 2, 0, true, PIXEL_BGR, EINVAL, kFewMeans},
      {"few scales", 1, RKNN_INPUT_INT16, 0, 1, true, PIXEL_RGB, EINVAL, kFewScales},
      {"no image", 1, RKNN_INPUT_FLOAT16, 0, 0, false, PIXEL_GRAY, EINVAL, kNoImage},
      {"no bytes", 1, RKNN_INPUT_UINT8, 0, 0, false, PIXEL_BGR2RGB, EINVAL, kNoImage},
      {"not prepared", 1, RKNN_INPUT_INT8, 0, 0, true, PIXEL_BGR, ENOTSUP, ""},
      {"no kind", 1, kNoKind, 0, 0, true, PIXEL_BGR, ENOTSUP, ""},
      {"two inputs", 2, RKNN_INPUT_INT16, 0, 0, true, PIXEL_RGB, ENOTSUP, kTwoInputs},
      {"no input", 0, kFloat32, 0, 0, true, PIXEL_RGB, ENOTSUP, kNoInput},
      // Two faults at once: the first is reported.
      {"inputs before type", 2, kFloat32, 0, 0, true, 0, ENOTSUP, kTwoInputs},
      {"inputs before kind", 2, RKNN_INPUT_INT8, 0, 0, true, PIXEL_RGB, ENOTSUP, kTwoInputs},
      {"type before kind", 1, RKNN_INPUT_INT8, 0, 0, true, PIXEL_RGBA, EINVAL, kRgba},
      {"type before means", 1, kFloat32, 1, 0, true, PIXEL_RGBA, EINVAL, kRgba},
      {"kind before means", 1, kNoKind, 1, 0, true, PIXEL_BGR, ENOTSUP, ""},
      {"kind before image", 1, RKNN_INPUT_INT8, 0, 0, false, PIXEL_BGR, ENOTSUP, ""},
      {"means before scales", 1, kFloat32, 2, 1, true, PIXEL_RGB, EINVAL, kFewMeans},
      {"means before image", 1, kFloat32, 2, 0, false, PIXEL_RGB, EINVAL, kFewMeans},
      {"gray before image", 1, RKNN_INPUT_UINT8, 1, 0, false, PIXEL_GRAY, EINVAL, kGrayBytes},
  };
  const uint8_t pixels[12] = {};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    UseModel(std::vector<rknn_sim::Tensor>(row.inputs, Input(2, 2, 3)), {Output({300}, 9)});
    const auto backend =
        MakeBackend(row.kind, std::vector<float>(row.means), std::vector<float>(row.scales));
    ForgetCalls();
    ExpectFailure(*backend, row.has_image ? pixels : nullptr, row.pixel_type, 2, 2, row.line,
                  row.reason);
    EXPECT_EQ(Calls(), "");
  }
}

TEST_F(ForwardFailuresTest, ReportsTheRuntimesFailuresAndCallsNothingAfterThem) {
  const std::pair<Function, std::string> rows[] = {
      {Function::kInputsSet, "inputs_set"},
      {Function::kRun, "inputs_set run"},
      {Function::kOutputsGet, "inputs_set run outputs_get"}};
  const uint8_t pixels[3] = {};
  for (const auto& row : rows) {
    for (RKNNInputType kind : {RKNN_INPUT_FLOAT32, RKNN_INPUT_UINT8}) {
      UseModel({Input(1, 1, 3)}, {Output({300}, 4)});
      const auto backend = MakeBackend(kind);
      ForgetCalls();
      rknn_sim::ReturnAt(row.first, rknn_sim::kEveryCall, -7);
      ExpectFailure(*backend, pixels, PIXEL_RGB, 1, 1,
                    "ERROR: " + std::string(NameOf(row.first)) + " failed. [ret=-7]\n", EIO);
      EXPECT_EQ(CallNames(), row.second + ' ' + row.second + ' ' + row.second + ' ' + row.second);
    }
  }
}

TEST_F(ForwardFailuresTest, RefusesANullVector) {
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_INT8);
  ForgetCalls();
  testing::internal::CaptureStderr();
  errno = 0;
  backend->Forward(nullptr, PIXEL_RGBA, 1, 1, nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(WithoutLine(testing::internal::GetCapturedStderr()),
            std::string(kPrefix) + "ERROR: no outputs vector. [outputs=null]\n");
  EXPECT_EQ(Calls(), "");
}

TEST_F(ForwardFailuresTest, ThrowsForSizesThatAreNoArrayLengthBeforeReadingTheImage) {
  constexpr int kMaxFloatPixels = 357913941;   // 3 floats each: less than 4 GiB
  constexpr int kMaxColourPixels = 715827882;  // 3 elements each: at most 2^31 - 1
  struct {
    RKNNInputType kind;
    int pixel_type, width, height;
    bool throws;
  } const rows[] = {
      {RKNN_INPUT_FLOAT32, PIXEL_RGB, 20000, 20000, true},
      {RKNN_INPUT_FLOAT32, PIXEL_RGB, kMaxFloatPixels + 1, 1, true},
      {RKNN_INPUT_FLOAT32, PIXEL_RGB, kMaxFloatPixels, 1, false},
      {RKNN_INPUT_FLOAT32, PIXEL_GRAY, (1 << 30) - 1, 1, false},
      {RKNN_INPUT_FLOAT16, PIXEL_RGB, 1, kMaxColourPixels, false},
      {RKNN_INPUT_INT16, PIXEL_RGB, 26755, 26755, true},
      {RKNN_INPUT_INT16, PIXEL_GRAY, INT_MAX, 1, false},
      {RKNN_INPUT_UINT8, PIXEL_BGR, kMaxColourPixels + 1, 1, true},
      {RKNN_INPUT_UINT8, PIXEL_BGR, kMaxColourPixels, 1, false},
      {RKNN_INPUT_UINT8, PIXEL_GRAY, INT_MAX, 2, true},  // before the channels are refused
      {RKNN_INPUT_INT16, PIXEL_RGB, -1, 1, true},
      {RKNN_INPUT_FLOAT16, PIXEL_RGB, INT_MIN, 1, true},
      {RKNN_INPUT_UINT8, PIXEL_RGB, INT_MIN, INT_MIN, true},
      {RKNN_INPUT_UINT8, PIXEL_RGB, 65536, 65536, true},  // 0 in 32 bits
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.kind << ": " << row.width << " x " << row.height);
    UseModel({Input(1, 1, 3)}, {Output({3}, 9)});
    const auto backend = MakeBackend(row.kind);
    ForgetCalls();
    bool threw = false;
    errno = 0;
    testing::internal::CaptureStderr();
    try {
      backend->Forward(nullptr, row.pixel_type, row.width, row.height, &outputs_);
    } catch (const std::bad_array_new_length&) {
      threw = true;
    }
    EXPECT_EQ(errno, row.throws ? ENOMEM : EINVAL);  // EINVAL: there is no image
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(threw, row.throws);
    EXPECT_THAT(Floats(outputs_.at(0)), Each(IsNan()));
    EXPECT_EQ(Calls(), "");
  }
}

TEST_F(ForwardFailuresTest, AFailedAllocationLeaksNothingAndFreesTheLock) {
  UseModel({Input(1, 1, 3)}, {Output({3}, 9), Output({4}, 9)});
  for (RKNNInputType kind :
       {RKNN_INPUT_FLOAT32, RKNN_INPUT_FLOAT16, RKNN_INPUT_INT16, RKNN_INPUT_UINT8}) {
    const auto backend = MakeBackend(kind);
    const uint8_t image[3] = {};
    std::vector<OutputTensor> outputs;
    const long live_before = AllocationsLive();
    const long failures = FailEachAllocation(
        [&] {
          errno = 0;
          backend->Forward(image, PIXEL_RGB, 1, 1, &outputs);
          std::vector<OutputTensor>().swap(outputs);
        },
        [&](long nth, bool threw, long) {
          EXPECT_EQ(errno, ENOMEM) << nth;
          EXPECT_TRUE(threw) << nth;
          for (const OutputTensor& output : outputs) {
            EXPECT_EQ(std::count_if(output.data, output.data + output.count,
                                    [](float value) { return std::isnan(value); }),
                      static_cast<long>(output.count))
                << nth;
          }
          std::thread([&] {  // would wait forever for a lock that was kept
            std::vector<OutputTensor> others;
            EXPECT_TRUE(TryForward(*backend, image, PIXEL_RGB, 1, 1, &others));
          })
              .join();
          std::vector<OutputTensor>().swap(outputs);
          EXPECT_EQ(AllocationsLive(), live_before) << nth;
        });
    EXPECT_EQ(failures, 5);
  }
}

TEST_F(ForwardFailuresTest, WritesItsLineAtOnceOrNotAtAll) {
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32);
  sigset_t sigpipe, mask, pending;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  {
    const WriteProbe probe(2);
    errno = 0;
    EXPECT_FALSE(TryForward(*backend, nullptr, PIXEL_RGBA, 1, 1, &outputs_));
    const std::vector<std::string> writes = probe.Writes();
    EXPECT_EQ(writes.size(), 1u) << "lines of parallel threads would mix";
    probe.StopReading();
    EXPECT_FALSE(TryForward(*backend, nullptr, PIXEL_RGBA, 1, 1, &outputs_));  // no SIGPIPE
    EXPECT_EQ(errno, EINVAL);
    // A signal that the caller holds back stays pending, and stays blocked.
    pthread_sigmask(SIG_BLOCK, &sigpipe, &mask);
    raise(SIGPIPE);
    EXPECT_FALSE(TryForward(*backend, nullptr, PIXEL_RGBA, 1, 1, &outputs_));
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
    const timespec no_wait = {};
    EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &no_wait), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &mask, &pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
  }
  std::clearerr(stderr);
  EXPECT_EQ(Forward(*backend, {}, PIXEL_RGBA, 1, 1),
            std::string(kPrefix) + "Unexpected pixel type. [type='PIXEL_RGBA']\n");
}

TEST_F(ForwardFailuresTest, EveryThreadSeesItsOwnFailures) {
  UseModel({Input(1, 1, 3)}, {Output({300}, 3)});
  const auto shared = MakeBackend(RKNN_INPUT_UINT8), unprepared = MakeBackend(RKNN_INPUT_INT8);
  struct {
    Backend_<float>* backend;
    int pixel_type, error;
  } const rows[] = {{shared.get(), PIXEL_RGB, EDOM},  // a success leaves it
                    {shared.get(), PIXEL_RGBA, EINVAL},
                    {unprepared.get(), PIXEL_RGB, ENOTSUP},
                    {shared.get(), PIXEL_GRAY, EINVAL}};
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&row = rows[t % 4]] {
      const uint8_t image[3] = {};
      std::vector<OutputTensor> outputs;
      for (int frame = 0; frame < 100; ++frame) {
        errno = EDOM;
        row.backend->Forward(image, row.pixel_type, 1, 1, &outputs);
        EXPECT_EQ(errno, row.error);
        const bool is_nan = std::isnan(outputs.at(0).data[299]);
        EXPECT_EQ(is_nan, row.error != EDOM);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace corvane
