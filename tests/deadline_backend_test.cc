// The backend with a deadline, on a runtime that hangs when told to.
#include "corvane/deadline_backend.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/runtime_fixture.h"

namespace {

using corvane::DeadlineBackend;
using rknn_sim::Function;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kShort(150);
constexpr milliseconds kLong(20000);  // where nothing hangs

// Calls of the runtime that wait in here do not return until they are told to.
class Gate {
 public:
  void Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++waiting_;
    changed_.wait(lock, [this] { return is_open_; });
    --waiting_;
  }
  void Open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_open_ = true;
    changed_.notify_all();
  }
  void Close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_open_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool is_open_ = false;
  int waiting_ = 0;
};

class DeadlineBackendTest : public corvane_test::RuntimeTest {
 protected:
  // One gray pixel in, the same number out.
  void SetUp() override {
    rknn_sim::Tensor output = Output({1, 1, 1, 1});
    output.echo_input = 0;
    output.values.clear();
    UseModel({Input(1, 1, 1)}, {output});
    rknn_sim::SetRecording(false);
  }
  // A hook must not outlive what it waits for.
  void TearDown() override {
    gate_.Open();
    EXPECT_TRUE(Becomes([] { return rknn_sim::LiveContexts() == 0; }));
    RuntimeTest::TearDown();
  }

