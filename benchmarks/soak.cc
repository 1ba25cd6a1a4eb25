// Many backends on many threads with faults at random moments: soak [SECONDS]
//
// Threads create, run and destroy backends of every input kind, of their own and shared ones, while
// another thread schedules error codes, delays and positive codes for calls to come, and while
// allocations fail. Every Forward must agree with itself: after a success errno is as it was and
// the outputs are right; after a failure errno has the reason and every float is a NaN. Exits with
// 1 on a call that does not agree, a misuse of the runtime, or a context or an allocation left
// over. A watchdog aborts when nothing has moved for kPatience.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "control.h"
#include "corvane/backend.h"
#include "tests/support/allocation_faults.h"

namespace {

using Clock = std::chrono::steady_clock;
using rknn_sim::Function;
using Backend = corvane::Backend_<float>;

constexpr int kThreads = 8;
constexpr std::size_t kOwnBackends = 6;  // of each thread
constexpr std::size_t kSharedBackends = 4;
constexpr int kWidth = 6, kHeight = 4;
constexpr int kErrnoAtCall = EDOM;  // no call of this program sets it
constexpr std::chrono::seconds kPatience{30};

struct Kind {
  corvane::RKNNInputType input_type;
  int channels;
  const char* input;  // of the model
};
constexpr Kind kKinds[] = {
    {corvane::RKNN_INPUT_FLOAT32, 3, "float32 1x3x4x6"},
    {corvane::RKNN_INPUT_FLOAT32, 1, "float32 1x1x4x6"},
    {corvane::RKNN_INPUT_FLOAT16, 3, "float16 1x3x4x6"},
    {corvane::RKNN_INPUT_INT16, 3, "int16 1x3x4x6 fl=6"},
    {corvane::RKNN_INPUT_INT8, 3, "int8 1x3x4x6"},
    {corvane::RKNN_INPUT_UINT8, 3, "float32 1x3x4x6"},
};
constexpr std::size_t kKindCount = sizeof(kKinds) / sizeof(kKinds[0]);
constexpr float kMean = 127.5f, kScale = 0.125f;  // exact in every kind
constexpr float kScore = 0.25f;

// What the model's first output repeats of an image whose bytes all have this value.
float Echo(const Kind& kind, uint8_t byte) {
  if (kind.input_type == corvane::RKNN_INPUT_UINT8) return byte;
  return (static_cast<float>(byte) - kMean) * kScale;
}

class ModelFile {
 public:
  explicit ModelFile(const char* input) {
    const int file = mkstemp(path_);
    const std::string text = std::string("0123456789ab\nCORVANE-SIM\ninput data ") + input +
                             "\noutput echo float32 1x12 echo=0\noutput score float32 1x5 values=" +
                             std::to_string(kScore) + "\n";
    const ssize_t written = write(file, text.data(), text.size());
    close(file);
    if (written == static_cast<ssize_t>(text.size())) return;
    std::fprintf(stderr, "soak: cannot write %s\n", path_);
    std::exit(2);
  }
  ModelFile(const ModelFile&) = delete;
  ModelFile& operator=(const ModelFile&) = delete;
  ~ModelFile() { unlink(path_); }
  const char* path() const { return path_; }

 private:
  char path_[32] = "/tmp/corvane_soak_XXXXXX";
};

struct Counts {
  std::atomic<uint64_t> inits{0}, failed_inits{0}, forwards{0}, checked_outputs{0};
  std::atomic<uint64_t> failed_allocations{0}, codes_ordered{0}, delays_ordered{0};
  std::atomic<uint64_t> failed_calls{0}, failed_forwards{0}, misuses{0}, wrong_results{0};
};

// Standard error becomes a pipe whose lines are counted; standard output is dropped.
class Diagnostics {
 public:
  explicit Diagnostics(Counts* counts) : counts_(counts), out_(dup(1)), err_(dup(2)) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    from_ = ends[0];
    std::fflush(stdout);
    Replace(ends[1], 2);
    Replace(open("/dev/null", O_WRONLY), 1);
    thread_ = std::thread([this] { Count(); });
  }
  Diagnostics(const Diagnostics&) = delete;
  Diagnostics& operator=(const Diagnostics&) = delete;
  ~Diagnostics() {
    std::fflush(stdout);
    Replace(out_, 1);
    Replace(err_, 2);  // the pipe's last writer: the reader ends
    thread_.join();
    close(from_);
  }
  int original_stderr() const { return err_; }

