// Warps inside pixels in blocks of 8 pixels with NEON.
//
// In 16-bit lanes the blend of warp_rules.h is exact in this form, because nested floors combine:
//   top    = 32 * a0 + ((a1 - a0) * fx >> 5)
//   result = (top + ((bottom - top) * fy >> 10)) >> 5
// A doubling high-half multiplication by fx << 5 (or fy << 5) performs the shift if the other
// factor is (a1 - a0) * 32, or bottom - top unchanged. All values fit 16 signed bits.
#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

#include "src/image/inside_run.h"

namespace corvane {
namespace {

struct Axis {
  uint16x8_t whole;
  int16x8_t fraction;  // times 32
};

inline Axis Split(const int32_t* columns, int32x4_t row) {
  const int32x4_t low = vaddq_s32(vld1q_s32(columns), row);
  const int32x4_t high = vaddq_s32(vld1q_s32(columns + 4), row);
  const int16x8_t whole = vshrn_high_n_s32(vshrn_n_s32(low, 10), high, 10);
  const uint16x8_t lower_bits = vuzp1q_u16(vreinterpretq_u16_s32(low), vreinterpretq_u16_s32(high));
  return {vreinterpretq_u16_s16(whole),
          vreinterpretq_s16_u16(vshrq_n_u16(vshlq_n_u16(lower_bits, 6), 1))};
}

// 8 bytes, of which the first 6 are two neighbours, in the low half of a register.
inline uint8x16_t LoadPair(const uint8_t* pair) {
  return vcombine_u8(vld1_u8(pair), vcreate_u8(0));
}

// Byte k of each of 8 pairs, for k = 0 1 | 2 3 | 4 5.
struct Columns {
  uint8x16_t bytes[3];
};

inline Columns Transpose(const uint8_t* row, const uint32_t (&at)[8]) {
  const uint8x16_t pairs04 = vzip1q_u8(LoadPair(row + at[0]), LoadPair(row + at[4]));
  const uint8x16_t pairs15 = vzip1q_u8(LoadPair(row + at[1]), LoadPair(row + at[5]));
  const uint8x16_t pairs26 = vzip1q_u8(LoadPair(row + at[2]), LoadPair(row + at[6]));
  const uint8x16_t pairs37 = vzip1q_u8(LoadPair(row + at[3]), LoadPair(row + at[7]));
  const uint8x16_t even_left = vzip1q_u8(pairs04, pairs26);
  const uint8x16_t even_right = vzip2q_u8(pairs04, pairs26);
  const uint8x16_t odd_left = vzip1q_u8(pairs15, pairs37);
  const uint8x16_t odd_right = vzip2q_u8(pairs15, pairs37);
  return {{vzip1q_u8(even_left, odd_left), vzip2q_u8(even_left, odd_left),
           vzip1q_u8(even_right, odd_right)}};
}

inline int16x8_t LowTimes32(uint8x16_t bytes) {
  return vreinterpretq_s16_u16(vshll_n_u8(vget_low_u8(bytes), 5));
}
inline int16x8_t HighTimes32(uint8x16_t bytes) {
  return vreinterpretq_s16_u16(vshll_high_n_u8(bytes, 5));
}

inline int16x8_t BlendAcross(int16x8_t left, int16x8_t right, int16x8_t fraction) {
  return vaddq_s16(left, vqdmulhq_s16(vsubq_s16(right, left), fraction));
}

inline uint8x8_t BlendDown(int16x8_t top, int16x8_t bottom, int16x8_t fraction) {
  const int16x8_t moved = vqdmulhq_s16(vsubq_s16(bottom, top), fraction);
  return vshrn_n_u16(vreinterpretq_u16_s16(vaddq_s16(top, moved)), 5);
}

inline uint8x8x3_t WarpedBlock(const InsideRun& run) {
  const Axis column = Split(run.column_x, vdupq_n_s32(run.row_x));
  const Axis row = Split(run.column_y, vdupq_n_s32(run.row_y));

  const uint16x4_t stride = vdup_n_u16(static_cast<uint16_t>(run.source_stride));
  const uint16x4_t pixel_bytes = vdup_n_u16(3);
  uint32_t at[8];
  vst1q_u32(at, vmlal_u16(vmull_u16(vget_low_u16(row.whole), stride), vget_low_u16(column.whole),
                          pixel_bytes));
  vst1q_u32(at + 4, vmlal_u16(vmull_u16(vget_high_u16(row.whole), stride),
                              vget_high_u16(column.whole), pixel_bytes));

  const Columns a = Transpose(run.source, at);
  const Columns b = Transpose(run.source_below, at);
  const int16x8_t fx = column.fraction;
  uint8x8x3_t pixels;
  pixels.val[0] =
      BlendDown(BlendAcross(LowTimes32(a.bytes[0]), HighTimes32(a.bytes[1]), fx),
                BlendAcross(LowTimes32(b.bytes[0]), HighTimes32(b.bytes[1]), fx), row.fraction);
  pixels.val[1] =
      BlendDown(BlendAcross(HighTimes32(a.bytes[0]), LowTimes32(a.bytes[2]), fx),
                BlendAcross(HighTimes32(b.bytes[0]), LowTimes32(b.bytes[2]), fx), row.fraction);
  pixels.val[2] =
      BlendDown(BlendAcross(LowTimes32(a.bytes[1]), HighTimes32(a.bytes[2]), fx),
                BlendAcross(LowTimes32(b.bytes[1]), HighTimes32(b.bytes[2]), fx), row.fraction);
  return pixels;
}

inline uint8x16x3_t Join(uint8x8x3_t first, uint8x8x3_t second) {
  return {{vcombine_u8(first.val[0], second.val[0]), vcombine_u8(first.val[1], second.val[1]),
           vcombine_u8(first.val[2], second.val[2])}};
}

}  // namespace

void WarpInsideRunNeon(const InsideRun& whole) {
  InsideRun run = whole;  // a local copy: stores through target cannot alias it
  // Two blocks are computed before either is stored: on in-order cores the instructions of one fill
  // the stalls of the other (a fifth fewer cycles on the A53).
  for (; run.count >= 2 * kInsideRunBlock; run = StartingAt(run, 2 * kInsideRunBlock)) {
    const uint8x8x3_t first = WarpedBlock(run);
    const uint8x8x3_t second = WarpedBlock(StartingAt(run, kInsideRunBlock));
    vst3q_u8(run.target, Join(first, second));
  }
  while (run.count > 0) {
    if (run.count < kInsideRunBlock) run = StartingAt(run, run.count - kInsideRunBlock);
    vst3_u8(run.target, WarpedBlock(run));
    run = StartingAt(run, kInsideRunBlock);
  }
}

}  // namespace corvane
