// Advanced SIMD loops. A step takes two blocks of sixteen pixels where registers suffice, so that
// cores that execute in order have one block's instructions to do while they wait for the other's
// results. Float16's shortcut holds only for some constants; see AcceptsFloat16().
#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

#include "src/rknn/encode_kernels.h"
#include "src/rknn/encode_loop.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

constexpr std::size_t kStepPixels = 2 * kBlockPixels;

// One byte of each pixel of a block, for every channel.
template <int kChannels>
struct Bytes {
  uint8x16_t channel[kChannels];
};

inline void Load(const uint8_t* pixels, Bytes<1>* bytes) { bytes->channel[0] = vld1q_u8(pixels); }

inline void Load(const uint8_t* pixels, Bytes<3>* bytes) {
  const uint8x16x3_t separated = vld3q_u8(pixels);
  for (int c = 0; c < 3; ++c) bytes->channel[c] = separated.val[c];
}

struct Floats {
  float32x4_t quarter[4];
};

// Computes byte - mean the plain way: widen, convert, subtract.
struct PlainDifference {
  static float Subtrahend(float mean) { return mean; }
  static Floats Of(uint8x16_t bytes, float32x4_t mean) {
    const uint16x8_t low = vmovl_u8(vget_low_u8(bytes));
    const uint16x8_t high = vmovl_high_u8(bytes);
    return {{vsubq_f32(vcvtq_f32_u32(vmovl_u16(vget_low_u16(low))), mean),
             vsubq_f32(vcvtq_f32_u32(vmovl_high_u16(low)), mean),
             vsubq_f32(vcvtq_f32_u32(vmovl_u16(vget_low_u16(high))), mean),
             vsubq_f32(vcvtq_f32_u32(vmovl_high_u16(high)), mean)}};
  }
};

// Computes it without a conversion; see AllMeansTakeOffset().
struct OffsetDifference {
  static float Subtrahend(float mean) { return kOffset + mean; }
  static Floats Of(uint8x16_t bytes, float32x4_t mean_with_offset) {
    const uint8x16_t zero = vdupq_n_u8(0);
    const uint16x8_t upper = vdupq_n_u16(kOffsetTopByte << 8);
    const uint16x8_t low = vreinterpretq_u16_u8(vzip1q_u8(zero, bytes));
    const uint16x8_t high = vreinterpretq_u16_u8(vzip2q_u8(zero, bytes));
    return {{vsubq_f32(vreinterpretq_f32_u16(vzip1q_u16(low, upper)), mean_with_offset),
             vsubq_f32(vreinterpretq_f32_u16(vzip2q_u16(low, upper)), mean_with_offset),
             vsubq_f32(vreinterpretq_f32_u16(vzip1q_u16(high, upper)), mean_with_offset),
             vsubq_f32(vreinterpretq_f32_u16(vzip2q_u16(high, upper)), mean_with_offset)}};
  }
};

inline void Store(const Floats& values, float* plane) {
  for (int q = 0; q < 4; ++q) vst1q_f32(plane + 4 * q, values.quarter[q]);
}

// Encodes values that were also scaled by 2^-112: their exponents have the half's bias, so bits 13
// to 27 and the sign make up the half. See Float16().
inline uint16x8_t RebiasedHalves(float32x4_t first, float32x4_t second) {
  const uint32x4_t first_bits = vreinterpretq_u32_f32(first);
  const uint32x4_t second_bits = vreinterpretq_u32_f32(second);
  const uint16x8_t magnitude_twice = vshrn_high_n_u32(vshrn_n_u32(first_bits, 12), second_bits, 12);
  const uint16x8_t upper =
      vuzp2q_u16(vreinterpretq_u16_u32(first_bits), vreinterpretq_u16_u32(second_bits));
  return vsriq_n_u16(upper, magnitude_twice, 1);  // keeps upper's sign
}

inline void Store(const Floats& rebiased, uint16_t* plane) {
  vst1q_u16(plane, RebiasedHalves(rebiased.quarter[0], rebiased.quarter[1]));
  vst1q_u16(plane + 8, RebiasedHalves(rebiased.quarter[2], rebiased.quarter[3]));
}

// The conversion follows the rule: it truncates, saturates and turns NaN into 0.
inline int16x8_t LowHalves(float32x4_t first, float32x4_t second) {
  return vuzp1q_s16(vreinterpretq_s16_s32(vcvtq_s32_f32(first)),
                    vreinterpretq_s16_s32(vcvtq_s32_f32(second)));
}

inline void Store(const Floats& values, int16_t* plane) {
  vst1q_s16(plane, LowHalves(values.quarter[0], values.quarter[1]));
  vst1q_s16(plane + 8, LowHalves(values.quarter[2], values.quarter[3]));
}

