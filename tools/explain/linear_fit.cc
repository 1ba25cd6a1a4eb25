#include "tools/explain/linear_fit.h"

#include <cmath>
#include <cstddef>

namespace corvane_tool {

bool FitLines(const std::vector<float>& bytes, const std::vector<float>& values,
              Normalisation* normalisation) {
  const std::size_t planes = normalisation->means.size();
  if (bytes.size() != values.size() || bytes.empty()) return false;
  const std::size_t count = bytes.size() / planes;
  for (std::size_t c = 0; c < planes; ++c) {
    const float* const x = &bytes[c * count];
    const float* const y = &values[c * count];
    double mean_x = 0;
    double mean_y = 0;
    for (std::size_t i = 0; i < count; ++i) {
      mean_x += x[i] / static_cast<double>(count);
      mean_y += y[i] / static_cast<double>(count);
    }
    double xx = 0;
    double xy = 0;
    double yy = 0;
    for (std::size_t i = 0; i < count; ++i) {
      xx += (x[i] - mean_x) * (x[i] - mean_x);
      xy += (x[i] - mean_x) * (y[i] - mean_y);
      yy += (y[i] - mean_y) * (y[i] - mean_y);
    }
    if (!(xx > 0) || !(yy > 0)) return false;
    const double slope = xy / xx;
    const double residual = yy - slope * xy;
    if (!(residual < 1e-6 * yy)) return false;
    normalisation->scales[c] = static_cast<float>(slope);
    normalisation->means[c] = static_cast<float>(mean_x - mean_y / slope);
  }
  return true;
}

}  // namespace corvane_tool
