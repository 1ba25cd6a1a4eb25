#include "tools/explain/judges.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <future>
#include <thread>
#include <utility>

#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

double SumOfSquares(const std::vector<float>& values) {
  double sum = 0;
  for (const float value : values) sum += double{value} * double{value};
  return sum;
}

std::size_t Workers() {
  return std::min<std::size_t>(4, std::max(1U, std::thread::hardware_concurrency()));
}

}  // namespace

void Judge(const std::vector<float>& reference, const std::vector<float>& values,
           Candidate* candidate) {
  double squares = 0;
  double dot = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    const double difference = double{values[i]} - double{reference[i]};
    squares += difference * difference;
    dot += double{values[i]} * double{reference[i]};
  }
  const double norms = std::sqrt(SumOfSquares(values)) * std::sqrt(SumOfSquares(reference));
  candidate->rms = std::sqrt(squares / static_cast<double>(reference.size()));
  candidate->cosine = norms > 0 ? dot / norms : 0;
  if (!std::isfinite(candidate->rms)) candidate->rms = std::numeric_limits<double>::infinity();
}

Judges::Judges(std::string path, const std::vector<uint8_t>& model, std::vector<float> reference,
               std::optional<std::size_t> output)
    : path_(std::move(path)),
      model_(model),
      reference_(std::move(reference)),
      output_(output),
      reference_rms_(std::sqrt(SumOfSquares(reference_) / static_cast<double>(reference_.size()))) {
}

void Judges::JudgeAll(const std::vector<Candidate*>& candidates, double deadline) {
  const std::size_t wanted = std::min(Workers(), candidates.size());
  while (output_ && contexts_.size() < wanted) {
    contexts_.push_back(std::make_unique<Context>(path_, model_));
  }
  std::atomic<std::size_t> next{0};
  const auto work = [&](std::size_t worker) {
    for (std::size_t i = next++; i < candidates.size(); i = next++) {
      if (SteadyMilliseconds() > deadline) return;
      Candidate* const candidate = candidates[i];
      if (output_) {
        Judge(reference_, contexts_[worker]->Run(&candidate->tensor, 1).at(*output_), candidate);
      } else {
        Judge(reference_, candidate->tensor, candidate);
      }
      candidate->tensor = {};
    }
  };
  std::vector<std::future<void>> others;
  for (std::size_t worker = 1; worker < contexts_.size(); ++worker) {
    others.push_back(std::async(std::launch::async, work, worker));
  }
  work(0);
  for (std::future<void>& other : others) other.get();
}

}  // namespace corvane_tool
