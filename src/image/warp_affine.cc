#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "corvane/image.h"
#include "src/image/inside_run.h"
#include "src/image/warp_rules.h"

namespace corvane {
namespace {

constexpr int kTransparentBorder = -233;

// Within these the vector loops' 16-bit factors and 32-bit offsets suffice, and a row's pixels
// inside are one run (see FindRun).
constexpr int kMaxFastWidth = 10922;
constexpr int kMaxFastHeight = 32767;

WarpInsideRun ChooseInsideRun() {
#if defined(CORVANE_SIMD_NEON)
  return WarpInsideRunNeon;
#elif defined(CORVANE_SIMD_AVX2)
  static const WarpInsideRun chosen = __builtin_cpu_supports("avx2") ? WarpInsideRunAvx2 : nullptr;
  return chosen;
#else
  return nullptr;
#endif
}

// How far each column moves the position along one axis: R(float(x) * (m * 1024)). Column 0 does
// not move it, and the others do so in one direction only, by less than half the range of a
// position.
class ColumnTable {
 public:
  explicit ColumnTable(int width) : width_(width) {
    if (width < 0) throw std::bad_alloc();
    if (width > 0) offsets_.reset(new int32_t[static_cast<std::size_t>(width)]);
  }
  void Fill(float step) {
    const float units = step * static_cast<float>(kUnitsPerPixel);
    for (int x = 0; x < width_; ++x) offsets_[x] = RoundToFixed(static_cast<float>(x) * units);
  }
  const int32_t* data() const { return offsets_.get(); }
  int32_t operator[](int x) const { return offsets_[x]; }
  int width() const { return width_; }
  bool IsRising() const { return offsets_[width_ - 1] >= 0; }

  // The first column that is moved at least this far (without sign), or the width.
  int FirstMoved(int64_t distance) const {
    const int sign = IsRising() ? 1 : -1;
    int first = 0;
    for (int count = width_; count > 0;) {
      const int half = count / 2;
      if (sign * offsets_[first + half] < distance) {
        first += half + 1;
        count -= half + 1;
      } else {
        count = half;
      }
    }
    return first;
  }

 private:
  std::unique_ptr<int32_t[]> offsets_;
  int width_;
};

struct Run {
  int begin, end;
  bool IsEmpty() const { return begin >= end; }
};

Run Intersect(Run a, Run b) { return {std::max(a.begin, b.begin), std::min(a.end, b.end)}; }

bool IsWithin(int32_t position, int32_t lowest, uint32_t length) {
  return static_cast<uint32_t>(position) - static_cast<uint32_t>(lowest) < length;
}

// The columns whose position start + table[x], wrapped, is one of the length values from lowest on.
// As the interval is shorter than half the range, too, these are one run.
Run FindRun(const ColumnTable& table, int32_t start, int32_t lowest, uint32_t length) {
  const uint32_t above = static_cast<uint32_t>(start) - static_cast<uint32_t>(lowest);
  const bool starts_within = above < length;
  if (table.IsRising()) {
    const int64_t to_lowest = starts_within ? 0 : (int64_t{1} << 32) - above;
    const int64_t to_end = to_lowest + length - (starts_within ? above : 0);
    return {table.FirstMoved(to_lowest), table.FirstMoved(to_end)};
  }
  const int64_t to_highest = starts_within ? 0 : int64_t{above} - length + 1;
  return {table.FirstMoved(to_highest), table.FirstMoved(int64_t{above} + 1)};
}

void FillPixels(const uint8_t (&pixel)[3], std::size_t count, uint8_t* target) {
  const std::size_t bytes = 3 * count;
  if (count == 0) return;
  std::memcpy(target, pixel, 3);
  for (std::size_t filled = 3; filled < bytes;) {  // double what is there
    const std::size_t more = std::min(filled, bytes - filled);
    std::memcpy(target + filled, target, more);
    filled += more;
  }
}

// One call's warp, row by row.
class Warp {
 public:
  Warp(const Source& source, bool is_transparent, const ColumnTable& column_x,
       const ColumnTable& column_y)
      : source_(source),
        is_transparent_(is_transparent),
        column_x_(column_x),
        column_y_(column_y),
        warp_inside_run_(ChooseInsideRun()),
        has_runs_(source.width > 0 && source.width <= kMaxFastWidth && source.height > 0 &&
                  source.height <= kMaxFastHeight) {}

  void Row(int32_t row_x, int32_t row_y, uint8_t* target) const {
    const int width = column_x_.width();
    if (!has_runs_) {
      PlainPixels({0, width}, row_x, row_y, target);
      return;
    }
    const Run inside = FindInside(row_x, row_y);
    const Run touching = is_transparent_ ? inside : FindTouching(inside, row_x, row_y);
    if (!is_transparent_) {
      if (touching.IsEmpty()) {
        FillPixels(source_.border, static_cast<std::size_t>(width), target);
        return;
      }
      FillPixels(source_.border, static_cast<std::size_t>(touching.begin), target);
      FillPixels(source_.border, static_cast<std::size_t>(width - touching.end),
                 target + 3 * static_cast<std::ptrdiff_t>(touching.end));
    }
    if (inside.IsEmpty()) {
      PlainPixels(touching, row_x, row_y, target);
      return;
    }
    PlainPixels({touching.begin, inside.begin}, row_x, row_y, target);
    InsidePixels(inside, row_x, row_y, target);
    PlainPixels({inside.end, touching.end}, row_x, row_y, target);
  }

