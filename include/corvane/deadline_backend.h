// A backend that keeps its caller no longer than a deadline, for runtimes that may hang.
//
//   corvane::DeadlineBackend backend(
//       [] { return corvane::InitBackend("face.bin", "", {}, means, scales, kind); },
//       std::chrono::milliseconds(100));
//   std::vector<corvane::OutputTensor> outputs;
//   switch (backend.Forward(pixels, corvane::PIXEL_BGR2RGB, 112, 112, &outputs)) {
//     case corvane::DeadlineBackend::kDone: Use(outputs); break;
//     case corvane::DeadlineBackend::kGivenUp: RestartTheBoard(); break;
//     default: break;  // drop the frame
//   }
//
// Neither the library nor the runtime has a time limit: where the NPU or its driver hangs, Forward
// never returns, and nothing can make a thread leave it. So a worker thread makes and owns the
// backend, and the caller waits for it until the deadline, then drops the frame. A worker that is
// late for several frames in a row is replaced together with its backend.
//
// What leaks then: the replaced worker keeps its thread, its backend with the runtime's context and
// the model's bytes, and one image, for as long as the runtime keeps it. It must: the runtime may
// still read the model and write the outputs, and a context cannot be destroyed during a call. If
// the call returns after all, the worker drops the result, destroys its backend and ends, and
// nothing has leaked. At most max_stuck workers are left in this state; then Forward gives up
// at once, until one of them returns. A hung driver seldom recovers by itself: restart the process,
// and where that hangs or does not help, the board.
//
// Header-only, C++11; link with -pthread. Costs one copy of the image and two thread switches a
// frame.
#ifndef CORVANE_DEADLINE_BACKEND_H_
#define CORVANE_DEADLINE_BACKEND_H_

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "corvane/backend.h"

namespace corvane {

// Forward with a deadline. Thread-safe, but for the destructor.
class DeadlineBackend {
 public:
  // What became of a frame.
  enum Result {
    kDone,       // *outputs has every output
    kFailed,     // Forward failed: its records, all NaN, are in *outputs, and errno has the reason
    kLate,       // the deadline has passed; the frame is dropped and *outputs empty
    kNoBackend,  // make has failed, errno has the reason; the next call tries again
    kGivenUp,    // max_stuck workers hang in the runtime; nothing was tried
  };

  // make:      returns a new backend, or throws or returns null. Called in a thread of its own, at
  //            the first Forward and for each replacement, so what it refers to must live as long
  //            as the process.
  // deadline:  for each Forward, from its call on, also while the backend is still being made: the
  //            frames until then are late.
  // late_frames: after so many in a row (at least 1) the worker is replaced, unless it has been
  //            making its backend for less than load_time.
  explicit DeadlineBackend(std::function<std::unique_ptr<Backend_<float>>()> make,
                           std::chrono::milliseconds deadline, int late_frames = 3,
                           int max_stuck = 2,
                           std::chrono::milliseconds load_time = std::chrono::seconds(30))
      : make_(std::move(make)),
        deadline_(deadline),
        late_frames_(late_frames),
        max_stuck_(max_stuck),
        load_time_(load_time),
        stuck_(std::make_shared<Stuck>()) {}
  DeadlineBackend(const DeadlineBackend&) = delete;
  DeadlineBackend& operator=(const DeadlineBackend&) = delete;

  // Waits for the worker to destroy its backend, but no longer than a deadline. Not while Forward
  // runs.
  ~DeadlineBackend() {
    if (!worker_) return;
    Worker& worker = *worker_;
    std::unique_lock<std::mutex> lock(worker.mutex);
    worker.is_dismissed = true;
    worker.changed.notify_all();
    worker.changed.wait_until(lock, Clock::now() + deadline_, [&] { return worker.has_ended; });
  }

  // As Backend_::Forward, but for the result; the image is copied. Calls take turns, within their
  // deadlines. Throws what has no room for the copy or the thread; the object is then as before.
  Result Forward(const uint8_t* image, int pixel_type, int width, int height,
                 std::vector<OutputTensor>* outputs) {
    const Result result = Try(image, pixel_type, width, height, outputs);
    if (result != kDone && result != kFailed && outputs != nullptr) outputs->clear();
    return result;
  }

  // Workers that the runtime keeps at this moment, each with its backend.
  int stuck() const { return stuck_->Count(); }

 private:
  using Clock = std::chrono::steady_clock;
  using Make = std::function<std::unique_ptr<Backend_<float>>()>;
  enum State { kMaking, kNotMade, kIdle, kRunning };

  struct Turns {
    std::mutex mutex;
    std::condition_variable changed;
    bool is_taken = false;
  };
  class Turn {
   public:
    Turn(Turns* turns, Clock::time_point until) : turns_(turns) {
      std::unique_lock<std::mutex> lock(turns_->mutex);
      is_taken_ = turns_->changed.wait_until(lock, until, [&] { return !turns_->is_taken; });
      if (is_taken_) turns_->is_taken = true;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
      if (!is_taken_) return;
      const std::lock_guard<std::mutex> lock(turns_->mutex);
      turns_->is_taken = false;
      turns_->changed.notify_one();
    }
    bool is_taken() const { return is_taken_; }

   private:
    Turns* const turns_;
    bool is_taken_ = false;
  };

  // Counts the replaced workers; outlives them and the object.
  class Stuck {
   public:
    void Add(int number) {
      const std::lock_guard<std::mutex> lock(mutex_);
      count_ += number;
    }
    int Count() const {
      const std::lock_guard<std::mutex> lock(mutex_);
      return count_;
    }

   private:
    mutable std::mutex mutex_;
    int count_ = 0;
  };

