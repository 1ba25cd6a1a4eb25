// Warps the pixels of one destination row whose four neighbours all lie in the source: the bulk of
// every warp.
#ifndef CORVANE_SRC_IMAGE_INSIDE_RUN_H_
#define CORVANE_SRC_IMAGE_INSIDE_RUN_H_

#include <cstdint>

namespace corvane {

// Positions are in units of 1/1024 pixel; pixel i of the run samples the source at
// (row_x + column_x[i], row_y + column_y[i]).
struct InsideRun {
  const uint8_t* source;
  const uint8_t* source_below;  // one row further; precomputed to keep an addition out of the loop
  int32_t source_stride;        // bytes of a source row, at most 32767
  const int32_t* column_x;
  const int32_t* column_y;
  int32_t row_x;
  int32_t row_y;
  int count;  // at least kInsideRunBlock
  uint8_t* target;
};

// The vector loops process blocks of this many pixels; the last block may overlap the one before
// it.
constexpr int kInsideRunBlock = 8;

namespace {
// The run from its pixel `first` on. A negative `first` prepends pixels that the caller knows to be
// inside, too.
inline InsideRun StartingAt(InsideRun run, int first) {
  run.column_x += first;
  run.column_y += first;
  run.target += 3 * first;
  run.count -= first;
  return run;
}
}  // namespace

// Each load of two neighbours reads 8 bytes, 2 too many. The caller excludes the pixels where those
// 2 bytes lie past the source's end: the ones in its last two columns and last two rows.
using WarpInsideRun = void (*)(const InsideRun& run);

// The fastest loop that this build has and this CPU runs, or null.
WarpInsideRun FastestInsideRun();

// src/CMakeLists.txt compiles each where the architecture has its instructions.
void WarpInsideRunNeon(const InsideRun& run);
void WarpInsideRunAvx2(const InsideRun& run);

}  // namespace corvane

#endif  // CORVANE_SRC_IMAGE_INSIDE_RUN_H_
