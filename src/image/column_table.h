// How far each column of a destination row moves the sample position, and the search for the
// columns whose positions lie in an interval.
#ifndef CORVANE_SRC_IMAGE_COLUMN_TABLE_H_
#define CORVANE_SRC_IMAGE_COLUMN_TABLE_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "src/image/warp_rules.h"

namespace corvane {
namespace {

// Columns from begin up to, but not including, end.
struct Run {
  int begin, end;
  bool IsEmpty() const { return begin >= end; }
};

inline Run Intersect(Run a, Run b) { return {std::max(a.begin, b.begin), std::min(a.end, b.end)}; }

// The positions from lowest to lowest + length - 1. Their number is less than half the range of a
// position.
struct Interval {
  int32_t lowest;
  uint32_t length;

  uint32_t OffsetOf(int32_t position) const {
    return static_cast<uint32_t>(position) - static_cast<uint32_t>(lowest);
  }
  bool Contains(int32_t position) const { return OffsetOf(position) < length; }
};

// The movements along one axis: RoundToFixed(float(x) * (step * 1024)) for each column x. Column 0
// does not move the position; the others move it in one direction only, by less than half its
// range.
class ColumnTable {
 public:
  // Throws std::bad_alloc for a negative width, too.
  explicit ColumnTable(int width) : width_(width) {
    if (width < 0) throw std::bad_alloc();
    if (width > 0) offsets_.reset(new int32_t[static_cast<std::size_t>(width)]);
  }

  void Fill(float step) {
    const float units = step * static_cast<float>(kUnitsPerPixel);
    for (int x = 0; x < width_; ++x)
      offsets_.get()[x] = RoundToFixed(static_cast<float>(x) * units);
    columns_per_unit_ = 1 / std::fabs(units);
  }

  const int32_t* data() const { return offsets_.get(); }
  int32_t operator[](int x) const { return data()[x]; }
  int width() const { return width_; }

  // The columns whose position, start + table[x] with wrap-around, lies in the interval. They are
  // one run, because the table and the interval both span less than half the range of a position.
  Run FindWithin(const Interval& interval, int32_t start) const {
    const uint32_t offset = interval.OffsetOf(start);
    const int64_t length = interval.length;
    const bool starts_within = offset < interval.length;
    if (IsRising()) {
      const int64_t to_begin = starts_within ? 0 : (int64_t{1} << 32) - offset;
      const int64_t to_end = starts_within ? length - offset : to_begin + length;
      return {FirstMoved(to_begin), FirstMoved(to_end)};
    }
    const int64_t to_begin = starts_within ? 0 : offset - length + 1;
    return {FirstMoved(to_begin), FirstMoved(int64_t{offset} + 1)};
  }

 private:
  bool IsRising() const { return data()[width_ - 1] >= 0; }

  // The first column that moves the position at least this far, in whichever direction, or the
  // width. A division is off by a column at most, unless movements are cut off at the ends of their
  // range or the step is no number; the table has the last word.
  int FirstMoved(int64_t distance) const {
    if (distance <= 0) return 0;
    const float quotient = static_cast<float>(distance) * columns_per_unit_;
    int x = quotient < static_cast<float>(width_) ? static_cast<int>(quotient) : width_;
    const int sign = IsRising() ? 1 : -1;
    while (x > 0 && sign * int64_t{data()[x - 1]} >= distance) --x;
    while (x < width_ && sign * int64_t{data()[x]} < distance) ++x;
    return x;
  }

  std::unique_ptr<int32_t[]> offsets_;
  int width_;
  float columns_per_unit_ = 0;
};

}  // namespace
}  // namespace corvane

#endif  // CORVANE_SRC_IMAGE_COLUMN_TABLE_H_
