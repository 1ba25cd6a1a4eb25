// SimilarityToSource on any floats.
//
// Bytes: the number of points, then the source and the destination points, as floats of any value
// or, after an odd first byte, as coordinates in a picture. What must hold: a refused fit leaves
// zeros and an error of -1; an accepted one is a finite similarity whose reported error is the
// distance between the points that it maps.
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "corvane/align.h"
#include "fuzz/byte_reader.h"

namespace {

using corvane_fuzz::Require;

// The root mean square of the distances in the source, where the matrix leads.
double ErrorInSource(const std::vector<float>& source, const std::vector<float>& destination,
                     const float* m) {
  double sum = 0;
  for (std::size_t i = 0; i < source.size(); i += 2) {
    const double x = destination[i], y = destination[i + 1];
    const double dx = m[0] * x + m[1] * y + m[2] - source[i];
    const double dy = m[3] * x + m[4] * y + m[5] - source[i + 1];
    sum += dx * dx + dy * dy;
  }
  return std::sqrt(sum / (static_cast<double>(source.size()) / 2));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  corvane_fuzz::ByteReader bytes(data, size);
  const auto choice = bytes.Take<uint8_t>();
  const bool in_picture = choice % 2 == 1;
  const int count = choice / 2 % 8;
  std::vector<float> points[2];
  for (auto& set : points) {
    for (int i = 0; i < 2 * count; ++i) {
      set.push_back(in_picture ? static_cast<float>(bytes.Take<uint16_t>()) / 64
                               : bytes.Take<float>());
    }
  }
  std::array<float, 6> m = {1, 1, 1, 1, 1, 1};
  double error = 0;
  if (!corvane::SimilarityToSource(points[0].data(), points[1].data(), count, m.data(), &error)) {
    Require(m == std::array<float, 6>{} && error == -1, "a refused fit leaves a matrix");
    return 0;
  }
  for (const float value : m) Require(std::isfinite(value), "a matrix is not finite");
  Require(m[0] == m[4] && m[1] == -m[3], "a matrix is no similarity");
  Require(std::isfinite(error) && error >= 0, "a fit has no error");
  // The fit's scale brings the error from the destination to the source. The matrix is rounded to
  // float and the error taken from a difference, so both sides are compared loosely.
  const double scale = std::hypot(m[0], m[1]);
  if (in_picture && scale > 1e-3 && scale < 1e3) {
    const double wanted = ErrorInSource(points[0], points[1], m.data());
    Require(std::fabs(error * scale - wanted) <= 0.5 + 0.01 * wanted,
            "a reported error is not that of the matrix");
  }
  return 0;
}
