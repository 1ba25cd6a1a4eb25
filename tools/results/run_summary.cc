#include "tools/results/run_summary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace corvane_tool {

Times Summarize(std::vector<double> milliseconds) {
  Times times;
  if (milliseconds.empty()) return times;
  std::sort(milliseconds.begin(), milliseconds.end());
  const std::size_t count = milliseconds.size();
  const auto percentile = [&](std::size_t percent) {
    return milliseconds[(percent * count + 99) / 100 - 1];
  };
  times.mean =
      std::accumulate(milliseconds.begin(), milliseconds.end(), 0.0) / static_cast<double>(count);
  times.p50 = percentile(50);
  times.p90 = percentile(90);
  times.p99 = percentile(99);
  times.max = milliseconds.back();
  return times;
}

void RunSummary::AddSuccess(double prepare_ms, double run_ms, bool is_all_finite) {
  prepare_ms_.push_back(prepare_ms);
  run_ms_.push_back(run_ms);
  not_finite_ += is_all_finite ? 0 : 1;
}

void RunSummary::AddFailure(const std::string& reason) { ++failures_[reason]; }

std::size_t RunSummary::failed() const {
  std::size_t count = 0;
  for (const auto& failure : failures_) count += failure.second;
  return count;
}

std::size_t RunSummary::warm_up() const { return succeeded() >= 10 ? 3 : succeeded() >= 2 ? 1 : 0; }

std::vector<double> RunSummary::WarmUp(const std::vector<double>& times) const {
  return {times.begin(), times.begin() + static_cast<std::ptrdiff_t>(warm_up())};
}

std::vector<double> RunSummary::Steady(const std::vector<double>& times) const {
  return {times.begin() + static_cast<std::ptrdiff_t>(warm_up()), times.end()};
}

namespace {

void PrintTimes(const char* name, const RunSummary& summary, const std::vector<double>& all) {
  const Times times = Summarize(summary.Steady(all));
  std::printf("  %-11s %9.3f %9.3f %9.3f %9.3f %9.3f  ", name, times.mean, times.p50, times.p90,
              times.p99, times.max);
  for (const double time : summary.WarmUp(all)) std::printf(" %.3f", time);
  std::printf("\n");
}

Json TimesJson(const RunSummary& summary, const std::vector<double>& all) {
  const Times times = Summarize(summary.Steady(all));
  return {{"mean", times.mean}, {"p50", times.p50}, {"p90", times.p90},
          {"p99", times.p99},   {"max", times.max}, {"warm_up", summary.WarmUp(all)}};
}

}  // namespace

void PrintSummary(const RunSummary& summary) {
  std::printf("%zu pictures, %zu failed", summary.succeeded() + summary.failed(), summary.failed());
  if (summary.seconds > 0) {
    std::printf(", %.1f a second with reading and writing",
                static_cast<double>(summary.succeeded()) / summary.seconds);
  }
  std::printf("\n");
  for (const auto& failure : summary.failures()) {
    std::printf("  failed %zu: %s\n", failure.second, failure.first.c_str());
  }
  if (summary.not_finite() > 0) {
    std::printf("  NaN or infinite values in the outputs of %zu\n", summary.not_finite());
  }
  if (summary.succeeded() == 0) return;
  std::printf("  %-11s %9s %9s %9s %9s %9s   %s\n", "ms", "mean", "p50", "p90", "p99", "max",
              summary.warm_up() == 0 ? "" : "first (not in the others)");
  PrintTimes("preparation", summary, summary.prepare_ms());
  PrintTimes("run", summary, summary.run_ms());
}

Json SummaryJson(const RunSummary& summary) {
  Json failures = Json::object();
  for (const auto& failure : summary.failures()) failures[failure.first] = failure.second;
  return {{"succeeded", summary.succeeded()},
          {"failed", summary.failed()},
          {"failures", failures},
          {"not_finite", summary.not_finite()},
          {"seconds", summary.seconds},
          {"prepare_ms", TimesJson(summary, summary.prepare_ms())},
          {"run_ms", TimesJson(summary, summary.run_ms())}};
}

}  // namespace corvane_tool