 private:
  static void Replace(int by, int descriptor) {
    dup2(by, descriptor);
    close(by);
  }
  void Count() {
    char line[256];
    std::size_t used = 0;
    char bytes[4096];
    for (ssize_t n; (n = read(from_, bytes, sizeof(bytes))) > 0;) {
      for (ssize_t i = 0; i < n; ++i) {
        if (bytes[i] != '\n') {
          if (used + 1 < sizeof(line)) line[used++] = bytes[i];
          continue;
        }
        line[used] = 0;
        CountLine(line);
        used = 0;
      }
    }
  }
  void CountLine(const char* line) {
    if (std::strstr(line, "[ret=") != nullptr && std::strncmp(line, "rknn simulator:", 15) != 0) {
      ++counts_->failed_calls;
    } else if (std::strncmp(line, "failed to ", 10) != 0) {
      // A misuse, or an unexpected line such as a sanitizer's report.
      if (++counts_->misuses <= 100) dprintf(err_, "soak: unexpected line: %s\n", line);
    }
  }

  Counts* counts_;
  const int out_, err_;
  int from_ = -1;
  std::thread thread_;
};

// Whether this thread's Forward has released its outputs: then it must succeed. Not set in the
// moment between two sets of rules, so the opposite proves nothing.
thread_local bool has_released = false;

void WatchReleases() {
  rknn_sim::HookAt(Function::kOutputsRelease, rknn_sim::kEveryCall,
                   [](const rknn_sim::Call&) { has_released = true; });
}

bool AreNan(const std::vector<corvane::OutputTensor>& outputs) {
  return std::all_of(outputs.begin(), outputs.end(), [](const corvane::OutputTensor& output) {
    return std::all_of(output.data, output.data + output.count,
                       [](float value) { return std::isnan(value); });
  });
}

class Soak {
 public:
  explicit Soak(Counts* counts) : counts_(counts) {
    for (const Kind& kind : kKinds) files_.emplace_back(new ModelFile(kind.input));
  }

