// Splits each destination row into runs outside the source, at its edge and inside it, and fills
// each run in its own way.
#include <algorithm>
#include <cmath>

#include "corvane/image.h"
#include "src/image/border_painter.h"
#include "src/image/column_table.h"
#include "src/image/inside_run.h"
#include "src/image/warp_rules.h"

namespace corvane {
namespace {

constexpr int kTransparentBorder = -233;

// Up to these sizes the vector loops' 16-bit factors and 32-bit offsets suffice, and the intervals
// of positions are short enough for ColumnTable::FindWithin.
constexpr int kMaxFastWidth = 10922;
constexpr int kMaxFastHeight = 32767;

// The positions of `pixels` pixels from `first_pixel` on; none unless `pixels` is positive.
Interval PositionsOf(int first_pixel, int64_t pixels) {
  const uint32_t count = pixels > 0 ? static_cast<uint32_t>(pixels) : 0;
  return {first_pixel * kUnitsPerPixel, count * static_cast<uint32_t>(kUnitsPerPixel)};
}

class RowWarper {
 public:
  RowWarper(const Source& source, bool is_transparent, const ColumnTable& column_x,
            const ColumnTable& column_y)
      : source_(source),
        is_transparent_(is_transparent),
        column_x_(column_x),
        column_y_(column_y),
        warp_inside_run_(FastestInsideRun()),
        has_runs_(source.width > 0 && source.width <= kMaxFastWidth && source.height > 0 &&
                  source.height <= kMaxFastHeight),
        border_(source.border),
        inside_x_(PositionsOf(0, int64_t{source.width} - 1)),
        inside_y_(PositionsOf(0, int64_t{source.height} - 1)),
        touching_x_(PositionsOf(-1, int64_t{source.width} + 1)),
        touching_y_(PositionsOf(-1, int64_t{source.height} + 1)) {}

  void Warp(int32_t row_x, int32_t row_y, uint8_t* target) const {
    const Run all = {0, column_x_.width()};
    if (!has_runs_) {
      WarpByRule(all, row_x, row_y, target);
      return;
    }
    const Run inside = FindInside(all, row_x, row_y);
    if (inside.begin == 0 && inside.end == all.end) {
      WarpInside(inside, row_x, row_y, target);
      return;
    }
    Run rest = inside;
    if (!is_transparent_) {
      rest = FindTouching(inside, row_x, row_y);
      if (rest.IsEmpty()) {
        Paint(all, target);
        return;
      }
      Paint({0, rest.begin}, target);
      Paint({rest.end, all.end}, target);
    }
    if (inside.IsEmpty()) {
      WarpByRule(rest, row_x, row_y, target);
      return;
    }
    WarpByRule({rest.begin, inside.begin}, row_x, row_y, target);
    WarpInside(inside, row_x, row_y, target);
    WarpByRule({inside.end, rest.end}, row_x, row_y, target);
  }

 private:
  int32_t X(int32_t row_x, int x) const { return AddWrapping(row_x, column_x_[x]); }
  int32_t Y(int32_t row_y, int x) const { return AddWrapping(row_y, column_y_[x]); }
  static uint8_t* Pixel(uint8_t* row, int x) { return row + 3 * static_cast<std::ptrdiff_t>(x); }

  // The pixels whose neighbours all lie in the source. A row whose ends are inside is inside.
  Run FindInside(Run all, int32_t row_x, int32_t row_y) const {
    const int last = all.end - 1;
    Run inside = all;
    if (!inside_x_.Contains(X(row_x, 0)) || !inside_x_.Contains(X(row_x, last))) {
      inside = column_x_.FindWithin(inside_x_, row_x);
    }
    if (!inside_y_.Contains(Y(row_y, 0)) || !inside_y_.Contains(Y(row_y, last))) {
      inside = Intersect(inside, column_y_.FindWithin(inside_y_, row_y));
    }
    return inside;
  }

