// The rules of the affine warp, one pixel at a time. Every fast path equals these bit for bit.
#ifndef CORVANE_SRC_IMAGE_WARP_RULES_H_
#define CORVANE_SRC_IMAGE_WARP_RULES_H_

#include <cstddef>
#include <cstdint>

#if defined(__FAST_MATH__)
#error "The rules need IEEE arithmetic: compile this library without -ffast-math and -Ofast."
#endif

namespace corvane {
namespace {

// Positions are fixed point: 1024 units to a pixel.
constexpr int kFractionBits = 10;
constexpr int32_t kUnitsPerPixel = 1 << kFractionBits;

// Rounds to the nearest integer, halves away from zero. The addition rounds like any float
// addition, so the largest float below one half gives 1. NaN gives 0; values beyond the range give
// its ends.
inline int32_t RoundToFixed(float value) {
  const float away = value >= 0 ? value + 0.5f : value - 0.5f;
  if (away >= 2147483648.0f) return 2147483647;
  if (away <= -2147483648.0f) return -2147483646;
  return away == away ? static_cast<int32_t>(away) : 0;
}

// Sums of positions wrap.
inline int32_t AddWrapping(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Returns the weighted mean of the four neighbours a0 a1 / b0 b1; fractions are in 1/1024.
inline uint8_t Blend(int a0, int a1, int b0, int b1, int fraction_x, int fraction_y) {
  const int top = (a0 * (kUnitsPerPixel - fraction_x) + a1 * fraction_x) >> 5;
  const int bottom = (b0 * (kUnitsPerPixel - fraction_x) + b1 * fraction_x) >> 5;
  return static_cast<uint8_t>((top * (kUnitsPerPixel - fraction_y) + bottom * fraction_y) >> 15);
}

struct Source {
  const uint8_t* pixels;
  int width, height;
  uint8_t border[3];

  bool HasColumn(int64_t x) const { return x >= 0 && x < width; }
  bool HasRow(int64_t y) const { return y >= 0 && y < height; }
  const uint8_t* PixelOrBorder(int64_t x, int64_t y) const {
    if (!HasColumn(x) || !HasRow(y)) return border;
    return pixels + 3 * (static_cast<std::ptrdiff_t>(y) * width + static_cast<std::ptrdiff_t>(x));
  }
};

// Writes one destination pixel from the position (x, y) in units.
inline void WarpPixel(const Source& source, bool is_transparent, int32_t x, int32_t y,
                      uint8_t* target) {
  const int64_t column = x >> kFractionBits, row = y >> kFractionBits;
  if (is_transparent && !(source.HasColumn(column) && source.HasColumn(column + 1) &&
                          source.HasRow(row) && source.HasRow(row + 1))) {
    return;
  }
  const uint8_t* const a0 = source.PixelOrBorder(column, row);
  const uint8_t* const a1 = source.PixelOrBorder(column + 1, row);
  const uint8_t* const b0 = source.PixelOrBorder(column, row + 1);
  const uint8_t* const b1 = source.PixelOrBorder(column + 1, row + 1);
  for (int c = 0; c < 3; ++c) {
    target[c] =
        Blend(a0[c], a1[c], b0[c], b1[c], x & (kUnitsPerPixel - 1), y & (kUnitsPerPixel - 1));
  }
}

}  // namespace
}  // namespace corvane

#endif  // CORVANE_SRC_IMAGE_WARP_RULES_H_