  void Run(std::chrono::seconds duration, int original_stderr) {
    const Clock::time_point end = Clock::now() + duration;
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < kThreads; ++i) {
      workers.emplace_back([this, end, i] { Work(end, i + 1); });
    }
    std::thread faults([this] { OrderFaults(); });
    std::thread watchdog([this, original_stderr] { Watch(original_stderr); });
    for (std::thread& worker : workers) worker.join();
    for (Shared& shared : shared_) {
      shared.backend.reset();  // while faults are still scheduled
      ++steps_;
    }
    is_over_ = true;
    faults.join();
    watchdog.join();
  }

  // One pass without faults, so that what the libraries keep for good has been allocated.
  void WarmUp() {
    std::mt19937 random(0);
    std::vector<corvane::OutputTensor> outputs;
    for (std::size_t kind = 0; kind < kKindCount; ++kind) {
      const std::unique_ptr<Backend> backend = Make(kind);
      if (backend != nullptr) Forward(backend.get(), kind, &random, &outputs);
    }
  }

 private:
  struct Own {
    std::unique_ptr<Backend> backend;
    std::size_t kind = 0;
  };
  struct Shared {
    std::mutex mutex;
    std::shared_ptr<Backend> backend;
    std::size_t kind = 0;
  };

  std::unique_ptr<Backend> Make(std::size_t kind) {
    const Kind& made = kKinds[kind];
    const auto channels = static_cast<std::size_t>(made.channels);
    ++counts_->inits;
    try {
      return corvane::InitBackend(files_[kind]->path(), "", {}, std::vector<float>(channels, kMean),
                                  std::vector<float>(channels, kScale), made.input_type);
    } catch (const std::runtime_error&) {
      ++counts_->failed_inits;
    } catch (const std::bad_alloc&) {
      ++counts_->failed_inits;
    }
    return nullptr;
  }

  void Forward(Backend* backend, std::size_t kind, std::mt19937* random,
               std::vector<corvane::OutputTensor>* outputs) {
    uint8_t image[3 * kWidth * kHeight];
    const auto byte = static_cast<uint8_t>((*random)() >> 8);
    std::memset(image, byte, sizeof(image));
    const int pixel_type = kKinds[kind].channels == 1 ? corvane::PIXEL_GRAY
                           : byte % 2 == 0            ? corvane::PIXEL_BGR
                                                      : corvane::PIXEL_RGB2BGR;
    ++counts_->forwards;
    has_released = false;
    errno = kErrnoAtCall;
    bool threw = false;
    try {
      backend->Forward(image, pixel_type, kWidth, kHeight, outputs);
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    const int error = errno;
    bool agrees;
    if (error == kErrnoAtCall) {
      ++counts_->checked_outputs;
      agrees = !threw && IsRight(*outputs, Echo(kKinds[kind], byte));
    } else {
      ++counts_->failed_forwards;
      const bool is_unprepared = kKinds[kind].input_type == corvane::RKNN_INPUT_INT8;
      const int reason = threw ? ENOMEM : is_unprepared ? ENOTSUP : EIO;
      agrees = !has_released && error == reason && AreNan(*outputs);
    }
    if (!agrees) ++counts_->wrong_results;
  }

  static bool IsRight(const std::vector<corvane::OutputTensor>& outputs, float echo) {
    const auto has = [](const corvane::OutputTensor& output, uint64_t count, float wanted) {
      return output.count == count &&
             std::count(output.data, output.data + count, wanted) == static_cast<int64_t>(count);
    };
    return outputs.size() == 2 && has(outputs[0], 12, echo) && has(outputs[1], 5, kScore);
  }

  void Work(Clock::time_point end, unsigned seed) {
    std::mt19937 random(seed);
    Own own[kOwnBackends];
    std::vector<corvane::OutputTensor> outputs;
    while (Clock::now() < end) {
      ++steps_;
      const bool may_fail = random() % 16 == 0;
      if (may_fail) corvane_test::FailAllocation(1 + random() % 12);
      const auto choice = random() % 100;
      if (choice < 40) {
        Own& slot = own[random() % kOwnBackends];
        if (slot.backend != nullptr) Forward(slot.backend.get(), slot.kind, &random, &outputs);
      } else if (choice < 60) {
        std::size_t kind;
        const std::shared_ptr<Backend> backend = Borrow(random() % kSharedBackends, &kind);
        if (backend != nullptr) Forward(backend.get(), kind, &random, &outputs);
      } else if (choice < 80) {
        Own& slot = own[random() % kOwnBackends];
        slot.kind = random() % kKindCount;
        slot.backend = Make(slot.kind);
      } else if (choice < 90) {
        own[random() % kOwnBackends].backend.reset();
      } else if (choice < 98) {
        Exchange(random() % kSharedBackends, random() % kKindCount);
      } else {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 500));
      }
      if (may_fail) {
        if (corvane_test::AllocationHasFailed()) ++counts_->failed_allocations;
        corvane_test::FailAllocation(0);
      }
    }
  }

  std::shared_ptr<Backend> Borrow(std::size_t which, std::size_t* kind) {
    Shared& shared = shared_[which];
    const std::lock_guard<std::mutex> lock(shared.mutex);
    *kind = shared.kind;
    return shared.backend;
  }

  // The old backend is destroyed when the last thread that uses it drops it.
  void Exchange(std::size_t which, std::size_t kind) {
    std::shared_ptr<Backend> backend;
    try {
      backend = Make(kind);
    } catch (const std::bad_alloc&) {  // shared_ptr's own
      return;
    }
    Shared& shared = shared_[which];
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.kind = kind;
    shared.backend.swap(backend);
  }

  void OrderFaults() {
    std::mt19937 random(12345);
    while (!is_over_) {
      // Rules stay until Reset, so they are replaced after a few dozen.
      rknn_sim::Reset();
      WatchReleases();
      for (int i = 0; i < 40 && !is_over_; ++i) {
        const auto function = static_cast<Function>(random() % rknn_sim::kFunctionCount);
        const uint64_t nth = rknn_sim::CallCount(function) + 1 + random() % 20;
        if (random() % 4 == 0) {
          rknn_sim::DelayAt(function, nth, std::chrono::microseconds(random() % 3000));
          ++counts_->delays_ordered;
        } else {
          const int code = random() % 5 == 0 ? 3 : -1 - static_cast<int>(random() % 14);
          rknn_sim::ReturnAt(function, nth, code);
          ++counts_->codes_ordered;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    }
    rknn_sim::Reset();
  }

  void Watch(int original_stderr) {
    uint64_t last = 0;
    Clock::time_point moved = Clock::now();
    while (!is_over_) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      const uint64_t now = steps_;
      if (now != last) {
        last = now;
        moved = Clock::now();
      } else if (Clock::now() - moved > kPatience) {
        dprintf(original_stderr, "soak: a deadlock: nothing has moved for %d seconds\n",
                static_cast<int>(kPatience.count()));
        std::abort();
      }
    }
  }

  Counts* counts_;
  std::vector<std::unique_ptr<ModelFile>> files_;
  Shared shared_[kSharedBackends];
  std::atomic<uint64_t> steps_{0};
  std::atomic<bool> is_over_{false};
};

