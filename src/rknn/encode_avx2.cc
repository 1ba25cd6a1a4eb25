// AVX2 and F16C loops, sixteen pixels a step. Only this file and inside_run_avx2.cc are compiled
// for AVX2.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "src/rknn/encode_kernels.h"
#include "src/rknn/encode_loop.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

// Loads the bytes at lower and at upper into the halves of a register. A broadcasting load and a
// blend avoid the shuffle ports, the bottleneck of these loops.
inline __m256i Load16And16Bytes(const uint8_t* lower, const uint8_t* upper) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lower));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(upper));
  return _mm256_blend_epi32(_mm256_castsi128_si256(low), _mm256_broadcastsi128_si256(high), 0xF0);
}

inline __m256i Load8And8Bytes(const uint8_t* lower, const uint8_t* upper) {
  const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(lower));
  const __m128i high = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(upper));
  return _mm256_blend_epi32(_mm256_castsi128_si256(low), _mm256_broadcastq_epi64(high), 0xF0);
}

// Loads eight pixels: the first four from byte 0 of the lower half, the others from byte 4 of the
// upper half. It reads up to 16 bytes from `lower` and from `upper - 4`. Bytes 12 to 15 of the
// lower half and 0 to 3 of the upper one are unused.
template <int kChannels>
inline __m256i LoadFours(const uint8_t* lower, const uint8_t* upper) {
  if (kChannels == 3) return Load16And16Bytes(lower, upper - 4);
  return Load8And8Bytes(lower, upper - 4);
}

// Returns the shuffle of LoadFours' bytes into one 32-bit lane for each pixel. lane_of(byte, spare)
// gives the four byte indices of a lane, the lowest first: `byte` is the index of the pixel's byte,
// `spare` that of an unused one.
template <int kChannels, class LaneOf>
inline __m256i ShuffleToLanes(int c, LaneOf lane_of) {
  constexpr int kStep = kChannels;
  return _mm256_setr_epi32(lane_of(c, 15), lane_of(c + kStep, 15), lane_of(c + 2 * kStep, 15),
                           lane_of(c + 3 * kStep, 15), lane_of(4 + c, 0), lane_of(4 + c + kStep, 0),
                           lane_of(4 + c + 2 * kStep, 0), lane_of(4 + c + 3 * kStep, 0));
}
constexpr int kZeroByte = 0x80;  // as an index

// Computes byte - mean the plain way: widen, convert, subtract.
struct PlainDifference {
  template <int kChannels>
  static __m256i Shuffle(int c) {
    return ShuffleToLanes<kChannels>(c, [](int byte, int) {
      return static_cast<int>(0xFFFFFF00U | static_cast<unsigned>(byte));
    });
  }
  static __m256i Prepare(__m256i pixels) { return pixels; }
  static __m256 ToFloats(__m256i lanes) { return _mm256_cvtepi32_ps(lanes); }
  static float Subtrahend(float mean) { return mean; }
};

// Computes it without a conversion; see AllMeansTakeOffset(). An unused byte holds the constant.
struct OffsetDifference {
  template <int kChannels>
  static __m256i Shuffle(int c) {
    return ShuffleToLanes<kChannels>(c, [](int byte, int spare) {
      return spare << 24 | kZeroByte << 16 | byte << 8 | kZeroByte;
    });
  }
  static __m256i Prepare(__m256i pixels) {
    return _mm256_blend_epi32(pixels, _mm256_set1_epi8(kOffsetTopByte), 0x18);
  }
  static __m256 ToFloats(__m256i lanes) { return _mm256_castsi256_ps(lanes); }
  static float Subtrahend(float mean) { return kOffset + mean; }
};

// Turns sixteen values into elements: any values, and below values that are known to be in range.
struct AnyValues {
  static void Store(__m256 first, __m256 second, float* plane) {
    _mm256_storeu_ps(plane, first);
    _mm256_storeu_ps(plane + 8, second);
  }