template <class Difference, int kChannels, int kBlocks, class Element>
void Fill(const EncodePlan<Element>& plan) {
  float32x4_t means[kChannels];
  float32x4_t scales[kChannels];
  Element* planes[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    means[c] = vdupq_n_f32(Difference::Subtrahend(plan.means[c]));
    scales[c] = vdupq_n_f32(plan.scales[c]);
    planes[c] = plan.planes[c];
  }
  const uint8_t* pixels = plan.pixels;
  constexpr std::size_t kPixels = kBlocks * kBlockPixels;
  ForEachBlock<kPixels>(plan.pixel_count, kPixels, [&](std::size_t i) {
    Bytes<kChannels> bytes[kBlocks];
    for (int b = 0; b < kBlocks; ++b) Load(pixels + (i + b * kBlockPixels) * kChannels, &bytes[b]);
    for (int c = 0; c < kChannels; ++c) {
      Floats values[kBlocks];
      for (int b = 0; b < kBlocks; ++b) values[b] = Difference::Of(bytes[b].channel[c], means[c]);
      for (Floats& block : values) {
        for (float32x4_t& quarter : block.quarter) quarter = vmulq_f32(quarter, scales[c]);
      }
      for (int b = 0; b < kBlocks; ++b) Store(values[b], planes[c] + i + b * kBlockPixels);
    }
  });
}

// Of three channels. Encoding halves takes more registers.
template <class Element>
constexpr int kColourBlocks = 2;
template <>
constexpr int kColourBlocks<uint16_t> = 1;

template <class Element>
void FillBlocks(const EncodePlan<Element>& plan) {
  const bool takes_offset = AllMeansTakeOffset(plan);
  if (plan.channels == 1) {
    takes_offset ? Fill<OffsetDifference, 1, 2>(plan) : Fill<PlainDifference, 1, 2>(plan);
  } else {
    constexpr int kBlocks = kColourBlocks<Element>;
    takes_offset ? Fill<OffsetDifference, 3, kBlocks>(plan)
                 : Fill<PlainDifference, 3, kBlocks>(plan);
  }
}

// Multiplying the scale by 2^-112 changes no element if the scale stays a normal number and every
// value other than 0 stays away from both ends of the half's range.
bool AcceptsFloat16(const EncodePlan<uint16_t>& plan) {
  for (int c = 0; c < plan.channels; ++c) {
    const float scale = plan.scales[c];
    if (!(scale >= PowerOfTwo(-14) || scale <= -PowerOfTwo(-14))) return false;
  }
  return AllStayWithin(plan, PowerOfTwo(-13), 65504.0F);
}

void Float16(const EncodePlan<uint16_t>& plan) {
  EncodePlan<uint16_t> rebiased = plan;
  for (float& scale : rebiased.scales) scale *= PowerOfTwo(-112);
  FillBlocks(rebiased);
}

// Only the low 16 bits of a difference reach the element, so 16-bit arithmetic suffices.
void Dfp16Integers(const IntegerPlan& plan) {
  const int16x8_t shift =
      vdupq_n_s16(static_cast<int16_t>(plan.fraction_bits < 16 ? plan.fraction_bits : 16));
  uint16x8_t minus_means[3];
  int16_t* planes[3];
  for (int c = 0; c < 3; ++c) {
    minus_means[c] = vdupq_n_u16(static_cast<uint16_t>(0U - static_cast<uint32_t>(plan.means[c])));
    planes[c] = plan.planes[c];
  }
  const uint8_t* pixels = plan.pixels;
  ForEachBlock<kStepPixels>(plan.pixel_count, kStepPixels, [&](std::size_t i) {
    const uint8x16x3_t blocks[] = {vld3q_u8(pixels + i * 3),
                                   vld3q_u8(pixels + (i + kBlockPixels) * 3)};
    for (int c = 0; c < 3; ++c) {
      for (int b = 0; b < 2; ++b) {
        int16_t* const plane = planes[c] + i + b * kBlockPixels;
        const uint8x16_t block = blocks[b].val[c];
        const uint16x8_t low = vaddw_u8(minus_means[c], vget_low_u8(block));
        const uint16x8_t high = vaddw_high_u8(minus_means[c], block);
        vst1q_s16(plane, vreinterpretq_s16_u16(vshlq_u16(low, shift)));
        vst1q_s16(plane + 8, vreinterpretq_s16_u16(vshlq_u16(high, shift)));
      }
    }
  });
}

}  // namespace

const EncodeKernels kNeonKernels = {"neon",  kStepPixels,         AcceptsFloat16, FillBlocks<float>,
                                    Float16, FillBlocks<int16_t>, Dfp16Integers};

}  // namespace corvane