  template <typename Condition>
  static bool Becomes(Condition condition) {
    for (const auto until = steady_clock::now() + kLong; !condition();) {
      if (steady_clock::now() > until) return false;
      std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
  }

  void HangAt(Function function, uint64_t nth) {
    rknn_sim::HookAt(function, nth, [this](const rknn_sim::Call&) { gate_.Wait(); });
  }

  std::function<std::unique_ptr<corvane::Backend_<float>>()> Make() const {
    return [this] {
      return corvane::InitBackend(model_file_.path(), "", {}, {}, {}, corvane::RKNN_INPUT_FLOAT32);
    };
  }

  DeadlineBackend::Result Run(DeadlineBackend* backend, uint8_t pixel) {
    return backend->Forward(&pixel, corvane::PIXEL_GRAY, 1, 1, &outputs_);
  }
  // Whether the frame gave its own answer.
  bool Answers(DeadlineBackend* backend, uint8_t pixel) {
    return Run(backend, pixel) == DeadlineBackend::kDone && IsAnswer(pixel);
  }

  bool IsAnswer(float number) const {
    return outputs_.size() == 1 && outputs_[0].count == 1 && outputs_[0].data[0] == number;
  }

  Gate gate_;
};

TEST_F(DeadlineBackendTest, GivesWhatForwardGives) {
  DeadlineBackend backend(Make(), kLong);
  for (int pixel : {7, 200}) EXPECT_TRUE(Answers(&backend, uint8_t(pixel)));
  // In the thread that runs it, errors are the caller's.
  const uint8_t pixels[4] = {1, 2, 3, 4};
  const struct {
    const uint8_t* image;
    int pixel_type, width, height, error;
  } rows[] = {
      {nullptr, corvane::PIXEL_GRAY, 1, 1, EINVAL},
      {pixels, corvane::PIXEL_RGBA, 1, 1, EINVAL},
      {pixels, 99, 1, 1, EINVAL},
      {pixels, corvane::PIXEL_RGB, -1, 1, ENOMEM},
      {pixels, corvane::PIXEL_RGB, 40000, 40000, ENOMEM},
  };
  for (const auto& row : rows) {
    errno = 0;
    EXPECT_EQ(backend.Forward(row.image, row.pixel_type, row.width, row.height, &outputs_),
              DeadlineBackend::kFailed);
    EXPECT_EQ(errno, row.error) << row.pixel_type << ' ' << row.width;
  }
  errno = 0;
  EXPECT_EQ(backend.Forward(pixels, corvane::PIXEL_GRAY, 1, 1, nullptr), DeadlineBackend::kFailed);
  EXPECT_EQ(errno, EINVAL);
  // Only their product counts; the image may lie in the last outputs.
  EXPECT_TRUE(Answers(&backend, 5));
  const auto* const inside = reinterpret_cast<const uint8_t*>(outputs_[0].data);
  const uint8_t expected = inside[3];  // of the bits of 5.0f
  EXPECT_EQ(backend.Forward(inside + 3, corvane::PIXEL_GRAY, -1, -1, &outputs_),
            DeadlineBackend::kDone);
  EXPECT_TRUE(IsAnswer(expected));
  rknn_sim::ReturnAt(Function::kRun, rknn_sim::kEveryCall, RKNN_ERR_TIMEOUT);
  EXPECT_EQ(Run(&backend, 1), DeadlineBackend::kFailed);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(outputs_.size(), 1u);
  EXPECT_EQ(backend.stuck(), 0);
}

TEST_F(DeadlineBackendTest, DropsALateFrameAndItsAnswer) {
  DeadlineBackend backend(Make(), kShort, 3);
  ASSERT_TRUE(Becomes([&] { return Answers(&backend, 1); }));
  HangAt(Function::kOutputsGet, rknn_sim::CallCount(Function::kOutputsGet) + 1);
  for (int frame = 0; frame < 2; ++frame) {
    const auto start = steady_clock::now();
    EXPECT_EQ(Run(&backend, 2), DeadlineBackend::kLate);
    EXPECT_GE(steady_clock::now() - start, kShort);
    EXPECT_TRUE(outputs_.empty());
  }
  gate_.Open();
  EXPECT_TRUE(Becomes([&] { return Answers(&backend, 3); }));
  EXPECT_EQ(backend.stuck(), 0);
  EXPECT_EQ(rknn_sim::CallCount(Function::kInit), 1u);
}

TEST_F(DeadlineBackendTest, ReplacesWhatHangsUntilTooManyDo) {
  DeadlineBackend backend(Make(), kShort, 2, 2);
  for (int stuck = 0; stuck < 2; ++stuck) {
    ASSERT_TRUE(Becomes([&] { return Answers(&backend, 9); }));
    EXPECT_EQ(backend.stuck(), stuck);
    EXPECT_EQ(rknn_sim::LiveContexts(), std::size_t(stuck + 1));
    HangAt(Function::kRun, rknn_sim::CallCount(Function::kRun) + 1);
    for (int frame = 0; frame < 2; ++frame) EXPECT_EQ(Run(&backend, 1), DeadlineBackend::kLate);
  }
  outputs_.resize(1);
  EXPECT_EQ(Run(&backend, 1), DeadlineBackend::kGivenUp);
  EXPECT_TRUE(outputs_.empty());
  EXPECT_EQ(backend.stuck(), 2);
  gate_.Open();
  EXPECT_TRUE(Becomes([&] { return backend.stuck() == 0 && rknn_sim::LiveContexts() == 0; }));
  EXPECT_TRUE(Becomes([&] { return Answers(&backend, 4); }));
}

TEST_F(DeadlineBackendTest, WaitsLongerForABackendThatIsBeingMade) {
  HangAt(Function::kInit, 1);
  DeadlineBackend patient(Make(), milliseconds(10), 1, 2, kLong);
  for (int frame = 0; frame < 5; ++frame) EXPECT_EQ(Run(&patient, 1), DeadlineBackend::kLate);
  EXPECT_EQ(patient.stuck(), 0);
  DeadlineBackend backend(Make(), milliseconds(10), 1, 2, milliseconds(0));
  HangAt(Function::kInit, 2);
  EXPECT_EQ(Run(&backend, 1), DeadlineBackend::kLate);
  EXPECT_EQ(backend.stuck(), 1);
  gate_.Open();
  EXPECT_TRUE(Becomes([&] { return backend.stuck() == 0; }));
}

TEST_F(DeadlineBackendTest, TriesAgainWhereNoBackendCouldBeMade) {
  rknn_sim::ReturnAt(Function::kInit, 1, RKNN_ERR_DEVICE_UNAVAILABLE);
  DeadlineBackend backend(Make(), kLong);
  EXPECT_EQ(Run(&backend, 1), DeadlineBackend::kNoBackend);
  EXPECT_EQ(errno, EIO);
  EXPECT_TRUE(Answers(&backend, 1));
  DeadlineBackend null([] { return std::unique_ptr<corvane::Backend_<float>>(); }, kLong);
  EXPECT_EQ(Run(&null, 1), DeadlineBackend::kNoBackend);
  EXPECT_EQ(errno, EIO);
}

TEST_F(DeadlineBackendTest, EndsInTimeWithAHungWorker) {
  const auto start = steady_clock::now();
  {
    DeadlineBackend backend(Make(), kShort, 9);
    ASSERT_TRUE(Becomes([&] { return Answers(&backend, 1); }));
    HangAt(Function::kRun, rknn_sim::CallCount(Function::kRun) + 1);
    EXPECT_EQ(Run(&backend, 1), DeadlineBackend::kLate);
    // Another caller's turn is within its own deadline, too.
    std::thread other([&] { EXPECT_EQ(Run(&backend, 2), DeadlineBackend::kLate); });
    other.join();
  }
  EXPECT_LT(steady_clock::now() - start, kLong);
}

// Of which every 500th hangs, and comes back while later ones run.
TEST_F(DeadlineBackendTest, GivesEachOfManyFramesItsOwnAnswerOrNone) {
  std::atomic<int> runs{0};
  rknn_sim::HookAt(Function::kRun, rknn_sim::kEveryCall, [&](const rknn_sim::Call&) {
    if (++runs % 500 == 0) gate_.Wait();
  });
  int done = 0, late = 0, given_up = 0;
  {
    DeadlineBackend backend(Make(), kShort, 1, 50);  // never given up
    for (int frame = 0; frame < 10000; ++frame) {
      const uint8_t pixel = uint8_t(frame);
      switch (Run(&backend, pixel)) {
        case DeadlineBackend::kDone:
          ++done;
          ASSERT_TRUE(IsAnswer(pixel)) << frame;
          break;
        case DeadlineBackend::kLate:
          ++late;
          break;
        default:
          ++given_up;
          break;
      }
      if (frame % 1700 == 1699) gate_.Open();
      if (frame % 1700 == 300) gate_.Close();
    }
  }
  EXPECT_EQ(done + late + given_up, 10000);
  EXPECT_GE(late, 5);
  EXPECT_GT(done, 9000);
}

}  // namespace