  // The conversion truncates as the rule does; its results for infinities, NaNs and magnitudes
  // below 2^-14 are corrected.
  static void Store(__m256 first, __m256 second, uint16_t* plane) {
    const __m256i halves =
        _mm256_inserti128_si256(_mm256_castsi128_si256(_mm256_cvtps_ph(first, _MM_FROUND_TO_ZERO)),
                                _mm256_cvtps_ph(second, _MM_FROUND_TO_ZERO), 1);
    const __m256i sign = _mm256_and_si256(halves, _mm256_set1_epi16(INT16_MIN));
    const __m256i magnitude = _mm256_xor_si256(halves, sign);
    const __m256i finite = _mm256_min_epu16(magnitude, _mm256_set1_epi16(0x7BFF));
    const __m256i is_normal = _mm256_cmpgt_epi16(finite, _mm256_set1_epi16(0x03FF));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(plane),
                        _mm256_or_si256(_mm256_and_si256(finite, is_normal), sign));
  }

  // Out of range the conversion gives 0x80000000, whose low half is wrong only above the range.
  static __m256i LowHalves(__m256 values) {
    const __m256i is_above =
        _mm256_castps_si256(_mm256_cmp_ps(values, _mm256_set1_ps(2147483648.0F), _CMP_GE_OQ));
    const __m256i integers = _mm256_or_si256(_mm256_cvttps_epi32(values), is_above);
    return _mm256_and_si256(integers, _mm256_set1_epi32(0xFFFF));
  }
  static void Store(__m256 first, __m256 second, int16_t* plane) {
    const __m256i packed = _mm256_packus_epi32(LowHalves(first), LowHalves(second));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(plane), packed);
  }
};

struct ValuesInRange {
  static bool Holds(const EncodePlan<float>&) { return true; }
  static void Store(__m256 first, __m256 second, float* plane) {
    AnyValues::Store(first, second, plane);
  }

  static bool Holds(const EncodePlan<uint16_t>& plan) {
    return AllStayWithin(plan, PowerOfTwo(-14), 65504.0F);
  }
  static void Store(__m256 first, __m256 second, uint16_t* plane) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(plane), _mm256_cvtps_ph(first, _MM_FROUND_TO_ZERO));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(plane + 8),
                     _mm256_cvtps_ph(second, _MM_FROUND_TO_ZERO));
  }

  static bool Holds(const EncodePlan<int16_t>& plan) { return AllStayWithin(plan, 0, 32767.0F); }
  static void Store(__m256 first, __m256 second, int16_t* plane) {
    const __m256i packed =
        _mm256_packs_epi32(_mm256_cvttps_epi32(first), _mm256_cvttps_epi32(second));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(plane), packed);
  }
};

// The first pixel of the second block: the one that aligns its stores to the first plane.
template <class Element>
inline std::size_t HeadPixels(const Element* plane) {
  const std::size_t misaligned = reinterpret_cast<std::uintptr_t>(plane) % 32;
  return kBlockPixels - misaligned / sizeof(Element);
}

// Packing two registers interleaves their halves: both lower ones come before both upper ones.
constexpr bool IsPacked(const int16_t*) { return true; }
constexpr bool IsPacked(const void*) { return false; }

template <int kChannels, class Difference, class Values, class Element>
void Fill(const EncodePlan<Element>& plan) {
  __m256i shuffles[kChannels];
  __m256 means[kChannels];
  __m256 scales[kChannels];
  Element* planes[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    shuffles[c] = Difference::template Shuffle<kChannels>(c);
    means[c] = _mm256_set1_ps(Difference::Subtrahend(plan.means[c]));
    scales[c] = _mm256_set1_ps(plan.scales[c]);
    planes[c] = plan.planes[c];
  }
  constexpr int kFourBytes = 4 * kChannels;
  constexpr bool kIsPacked = IsPacked(static_cast<Element*>(nullptr));
  const uint8_t* pixels = plan.pixels;
  ForEachBlock<kBlockPixels>(plan.pixel_count, HeadPixels(planes[0]), [&](std::size_t i) {
    const uint8_t* block = pixels + i * kChannels;
    const auto load = [&](int lower, int upper) {  // the block's fours by number
      return Difference::Prepare(
          LoadFours<kChannels>(block + lower * kFourBytes, block + upper * kFourBytes));
    };
    const __m256i first = load(0, kIsPacked ? 2 : 1);
    const __m256i second = load(kIsPacked ? 1 : 2, 3);
    for (int c = 0; c < kChannels; ++c) {
      const auto value_of = [&](__m256i eight) {
        const __m256 floats = Difference::ToFloats(_mm256_shuffle_epi8(eight, shuffles[c]));
        return _mm256_mul_ps(_mm256_sub_ps(floats, means[c]), scales[c]);
      };
      Values::Store(value_of(first), value_of(second), planes[c] + i);
    }
  });
}

