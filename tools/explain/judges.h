// How near candidates come to a reference, by the model's input or by its answer.
#ifndef CORVANE_TOOLS_EXPLAIN_JUDGES_H_
#define CORVANE_TOOLS_EXPLAIN_JUDGES_H_

#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/explain/recipe.h"
#include "tools/runtime/context.h"

namespace corvane_tool {

struct Candidate {
  std::string words;
  unsigned aspects = 0;
  Recipe recipe;
  std::vector<float> tensor;                             // empty once it has been judged
  double rms = std::numeric_limits<double>::infinity();  // of the difference; infinite: unjudged
  double cosine = 0;
};

// Sets rms and cosine. NaN among the values ranks last.
void Judge(const std::vector<float>& reference, const std::vector<float>& values,
           Candidate* candidate);

class Judges {
 public:
  // output: of the model, which then answers to the tensors; none: the tensors are compared.
  Judges(std::string path, const std::vector<uint8_t>& model, std::vector<float> reference,
         std::optional<std::size_t> output);

  // Works on up to four cores. Stops at the time, as SteadyMilliseconds, and leaves the rest
  // unjudged. Throws Failure.
  void JudgeAll(const std::vector<Candidate*>& candidates, double deadline);

  const std::vector<float>& reference() const { return reference_; }
  double reference_rms() const { return reference_rms_; }
  // Differences below this are rounding.
  double noise() const { return 3e-6 * reference_rms_; }

 private:
  std::string path_;
  const std::vector<uint8_t>& model_;
  std::vector<float> reference_;
  std::optional<std::size_t> output_;
  double reference_rms_;
  std::vector<std::unique_ptr<Context>> contexts_;  // one for each thread
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_EXPLAIN_JUDGES_H_
