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
    for (int x = 0; x < width_; ++x)
      offsets_.get()[x] = RoundToFixed(static_cast<float>(x) * units);
  }
  const int32_t* data() const { return offsets_.get(); }
  int32_t operator[](int x) const { return data()[x]; }
  int width() const { return width_; }
  bool IsRising() const { return data()[width_ - 1] >= 0; }

  // The first column that is moved at least this far (without sign), or the width. Walks there from
  // the hint: the answer for the row above is at most a few columns off.
  int FirstMoved(int64_t distance, int hint) const {
    const int sign = IsRising() ? 1 : -1;
    while (hint > 0 && sign * int64_t{data()[hint - 1]} >= distance) --hint;
    while (hint < width_ && sign * int64_t{data()[hint]} < distance) ++hint;
    return hint;
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

// Finds, row after row, the columns whose position start + table[x], wrapped, is one of the length
// values from lowest on. As the table and the interval are both shorter than half the range of a
// position, these are one run.
class RunFinder {
 public:
  RunFinder(const ColumnTable& table, int32_t lowest, uint32_t length)
      : table_(table), lowest_(static_cast<uint32_t>(lowest)), length_(length) {}

  Run Find(int32_t start) {
    const uint32_t above = static_cast<uint32_t>(start) - lowest_;
    const bool starts_within = above < length_;
    int64_t to_begin = 0, to_end = 0;
    if (table_.IsRising()) {
      if (!starts_within) to_begin = (int64_t{1} << 32) - above;
      to_end = starts_within ? int64_t{length_} - above : to_begin + length_;
    } else {
      if (!starts_within) to_begin = int64_t{above} - length_ + 1;
      to_end = int64_t{above} + 1;
    }
    last_ = {table_.FirstMoved(to_begin, last_.begin), table_.FirstMoved(to_end, last_.end)};
    return last_;
  }

 private:
  const ColumnTable& table_;
  const uint32_t lowest_, length_;
  Run last_ = {0, 0};
};

// Paints runs of pixels in one colour, in chunks whose copies need no call.
class BorderPainter {
 public:
  explicit BorderPainter(const uint8_t (&pixel)[3]) {
    for (std::size_t i = 0; i < sizeof(chunk_); ++i) chunk_[i] = pixel[i % 3];
  }
  void Paint(std::size_t pixel_count, uint8_t* target) const {
    const std::size_t bytes = 3 * pixel_count;
    if (bytes < sizeof(chunk_)) {
      std::memcpy(target, chunk_, bytes);
      return;
    }
    for (std::size_t i = 0; i + sizeof(chunk_) <= bytes; i += sizeof(chunk_)) {
      std::memcpy(target + i, chunk_, sizeof(chunk_));
    }
    std::memcpy(target + bytes - sizeof(chunk_), chunk_, sizeof(chunk_));  // whole pixels back
  }

 private:
  uint8_t chunk_[48];
};

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
                  source.height <= kMaxFastHeight),
        border_(source.border),
        inside_x_(column_x, 0, Positions(int64_t{source.width} - 1)),
        inside_y_(column_y, 0, Positions(int64_t{source.height} - 1)),
        touching_x_(column_x, -kUnitsPerPixel, Positions(int64_t{source.width} + 1)),
        touching_y_(column_y, -kUnitsPerPixel, Positions(int64_t{source.height} + 1)),
        short_of_last_x_(column_x, 0, Positions(int64_t{source.width} - 2)) {}

  void Row(int32_t row_x, int32_t row_y, uint8_t* target) {
    const Run all = {0, column_x_.width()};
    if (!has_runs_) {
      PlainPixels(all, row_x, row_y, target);
      return;
    }
    const int last = all.end - 1;
    const bool all_inside_x = IsInsideX(X(row_x, 0)) && IsInsideX(X(row_x, last));
    const bool all_inside_y = IsInsideY(Y(row_y, 0)) && IsInsideY(Y(row_y, last));
    if (all_inside_x && all_inside_y) {
      InsidePixels(all, row_x, row_y, target);
      return;
    }
    const Run inside = Intersect(all_inside_x ? all : inside_x_.Find(row_x),
                                 all_inside_y ? all : inside_y_.Find(row_y));
    Run rest = inside;
    if (!is_transparent_) {
      rest = FindTouching(inside, row_x, row_y);
      if (rest.IsEmpty()) rest = {0, 0};
      Paint({0, rest.begin}, target);
      Paint({rest.end, all.end}, target);
    }
    if (inside.IsEmpty()) {
      PlainPixels(rest, row_x, row_y, target);
      return;
    }
    PlainPixels({rest.begin, inside.begin}, row_x, row_y, target);
    InsidePixels(inside, row_x, row_y, target);
    PlainPixels({inside.end, rest.end}, row_x, row_y, target);
  }

 private:
  int32_t X(int32_t row_x, int x) const { return AddWrapping(row_x, column_x_[x]); }
  int32_t Y(int32_t row_y, int x) const { return AddWrapping(row_y, column_y_[x]); }
  static uint8_t* Pixel(uint8_t* row, int x) { return row + 3 * static_cast<std::ptrdiff_t>(x); }

  // How many positions so many pixels have. Not used where it has no meaning (no runs, no pixels).
  static uint32_t Positions(int64_t pixels) {
    return pixels > 0 ? static_cast<uint32_t>(pixels) * static_cast<uint32_t>(kUnitsPerPixel) : 0;
  }

  // Pixels all of whose neighbours are in the source, along either axis.
  bool IsInsideX(int32_t x) const { return IsWithin(x, 0, Positions(source_.width - 1)); }
  bool IsInsideY(int32_t y) const { return IsWithin(y, 0, Positions(source_.height - 1)); }

  // Pixels at least one of whose neighbours is in the source: up to a pixel further on each side.
  bool IsTouching(int32_t x, int32_t y) const {
    return IsWithin(x, -kUnitsPerPixel, Positions(source_.width + 1)) &&
           IsWithin(y, -kUnitsPerPixel, Positions(source_.height + 1));
  }
  Run FindTouching(Run inside, int32_t row_x, int32_t row_y) {
    if (inside.IsEmpty()) return Intersect(touching_x_.Find(row_x), touching_y_.Find(row_y));
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

  void Paint(Run run, uint8_t* target) const {
    border_.Paint(static_cast<std::size_t>(run.end - run.begin), Pixel(target, run.begin));
  }

  void PlainPixels(Run run, int32_t row_x, int32_t row_y, uint8_t* target) const {
    if (!run.IsEmpty()) PlainPixelsOf(run, row_x, row_y, target);
  }
  // One copy of this long loop, not one for each caller: small first-level caches are full soon.
  __attribute__((noinline)) void PlainPixelsOf(Run run, int32_t row_x, int32_t row_y,
                                               uint8_t* target) const {
    for (int x = run.begin; x < run.end; ++x) {
      WarpPixel(source_, is_transparent_, X(row_x, x), Y(row_y, x), Pixel(target, x));
    }
  }

  void InsidePixels(Run inside, int32_t row_x, int32_t row_y, uint8_t* target) {
    Run vectors = inside;
    // The last two bytes that the vector loop loads for a pixel may be behind the source's last.
    const int32_t last_row_pair = (source_.height - 2) * kUnitsPerPixel;
    if (std::max(Y(row_y, inside.begin), Y(row_y, inside.end - 1)) >= last_row_pair) {
      vectors = Intersect(vectors, short_of_last_x_.Find(row_x));
    }
    if (warp_inside_run_ == nullptr || vectors.end - vectors.begin < kInsideRunBlock) {
      PlainPixels(inside, row_x, row_y, target);
      return;
    }
    PlainPixels({inside.begin, vectors.begin}, row_x, row_y, target);
    warp_inside_run_({source_.pixels, source_.pixels + 3 * source_.width, 3 * source_.width,
                      column_x_.data() + vectors.begin, column_y_.data() + vectors.begin, row_x,
                      row_y, vectors.end - vectors.begin, Pixel(target, vectors.begin)});
    PlainPixels({vectors.end, inside.end}, row_x, row_y, target);
  }

  const Source source_;
  const bool is_transparent_;
  const ColumnTable& column_x_;
  const ColumnTable& column_y_;
  const WarpInsideRun warp_inside_run_;
  const bool has_runs_;
  const BorderPainter border_;
  RunFinder inside_x_, inside_y_, touching_x_, touching_y_;
  RunFinder short_of_last_x_;  // inside, but for the last two columns
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
  Warp warp(source, border_type == kTransparentBorder, column_x, column_y);
  const float units = static_cast<float>(kUnitsPerPixel);
  for (int y = 0; y < dst_height; ++y) {
    const float row = static_cast<float>(y);
    warp.Row(RoundToFixed(std::fma(matrix[1], row, matrix[2]) * units),
             RoundToFixed(std::fma(row, matrix[4], matrix[5]) * units),
             dst + 3 * static_cast<std::ptrdiff_t>(dst_width) * y);
  }
}

}  // namespace corvane