template <int kChannels, class Element>
void FillBlocks(const EncodePlan<Element>& plan) {
  if (!ValuesInRange::Holds(plan)) {
    Fill<kChannels, PlainDifference, AnyValues>(plan);
  } else if (AllMeansTakeOffset(plan)) {
    Fill<kChannels, OffsetDifference, ValuesInRange>(plan);
  } else {
    Fill<kChannels, PlainDifference, ValuesInRange>(plan);
  }
}

template <class Element>
void FillBlocks(const EncodePlan<Element>& plan) {
  plan.channels == 1 ? FillBlocks<1>(plan) : FillBlocks<3>(plan);
}

// Only the low 16 bits of a difference reach the element, so 16-bit arithmetic suffices. In each
// half of a register, four pixels start at byte 0 of `low` and four more at byte 4 of `high`.
void Dfp16Integers(const IntegerPlan& plan) {
  const __m256i factor = _mm256_set1_epi16(
      LowHalf(plan.fraction_bits < 16 ? uint32_t{1} << plan.fraction_bits : uint32_t{0}));
  const __m256i low_bytes = _mm256_broadcastsi128_si256(_mm_setr_epi8(
      0, -128, 3, -128, 6, -128, 9, -128, -128, -128, -128, -128, -128, -128, -128, -128));
  const __m256i high_bytes = _mm256_broadcastsi128_si256(_mm_setr_epi8(
      -128, -128, -128, -128, -128, -128, -128, -128, 4, -128, 7, -128, 10, -128, 13, -128));
  __m256i low_shuffles[3];
  __m256i high_shuffles[3];
  __m256i means[3];
  int16_t* planes[3];
  for (int c = 0; c < 3; ++c) {
    low_shuffles[c] = _mm256_add_epi8(low_bytes, _mm256_set1_epi16(static_cast<int16_t>(c)));
    high_shuffles[c] = _mm256_add_epi8(high_bytes, _mm256_set1_epi16(static_cast<int16_t>(c)));
    means[c] = _mm256_set1_epi16(LowHalf(static_cast<uint32_t>(plan.means[c])));
    planes[c] = plan.planes[c];
  }
  const uint8_t* pixels = plan.pixels;
  ForEachBlock<kBlockPixels>(plan.pixel_count, HeadPixels(planes[0]), [&](std::size_t i) {
    const uint8_t* block = pixels + i * 3;
    const __m256i low = Load16And16Bytes(block, block + 24);
    const __m256i high = Load16And16Bytes(block + 8, block + 32);
    for (int c = 0; c < 3; ++c) {
      const __m256i bytes = _mm256_or_si256(_mm256_shuffle_epi8(low, low_shuffles[c]),
                                            _mm256_shuffle_epi8(high, high_shuffles[c]));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[c] + i),
                          _mm256_mullo_epi16(_mm256_sub_epi16(bytes, means[c]), factor));
    }
  });
}

}  // namespace

const EncodeKernels kAvx2Kernels = {"avx2",
                                    kBlockPixels,
                                    nullptr,
                                    FillBlocks<float>,
                                    FillBlocks<uint16_t>,
                                    FillBlocks<int16_t>,
                                    Dfp16Integers};

}  // namespace corvane
