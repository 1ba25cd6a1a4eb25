#include "tools/explain/search.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

// A candidate reproduces the reference if its difference is at most a share of what candidates'
// differences usually are, and of the reference itself. A network may answer to a wrong input
// almost as to the right one; then only small differences tell.
constexpr double kShareOfUsual = 0.02;
constexpr double kShareOfReference = 0.005;
// How many times nearer another candidate must be before it counts as the better one.
constexpr double kClearly = 5;
// Single mistakes are all tried; pairs of them until then. The rest of ten seconds is for loading.
constexpr double kMilliseconds = 7500;
constexpr std::size_t kBatch = 16;
// A single mistake that leaves more than this many times the rounding is looked at again, in the
// likeliest pairs.
constexpr double kRounding = 30;
constexpr std::size_t kFewPairs = 64;

std::size_t Hash(const std::vector<float>& tensor) {
  const auto* bytes = reinterpret_cast<const char*>(tensor.data());
  return std::hash<std::string_view>()({bytes, tensor.size() * sizeof(float)});
}

double Middle(const std::vector<Candidate>& candidates) {
  std::vector<double> differences;
  for (const Candidate& candidate : candidates) {
    if (std::isfinite(candidate.rms)) differences.push_back(candidate.rms);
  }
  if (differences.empty()) return 0;
  const auto middle = differences.begin() + static_cast<std::ptrdiff_t>(differences.size() / 2);
  std::nth_element(differences.begin(), middle, differences.end());
  return *middle;
}

}  // namespace

Search::Search(RecipeMaker* maker, Judges* judges, Recipe base, std::vector<Hypothesis> hypotheses)
    : maker_(maker),
      judges_(judges),
      base_(std::move(base)),
      hypotheses_(std::move(hypotheses)),
      candidates_(1),
      start_(SteadyMilliseconds()) {
  candidates_[0].words = "the settings";
  candidates_[0].recipe = base_;
}

void Search::Add(const std::string& words, unsigned aspects, const Recipe& recipe) {
  std::vector<float> tensor = maker_->Make(recipe);
  if (tensor.empty() || !seen_.insert(Hash(tensor)).second) return;
  candidates_.push_back({words, aspects, recipe, std::move(tensor)});
}

void Search::AddUnrounded(const std::string& words) { Add(words, 0, base_); }

void Search::TrySingles() {
  seen_.insert(Hash(maker_->Make(base_)));
  for (const Hypothesis& hypothesis : hypotheses_) {
    Recipe recipe = base_;
    if (hypothesis.apply(&recipe)) Add(hypothesis.words, hypothesis.aspects, recipe);
  }
  JudgeFrom(0, HUGE_VAL);
  usual_ = Middle(candidates_);
  limit_ = std::max(judges_->noise(),
                    std::min(kShareOfUsual * usual_, kShareOfReference * judges_->reference_rms()));
}

void Search::JudgeFrom(std::size_t first, double deadline) {
  std::vector<Candidate*> unjudged;
  for (std::size_t i = first; i < candidates_.size(); ++i) {
    if (!candidates_[i].tensor.empty()) unjudged.push_back(&candidates_[i]);
  }
  judges_->JudgeAll(unjudged, deadline);
}

const Candidate& Search::Nearest() const {
  double least = HUGE_VAL;
  for (std::size_t i = 1; i < candidates_.size(); ++i) least = std::min(least, candidates_[i].rms);
  for (std::size_t i = 1; i < candidates_.size(); ++i) {
    if (candidates_[i].rms <= 1.5 * least + judges_->noise()) return candidates_[i];
  }
  return candidates_[0];
}

bool Search::SettingsAreRight() const {
  const Candidate& settings = candidates_[0];
  if (settings.rms > limit_) return false;
  const Candidate& nearest = Nearest();
  // That a kind rounds is no mistake.
  return nearest.aspects == 0 || settings.rms <= kClearly * (nearest.rms + judges_->noise());
}

void Search::TryPairs() {
  const double single = Nearest().rms;
  if (single > limit_) {
    TryPairs(limit_, SIZE_MAX);
  } else if (single > kRounding * judges_->noise()) {
    // Near, but perhaps half of a pair that is nearer.
    TryPairs(single / kClearly, kFewPairs);
  }
}

void Search::TryPairs(double wanted, std::size_t most) {
  struct Pair {
    std::size_t rank;
    const Hypothesis* first;
    const Hypothesis* second;
  };
  std::vector<std::pair<double, const Hypothesis*>> ranked;
  // Those that change nothing by themselves, or the same as another, have no candidate.
  for (const Hypothesis& hypothesis : hypotheses_) {
    for (const Candidate& candidate : candidates_) {
      if (candidate.words == hypothesis.words) ranked.emplace_back(candidate.rms, &hypothesis);
    }
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < ranked.size(); ++i) {
    for (std::size_t k = i + 1; k < ranked.size(); ++k) {
      if ((ranked[i].second->aspects & ranked[k].second->aspects) != 0) continue;
      pairs.push_back({(i + 1) * (k + 1), ranked[i].second, ranked[k].second});
    }
  }
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](const Pair& a, const Pair& b) { return a.rank < b.rank; });
  if (pairs.size() > most) pairs.resize(most);
  const double deadline = start_ + kMilliseconds;
  for (std::size_t i = 0; i < pairs.size() && SteadyMilliseconds() < deadline;) {
    const std::size_t first = candidates_.size();
    for (; i < pairs.size() && candidates_.size() < first + kBatch; ++i) {
      Recipe recipe = base_;
      if (pairs[i].first->apply(&recipe) && pairs[i].second->apply(&recipe)) {
        Add(pairs[i].first->words + "; and " + pairs[i].second->words,
            pairs[i].first->aspects | pairs[i].second->aspects, recipe);
      }
    }
    JudgeFrom(first, deadline);
    for (std::size_t k = first; k < candidates_.size(); ++k) {
      if (candidates_[k].rms <= wanted) return;
    }
  }
}

std::vector<const Candidate*> Search::Equals(const Candidate& candidate) const {
  std::vector<const Candidate*> equals;
  for (std::size_t i = 1; i < candidates_.size(); ++i) {
    const bool is_near = candidates_[i].rms <= 1.5 * candidate.rms + judges_->noise();
    if (&candidates_[i] != &candidate && is_near) equals.push_back(&candidates_[i]);
  }
  return equals;
}

}  // namespace corvane_tool
