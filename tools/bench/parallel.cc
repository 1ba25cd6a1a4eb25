#include "tools/bench/parallel.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <thread>

#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

constexpr std::size_t kFewFrames = 20;

// Two seconds, or less where little time is allowed for all.
double Milliseconds(double seconds) { return std::min(2.0, seconds / 10) * 1000; }

// Runs work(thread, times) in threads; the first failure is thrown when all have ended.
Throughput RunThreads(std::size_t count,
                      const std::function<void(std::size_t, std::vector<double>*)>& work) {
  std::vector<std::vector<double>> times(count);
  std::vector<std::exception_ptr> failures(count);
  std::vector<std::thread> threads;
  const double begin = SteadyMilliseconds();
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      try {
        work(i, &times[i]);
      } catch (...) {
        failures[i] = std::current_exception();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double spent = SteadyMilliseconds() - begin;
  for (const std::exception_ptr& failure : failures) {
    if (failure != nullptr) std::rethrow_exception(failure);
  }
  std::vector<double> all;
  for (const std::vector<double>& some : times) all.insert(all.end(), some.begin(), some.end());
  Throughput result;
  result.frames = all.size();
  result.frames_per_second = static_cast<double>(all.size()) * 1000 / spent;
  result.milliseconds = Summarize(all);
  return result;
}

class Turns {
 public:
  void Wait(std::size_t number) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return next_ >= number; });
  }
  void End() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++next_;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;
};

}  // namespace

Throughput MeasureParallel(const std::vector<std::function<void()>>& frames, std::size_t count,
                           double seconds) {
  const double end = SteadyMilliseconds() + Milliseconds(seconds);
  Throughput result = RunThreads(count, [&](std::size_t i, std::vector<double>* times) {
    while (times->size() < kFewFrames || SteadyMilliseconds() < end) {
      const double begin = SteadyMilliseconds();
      frames[i]();
      times->push_back(SteadyMilliseconds() - begin);
    }
  });
  result.name = std::to_string(count) + (count == 1 ? " backend" : " backends");
  return result;
}

Throughput MeasureTurns(const std::vector<std::function<void()>>& frames, double seconds) {
  const double end = SteadyMilliseconds() + Milliseconds(seconds);
  Turns turns;  // results that have been handed over
  bool is_over = false;
  Throughput result = RunThreads(2, [&](std::size_t i, std::vector<double>* times) {
    std::size_t number = i;
    try {
      for (;; number += 2) {
        // The frame before last has been handed over, so this backend is free.
        const double begin = SteadyMilliseconds();
        frames[i]();
        turns.Wait(number);
        if (is_over) break;
        times->push_back(SteadyMilliseconds() - begin);
        is_over = number >= 2 * kFewFrames && SteadyMilliseconds() >= end;
        turns.End();
      }
    } catch (...) {
      turns.Wait(number);
      is_over = true;
      turns.End();
      throw;
    }
    turns.End();
  });
  result.name = "2 take turns";
  return result;
}

void PrintThroughput(const std::vector<Throughput>& rows) {
  std::printf("  %-14s %11s %9s %9s %9s\n", "", "frames/s", "p50 ms", "p99 ms", "max ms");
  for (const Throughput& row : rows) {
    std::printf("  %-14s %11.1f %9.3f %9.3f %9.3f\n", row.name.c_str(), row.frames_per_second,
                row.milliseconds.p50, row.milliseconds.p99, row.milliseconds.max);
  }
}

Json ToJson(const std::vector<Throughput>& rows) {
  Json all = Json::array();
  for (const Throughput& row : rows) {
    all.push_back({{"name", row.name},
                   {"frames", row.frames},
                   {"frames_per_second", row.frames_per_second},
                   {"p50_ms", row.milliseconds.p50},
                   {"p90_ms", row.milliseconds.p90},
                   {"p99_ms", row.milliseconds.p99},
                   {"max_ms", row.milliseconds.max}});
  }
  return all;
}

}  // namespace corvane_tool
