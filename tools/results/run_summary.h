// How a run went as a whole: pictures, failures and times.
#ifndef CORVANE_TOOLS_RESULTS_RUN_SUMMARY_H_
#define CORVANE_TOOLS_RESULTS_RUN_SUMMARY_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/results/json.h"

namespace corvane_tool {

// Milliseconds. Percentiles are by nearest rank: the smallest time that is not exceeded by that
// share of the times.
struct Times {
  double mean = 0, p50 = 0, p90 = 0, p99 = 0, max = 0;
};
Times Summarize(std::vector<double> milliseconds);

class RunSummary {
 public:
  void AddSuccess(double prepare_ms, double run_ms, bool is_all_finite);
  // reason: without the picture's name, so that equal ones are counted together.
  void AddFailure(const std::string& reason);

  std::size_t succeeded() const { return prepare_ms_.size(); }
  std::size_t failed() const;
  std::size_t not_finite() const { return not_finite_; }
  const std::map<std::string, std::size_t>& failures() const { return failures_; }

  // The first runs are slower: they fill caches and allocate. They stand apart: three of ten or
  // more, else one of two or more.
  std::size_t warm_up() const;
  std::vector<double> WarmUp(const std::vector<double>& times) const;
  std::vector<double> Steady(const std::vector<double>& times) const;

  const std::vector<double>& prepare_ms() const { return prepare_ms_; }
  const std::vector<double>& run_ms() const { return run_ms_; }
  double seconds = 0;  // from the first picture to the end of the last, with reading and writing

 private:
  std::vector<double> prepare_ms_, run_ms_;
  std::map<std::string, std::size_t> failures_;
  std::size_t not_finite_ = 0;
};

void PrintSummary(const RunSummary& summary);
Json SummaryJson(const RunSummary& summary);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_RUN_SUMMARY_H_
