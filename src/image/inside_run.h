// Pixels of one destination row whose four neighbours all lie in the source: the bulk of every
// warp.
#ifndef CORVANE_SRC_IMAGE_INSIDE_RUN_H_
#define CORVANE_SRC_IMAGE_INSIDE_RUN_H_

#include <cstdint>

namespace corvane {

// Positions are in units of 1/1024 pixel; pixel i of the run samples the source at
// (row_x + column_x[i], row_y + column_y[i]).
struct InsideRun {
  const uint8_t* source;
  const uint8_t*
      source_below;       // one row on; a pointer of its own keeps an addition out of the loop
  int32_t source_stride;  // bytes of a source row, at most 32767
  const int32_t* column_x;
  const int32_t* column_y;
  int32_t row_x;
  int32_t row_y;
  int count;  // at least kInsideRunBlock
  uint8_t* target;
};

// The vector loops take pixels in blocks of this many; a last block overlaps the one before.
constexpr int kInsideRunBlock = 8;

namespace {
inline InsideRun Behind(InsideRun run, int pixels) {
  run.column_x += pixels;
  run.column_y += pixels;
  run.target += 3 * pixels;
  run.count -= pixels;
  return run;
}
}  // namespace

// They load 8 bytes for the 6 of two neighbours. The caller keeps pixels out of the run where that
// would reach behind the source: those of its last two columns in its last two rows.
using WarpInsideRun = void (*)(const InsideRun& run);

// Each is there where its instruction set can be; see src/CMakeLists.txt.
void WarpInsideRunNeon(const InsideRun& run);
void WarpInsideRunAvx2(const InsideRun& run);

}  // namespace corvane

#endif  // CORVANE_SRC_IMAGE_INSIDE_RUN_H_
