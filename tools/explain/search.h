// The search for the recipe that a reference comes from: single mistakes, then pairs of them.
#ifndef CORVANE_TOOLS_EXPLAIN_SEARCH_H_
#define CORVANE_TOOLS_EXPLAIN_SEARCH_H_

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "tools/explain/hypotheses.h"
#include "tools/explain/judges.h"
#include "tools/explain/recipe.h"

namespace corvane_tool {

class Search {
 public:
  // Both must outlive the object.
  Search(RecipeMaker* maker, Judges* judges, Recipe base, std::vector<Hypothesis> hypotheses);

  // candidates()[0]: what the settings do, whose rms and cosine the caller sets, if there are any.
  const std::vector<Candidate>& candidates() const { return candidates_; }
  Candidate* settings() { return candidates_.data(); }
  const std::vector<Hypothesis>& hypotheses() const { return hypotheses_; }

  // Adds the settings' recipe without what the library's kind of input rounds or wraps.
  void AddUnrounded(const std::string& words);
  void TrySingles();
  // Pairs whose single halves come near are tried first. Ends when one fits, or after some seconds.
  void TryPairs();

  // The middle one of the candidates' differences: what a mistake costs.
  double usual() const { return usual_; }
  bool IsBlind() const { return usual_ <= judges_->noise(); }  // the model answers alike to all
  bool SettingsAreRight() const;
  // The first of those that are about as near as the nearest: the likelier ones stand first.
  const Candidate& Nearest() const;
  bool Fits(const Candidate& candidate) const { return candidate.rms <= limit_; }
  // About as near as this one, and not it.
  std::vector<const Candidate*> Equals(const Candidate& candidate) const;

 private:
  void Add(const std::string& words, unsigned aspects, const Recipe& recipe);
  void JudgeFrom(std::size_t first, double deadline);
  void TryPairs(double wanted, std::size_t most);

  RecipeMaker* maker_;
  Judges* judges_;
  Recipe base_;
  std::vector<Hypothesis> hypotheses_;
  std::vector<Candidate> candidates_;
  std::unordered_set<std::size_t> seen_;  // hashes of the tensors
  double start_;
  double usual_ = 0;
  double limit_ = 0;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_EXPLAIN_SEARCH_H_
