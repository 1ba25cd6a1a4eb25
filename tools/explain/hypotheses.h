// Mistakes in the preparation of a model's input that people make, as changes to a recipe.
#ifndef CORVANE_TOOLS_EXPLAIN_HYPOTHESES_H_
#define CORVANE_TOOLS_EXPLAIN_HYPOTHESES_H_

#include <functional>
#include <string>
#include <vector>

#include "tools/explain/recipe.h"

namespace corvane_tool {

// What a hypothesis changes. Two that change different aspects can hold together, in either order.
enum Aspect : unsigned {
  kGeometry = 1,
  kOrientation = 2,
  kColour = 4,
  kMeans = 8,
  kScales = 16,
  kOrder = 32,  // of means and scales, whatever they are
  kLayout = 64,
};

struct Hypothesis {
  std::string words;  // what is different where the reference comes from
  unsigned aspects;
  // Returns false where it makes no sense for the recipe.
  std::function<bool(Recipe*)> apply;
};

// How means and scales can differ. own: the model's own, settings: those of the settings.
void AddNormalisations(const Normalisation& settings, const Normalisation& own,
                       std::vector<Hypothesis>* all);

// How the picture can be turned, cut out and brought to size differently.
void AddGeometry(const Recipe& base, const ModelInput& input, bool is_turned_by_exif,
                 std::vector<Hypothesis>* all);

// All that can be true of this recipe, the likelier of equal ones first.
std::vector<Hypothesis> Hypotheses(const Recipe& base, const Normalisation& settings,
                                   const Normalisation& own, const ModelInput& input,
                                   bool is_turned_by_exif);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_EXPLAIN_HYPOTHESES_H_
