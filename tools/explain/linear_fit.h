// Means and scales by regression.
#ifndef CORVANE_TOOLS_EXPLAIN_LINEAR_FIT_H_
#define CORVANE_TOOLS_EXPLAIN_LINEAR_FIT_H_

#include <vector>

#include "tools/settings/normalisation.h"

namespace corvane_tool {

// Finds the normalisation that makes the values of the bytes, plane by plane. False where none
// does, to a thousandth of the values' spread. normalisation has the number of planes.
bool FitLines(const std::vector<float>& bytes, const std::vector<float>& values,
              Normalisation* normalisation);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_EXPLAIN_LINEAR_FIT_H_