  // Shared by the object and the thread, as either may be gone first.
  struct Worker {
    std::mutex mutex;
    std::condition_variable changed;
    State state = kMaking;
    bool is_dismissed = false;  // ends as soon as the runtime lets it
    bool is_replaced = false;   // counted as stuck
    bool has_ended = false;
    const Clock::time_point started = Clock::now();
    std::vector<uint8_t> image;
    bool has_image = false, has_outputs = false;
    int pixel_type = 0, width = 0, height = 0;
    std::vector<OutputTensor> outputs;
    int error = 0;  // errno of the last failure
  };

  // Of an image that Forward may read; else 0.
  static std::size_t BytesOf(int pixel_type, int width, int height) {
    const int64_t pixels = int64_t{width} * height;
    const bool is_color = pixel_type == PIXEL_RGB || pixel_type == PIXEL_BGR ||
                          pixel_type == PIXEL_BGR2RGB || pixel_type == PIXEL_RGB2BGR;
    const int64_t bytes = pixels * (is_color ? 3 : pixel_type == PIXEL_GRAY ? 1 : 0);
    return bytes > 0 && bytes <= INT32_MAX ? static_cast<std::size_t>(bytes) : 0;
  }

  Result Try(const uint8_t* image, int pixel_type, int width, int height,
             std::vector<OutputTensor>* outputs) {
    const Clock::time_point until = Clock::now() + deadline_;
    const Turn turn(&turns_, until);
    if (!turn.is_taken()) return kLate;
    if (!worker_) {
      if (stuck_->Count() >= max_stuck_) return kGivenUp;
      Start();
    }
    const std::shared_ptr<Worker> kept = worker_;
    Worker& worker = *kept;
    std::unique_lock<std::mutex> lock(worker.mutex);
    const auto is_ready = [&] { return worker.state != kMaking && worker.state != kRunning; };
    if (!worker.changed.wait_until(lock, until, is_ready)) return DropFrame(&worker);
    if (worker.state == kNotMade) {
      errno = worker.error;
      worker_.reset();
      return kNoBackend;
    }
    const std::size_t bytes = BytesOf(pixel_type, width, height);
    worker.image.assign(image, image + (image == nullptr ? 0 : bytes));
    worker.has_image = image != nullptr;
    worker.has_outputs = outputs != nullptr;
    worker.pixel_type = pixel_type;
    worker.width = width;
    worker.height = height;
    worker.state = kRunning;
    worker.changed.notify_all();
    if (!worker.changed.wait_until(lock, until, is_ready)) return DropFrame(&worker);
    late_in_a_row_ = 0;
    if (outputs != nullptr) outputs->swap(worker.outputs);
    if (worker.error == 0) return kDone;
    errno = worker.error;
    return kFailed;
  }

  void Start() {
    const std::shared_ptr<Worker> worker = std::make_shared<Worker>();
    const Make make = make_;
    const std::shared_ptr<Stuck> stuck = stuck_;
    std::thread([worker, make, stuck] { Work(worker.get(), make, stuck.get()); }).detach();
    worker_ = worker;
    late_in_a_row_ = 0;
  }

  // The worker's mutex is held.
  Result DropFrame(Worker* worker) {
    const bool is_loading = worker->state == kMaking && Clock::now() < worker->started + load_time_;
    if (is_loading || ++late_in_a_row_ < late_frames_) return kLate;
    worker->is_dismissed = true;
    worker->is_replaced = true;
    stuck_->Add(1);
    worker_.reset();
    return kLate;
  }

#if defined(__cpp_exceptions)
  template <typename Call>
  static int ErrorOf(Call call) {
    errno = 0;
    try {
      return call() ? 0 : errno != 0 ? errno : EIO;
    } catch (...) {
      return errno != 0 ? errno : ENOMEM;
    }
  }
#else
  template <typename Call>
  static int ErrorOf(Call call) {
    errno = 0;
    return call() ? 0 : errno != 0 ? errno : EIO;
  }
#endif

  static void Work(Worker* worker, const Make& make, Stuck* stuck) {
    std::unique_ptr<Backend_<float>> backend;
    const int error = ErrorOf([&] {
      backend = make();
      return backend != nullptr;
    });
    std::unique_lock<std::mutex> lock(worker->mutex);
    worker->error = error;
    worker->state = error == 0 ? kIdle : kNotMade;
    while (error == 0) {
      worker->changed.notify_all();
      worker->changed.wait(lock, [&] { return worker->is_dismissed || worker->state == kRunning; });
      if (worker->is_dismissed) break;
      lock.unlock();
      const int failed = ErrorOf([&] {
        static const uint8_t no_pixels = 0;
        const uint8_t* const image = !worker->has_image      ? nullptr
                                     : worker->image.empty() ? &no_pixels
                                                             : worker->image.data();
        return TryForward(*backend, image, worker->pixel_type, worker->width, worker->height,
                          worker->has_outputs ? &worker->outputs : nullptr);
      });
      lock.lock();
      worker->error = failed;
      worker->state = kIdle;
    }
    lock.unlock();
    backend.reset();
    lock.lock();
    worker->has_ended = true;
    worker->changed.notify_all();
    if (worker->is_replaced) stuck->Add(-1);
  }

  const Make make_;
  const std::chrono::milliseconds deadline_;
  const int late_frames_, max_stuck_;
  const std::chrono::milliseconds load_time_;
  const std::shared_ptr<Stuck> stuck_;
  Turns turns_;
  std::shared_ptr<Worker> worker_;  // null: none yet, or the last was replaced
  int late_in_a_row_ = 0;
};

}  // namespace corvane

#endif  // CORVANE_DEADLINE_BACKEND_H_
