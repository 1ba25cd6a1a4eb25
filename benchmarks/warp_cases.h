// The warps that the benchmarks measure, in time and in instructions, from a 1920 x 1080 source.
#ifndef CORVANE_BENCHMARKS_WARP_CASES_H_
#define CORVANE_BENCHMARKS_WARP_CASES_H_

#include <cmath>
#include <cstdint>
#include <vector>

#include "corvane/image.h"

namespace corvane_bench {

constexpr int kSourceWidth = 1920, kSourceHeight = 1080;

struct WarpCase {
  const char* name;
  int width, height;
  double degrees;
  double center_x, center_y;  // the source point in the middle of the result
};
constexpr WarpCase kWarpCases[] = {
    {"112x112 by 15 degrees", 112, 112, 15, 960, 540},
    {"112x112 half outside", 112, 112, 15, 0, 540},
    {"224x224 by 15 degrees", 224, 224, 15, 960, 540},
    {"640x480 by 15 degrees", 640, 480, 15, 960, 540},
    {"112x112 unturned", 112, 112, 0, 960.3, 540.7},
};

inline std::vector<uint8_t> WarpSource() {
  std::vector<uint8_t> pixels(3 * kSourceWidth * kSourceHeight);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 97 >> 3);
  return pixels;
}

// Destination to source, row by row.
struct WarpMatrix {
  float m[6];
};
inline WarpMatrix MatrixOf(const WarpCase& one) {
  const double angle = one.degrees * 3.14159265358979 / 180;
  const double c = std::cos(angle), s = std::sin(angle), x = one.width / 2.0, y = one.height / 2.0;
  return {{static_cast<float>(c), static_cast<float>(-s),
           static_cast<float>(one.center_x - c * x + s * y), static_cast<float>(s),
           static_cast<float>(c), static_cast<float>(one.center_y - s * x - c * y)}};
}

inline void RunWarp(const WarpCase& one, const uint8_t* source, uint8_t* target) {
  corvane::warpaffine_bilinear_c3(source, kSourceWidth, kSourceHeight, target, one.width,
                                  one.height, MatrixOf(one).m, 0, 0);
}

}  // namespace corvane_bench

#endif  // CORVANE_BENCHMARKS_WARP_CASES_H_