unsigned long long Number(const std::atomic<uint64_t>& count) { return count; }

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
  if (argc > 2 || seconds <= 0) {
    std::fprintf(stderr, "usage: soak [SECONDS]\n");
    return 2;
  }
  Counts counts;
  uint64_t unreported = 0;
  long leaked;
  {
    Soak soak(&counts);
    const Diagnostics diagnostics(&counts);
    soak.WarmUp();
    const long live_before = corvane_test::AllocationsLive();
    soak.Run(std::chrono::seconds(seconds), diagnostics.original_stderr());
    leaked = corvane_test::AllocationsLive() - live_before;
    unreported = rknn_sim::MisuseCount();
  }
  const std::size_t contexts = rknn_sim::LiveContexts();
  std::printf(
      "soak: %d s, %d threads: %llu InitBackend (%llu failed), %llu Forward (%llu ran, "
      "%llu failed)\n"
      "soak: ordered %llu codes, %llu delays; met %llu failed calls, %llu failed allocations\n"
      "soak: left over: %zu contexts, %ld allocations; %llu wrong results, %llu misuses\n",
      seconds, kThreads, Number(counts.inits), Number(counts.failed_inits), Number(counts.forwards),
      Number(counts.checked_outputs), Number(counts.failed_forwards), Number(counts.codes_ordered),
      Number(counts.delays_ordered), Number(counts.failed_calls), Number(counts.failed_allocations),
      contexts, leaked, Number(counts.wrong_results), Number(counts.misuses));
  const bool is_clean = contexts == 0 && leaked == 0 && counts.wrong_results == 0 &&
                        counts.misuses == 0 && unreported == 0 && counts.checked_outputs > 0 &&
                        counts.failed_calls > 0 && counts.failed_allocations > 0;
  std::printf("soak: %s\n", is_clean ? "clean" : "FAILED");
  return is_clean ? 0 : 1;
}