  // The pixels of which at least one neighbour lies in the source: up to a pixel more on each side.
  Run FindTouching(Run inside, int32_t row_x, int32_t row_y) const {
    if (inside.IsEmpty()) {
      return Intersect(column_x_.FindWithin(touching_x_, row_x),
                       column_y_.FindWithin(touching_y_, row_y));
    }
    // These pixels are few, and warping each costs more than looking at it here.
    Run touching = inside;
    while (touching.begin > 0 && IsTouching(row_x, row_y, touching.begin - 1)) --touching.begin;
    while (touching.end < column_x_.width() && IsTouching(row_x, row_y, touching.end)) {
      ++touching.end;
    }
    return touching;
  }
  bool IsTouching(int32_t row_x, int32_t row_y, int x) const {
    return touching_x_.Contains(X(row_x, x)) && touching_y_.Contains(Y(row_y, x));
  }

  void Paint(Run run, uint8_t* target) const {
    border_.Paint(static_cast<std::size_t>(run.end - run.begin), Pixel(target, run.begin));
  }

  void WarpByRule(Run run, int32_t row_x, int32_t row_y, uint8_t* target) const {
    if (!run.IsEmpty()) WarpPixels(run, row_x, row_y, target);
  }
  // Not inlined: six copies of this long loop would crowd small instruction caches.
  __attribute__((noinline)) void WarpPixels(Run run, int32_t row_x, int32_t row_y,
                                            uint8_t* target) const {
    for (int x = run.begin; x < run.end; ++x) {
      WarpPixel(source_, is_transparent_, X(row_x, x), Y(row_y, x), Pixel(target, x));
    }
  }

  void WarpInside(Run inside, int32_t row_x, int32_t row_y, uint8_t* target) const {
    const Run fast = ExcludeSourceEnd(inside, row_x, row_y);
    if (warp_inside_run_ == nullptr || fast.end - fast.begin < kInsideRunBlock) {
      WarpByRule(inside, row_x, row_y, target);
      return;
    }
    WarpByRule({inside.begin, fast.begin}, row_x, row_y, target);
    warp_inside_run_({source_.pixels, source_.pixels + 3 * source_.width, 3 * source_.width,
                      column_x_.data() + fast.begin, column_y_.data() + fast.begin, row_x, row_y,
                      fast.end - fast.begin, Pixel(target, fast.begin)});
    WarpByRule({fast.end, inside.end}, row_x, row_y, target);
  }

  // Leaves out the pixels for which a vector loop would load bytes past the source's end.
  Run ExcludeSourceEnd(Run inside, int32_t row_x, int32_t row_y) const {
    const int32_t last_row_pair = (source_.height - 2) * kUnitsPerPixel;
    if (std::max(Y(row_y, inside.begin), Y(row_y, inside.end - 1)) < last_row_pair) return inside;
    const Interval but_last_two = PositionsOf(0, int64_t{source_.width} - 2);
    return Intersect(inside, column_x_.FindWithin(but_last_two, row_x));
  }

  const Source source_;
  const bool is_transparent_;
  const ColumnTable& column_x_;
  const ColumnTable& column_y_;
  const WarpInsideRun warp_inside_run_;  // null where no vector loop can run
  const bool has_runs_;                  // the source is neither empty nor too large for runs
  const BorderPainter border_;
  const Interval inside_x_, inside_y_, touching_x_, touching_y_;  // meaningless without runs
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
  const RowWarper warper(source, border_type == kTransparentBorder, column_x, column_y);
  const float units = static_cast<float>(kUnitsPerPixel);
  for (int y = 0; y < dst_height; ++y) {
    const float row = static_cast<float>(y);
    warper.Warp(RoundToFixed(std::fma(matrix[1], row, matrix[2]) * units),
                RoundToFixed(std::fma(row, matrix[4], matrix[5]) * units),
                dst + 3 * static_cast<std::ptrdiff_t>(dst_width) * y);
  }
}

}  // namespace corvane
