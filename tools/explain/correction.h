// What to change in the settings, so that they do what a recipe does.
#ifndef CORVANE_TOOLS_EXPLAIN_CORRECTION_H_
#define CORVANE_TOOLS_EXPLAIN_CORRECTION_H_

#include <string>
#include <vector>

#include "tools/explain/recipe.h"
#include "tools/settings/settings.h"

namespace corvane_tool {

// The lines that differ from the settings, each section's after its header; without lines where
// nothing differs. Lines that begin with '#' say in words what no setting does.
std::vector<std::string> CorrectedLines(const std::string& picture, const RunSettings& settings,
                                        const Recipe& base, const Recipe& wanted,
                                        const Normalisation& own);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_EXPLAIN_CORRECTION_H_