 private:
  int32_t X(int32_t row_x, int x) const { return AddWrapping(row_x, column_x_[x]); }
  int32_t Y(int32_t row_y, int x) const { return AddWrapping(row_y, column_y_[x]); }

  // Pixels all of whose neighbours are in the source: positions from 0 to the last pixel's.
  uint32_t InsideLength(int extent) const {
    return static_cast<uint32_t>(extent - 1) * static_cast<uint32_t>(kUnitsPerPixel);
  }
  bool IsInside(int32_t x, int32_t y) const {
    return IsWithin(x, 0, InsideLength(source_.width)) &&
           IsWithin(y, 0, InsideLength(source_.height));
  }
  Run FindInside(int32_t row_x, int32_t row_y) const {
    const int last = column_x_.width() - 1;
    if (IsInside(X(row_x, 0), Y(row_y, 0)) && IsInside(X(row_x, last), Y(row_y, last))) {
      return {0, last + 1};
    }
    const Run in_columns = FindRun(column_x_, row_x, 0, InsideLength(source_.width));
    if (in_columns.IsEmpty()) return in_columns;
    return Intersect(in_columns, FindRun(column_y_, row_y, 0, InsideLength(source_.height)));
  }

  // Pixels at least one of whose neighbours is in the source: up to a pixel further on each side.
  bool IsTouching(int32_t x, int32_t y) const {
    return IsWithin(x, -kUnitsPerPixel, InsideLength(source_.width + 2)) &&
           IsWithin(y, -kUnitsPerPixel, InsideLength(source_.height + 2));
  }
  Run FindTouching(Run inside, int32_t row_x, int32_t row_y) const {
    if (inside.IsEmpty()) {
      return Intersect(
          FindRun(column_x_, row_x, -kUnitsPerPixel, InsideLength(source_.width + 2)),
          FindRun(column_y_, row_y, -kUnitsPerPixel, InsideLength(source_.height + 2)));
    }
    // Few pixels, which are about to cost more than a look.
    Run touching = inside;
    while (touching.begin > 0 &&
           IsTouching(X(row_x, touching.begin - 1), Y(row_y, touching.begin - 1))) {
      --touching.begin;
    }
    while (touching.end < column_x_.width() &&
           IsTouching(X(row_x, touching.end), Y(row_y, touching.end))) {
      ++touching.end;
    }
    return touching;
  }

  void PlainPixels(Run run, int32_t row_x, int32_t row_y, uint8_t* target) const {
    for (int x = run.begin; x < run.end; ++x) {
      WarpPixel(source_, is_transparent_, X(row_x, x), Y(row_y, x),
                target + 3 * static_cast<std::ptrdiff_t>(x));
    }
  }

  void InsidePixels(Run inside, int32_t row_x, int32_t row_y, uint8_t* target) const {
    Run vectors = inside;
    // The last two bytes that the vector loop loads for a pixel may be behind the source's last.
    const int32_t last_row_pair = (source_.height - 2) * kUnitsPerPixel;
    if (std::max(Y(row_y, inside.begin), Y(row_y, inside.end - 1)) >= last_row_pair) {
      vectors = Intersect(vectors, FindRun(column_x_, row_x, 0, InsideLength(source_.width - 1)));
    }
    if (warp_inside_run_ == nullptr || vectors.end - vectors.begin < kInsideRunBlock) {
      PlainPixels(inside, row_x, row_y, target);
      return;
    }
    PlainPixels({inside.begin, vectors.begin}, row_x, row_y, target);
    warp_inside_run_({source_.pixels, 3 * source_.width, column_x_.data() + vectors.begin,
                      column_y_.data() + vectors.begin, row_x, row_y, vectors.end - vectors.begin,
                      target + 3 * std::ptrdiff_t{vectors.begin}});
    PlainPixels({vectors.end, inside.end}, row_x, row_y, target);
  }

  const Source source_;
  const bool is_transparent_;
  const ColumnTable& column_x_;
  const ColumnTable& column_y_;
  const WarpInsideRun warp_inside_run_;
  const bool has_runs_;
};

}  // namespace

void warpaffine_bilinear_c3(const uint8_t* src, int src_width, int src_height, uint8_t* dst,
                            int dst_width, int dst_height, const float* matrix, int border_type,
                            uint32_t border_color) {
  ColumnTable column_x(dst_width);
  ColumnTable column_y(dst_width);
  if (dst_width == 0 || dst_height <= 0) return;
  column_x.Fill(matrix[0]);
  column_y.Fill(matrix[3]);

  const Source source = {
      src,
      src_width,
      src_height,
      {static_cast<uint8_t>(border_color), static_cast<uint8_t>(border_color >> 8),
       static_cast<uint8_t>(border_color >> 16)}};
  const Warp warp(source, border_type == kTransparentBorder, column_x, column_y);
  const float units = static_cast<float>(kUnitsPerPixel);
  for (int y = 0; y < dst_height; ++y) {
    const float row = static_cast<float>(y);
    warp.Row(RoundToFixed(std::fma(matrix[1], row, matrix[2]) * units),
             RoundToFixed(std::fma(row, matrix[4], matrix[5]) * units),
             dst + 3 * static_cast<std::ptrdiff_t>(dst_width) * y);
  }
}

}  // namespace corvane
