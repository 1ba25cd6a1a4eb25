// Claims on the blend of the NEON warp loop.
#include "src/image/inside_run_neon.cc"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

// Fractions 8 * block to 8 * block + 7, times 32, one in each lane.
int16x8_t EightFractions(int block) {
  const int16_t lanes[] = {0, 32, 64, 96, 128, 160, 192, 224};
  return vaddq_s16(vld1q_s16(lanes), vdupq_n_s16(static_cast<int16_t>(block * 256)));
}

// Both ways of widening bytes, and a fraction of its own in each lane.
uint64_t CheckRowBlends(uint64_t left) {
  const uint8x16_t lefts = vdupq_n_u8(static_cast<uint8_t>(left));
  for (uint32_t right = 0; right < 256; ++right) {
    const uint8x16_t rights = vdupq_n_u8(static_cast<uint8_t>(right));
    for (uint32_t block = 0; block < 128; ++block) {
      const int16x8_t fractions = EightFractions(static_cast<int>(block));
      int16_t low[8], high[8];
      vst1q_s16(low, BlendAcross(LowTimes32(lefts), HighTimes32(rights), fractions));
      vst1q_s16(high, BlendAcross(HighTimes32(lefts), LowTimes32(rights), fractions));
      for (uint32_t lane = 0; lane < 8; ++lane) {
        const uint32_t fraction = 8 * block + lane;
        const uint32_t wanted = RowBlend(static_cast<uint32_t>(left), right, fraction);
        if (static_cast<uint32_t>(low[lane]) != wanted || low[lane] != high[lane]) {
          Counterexample("bytes 0x%02X 0x%02X, fraction 0x%03X give 0x%04X, not 0x%04X",
                         static_cast<uint32_t>(left), right, fraction,
                         static_cast<uint16_t>(low[lane]), wanted);
        }
      }
    }
  }
  return 256 * 1024 * 2;
}

// The loop moves the top row by a function of the difference and the fraction alone, then divides
// by 32: so each difference with the 32 lowest and 32 highest top rows that it allows suffices.
uint64_t CheckColumnBlends(uint64_t item) {
  const int difference = static_cast<int>(item) - 8160;
  const int lowest = std::max(0, -difference), highest = 8160 - std::max(0, difference);
  for (int i = 0; i < 64; ++i) {
    const int top = i < 32 ? std::min(lowest + i, highest) : std::max(highest - i + 32, lowest);
    const int16x8_t tops = vdupq_n_s16(static_cast<int16_t>(top));
    const int16x8_t bottoms = vdupq_n_s16(static_cast<int16_t>(top + difference));
    for (int block = 0; block < 128; ++block) {
      uint8_t blends[8];
      vst1_u8(blends, BlendDown(tops, bottoms, EightFractions(block)));
      for (int lane = 0; lane < 8; ++lane) {
        const uint32_t wanted = ColumnBlend(top, top + difference, 8 * block + lane);
        if (blends[lane] != wanted) {
          Counterexample("rows 0x%04X 0x%04X, fraction 0x%03X give 0x%02X, not 0x%02X", top,
                         top + difference, 8 * block + lane, blends[lane], wanted);
        }
      }
    }
  }
  return 64 * 1024;
}

}  // namespace

const WarpInsideRun kVectorInsideRun = WarpInsideRunNeon;

std::vector<Claim> VectorBlendClaims() {
  return {{"row-blend/neon", "every two bytes and fraction, both ways of widening",
           [] { return ForAll(256, CheckRowBlends); }},
          {"column-blend/neon", "every difference of two rows and fraction, 64 top rows each",
           [] { return ForAll(2 * 8160 + 1, CheckColumnBlends); }}};
}

}  // namespace corvane
