// AVX2 and F16C loops, sixteen pixels a step. This file alone is compiled for those instructions.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "src/rknn/encode_kernels.h"
#include "src/rknn/encode_loop.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

// Eight pixels of a kind of image: their bytes, and how byte c of each gets a 32-bit lane of its
// own.
template <int kChannels>
struct EightPixels;

template <>
struct EightPixels<1> {
  __m256i lanes;
  static __m256i Shuffle(int) { return _mm256_setzero_si256(); }
  explicit EightPixels(const uint8_t* pixels)
      : lanes(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pixels)))) {}
  __m256i Separate(__m256i) const { return lanes; }
};

// Two overlapping loads cover the 24 bytes and no more: the lower half of the register holds four
// pixels from its byte 0, the upper half four from its byte 4.
template <>
struct EightPixels<3> {
  __m256i bytes;
  static __m256i Shuffle(int c) {
    const __m256i first = _mm256_setr_epi8(0, -128, -128, -128, 3, -128, -128, -128, 6, -128, -128,
                                           -128, 9, -128, -128, -128, 4, -128, -128, -128, 7, -128,
                                           -128, -128, 10, -128, -128, -128, 13, -128, -128, -1);
    return _mm256_add_epi8(first, _mm256_set1_epi32(c));
  }
  explicit EightPixels(const uint8_t* pixels)
      : bytes(_mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + 8)), 1)) {}
  __m256i Separate(__m256i shuffle) const { return _mm256_shuffle_epi8(bytes, shuffle); }
};

inline void Store(__m256 first, __m256 second, float* plane) {
  _mm256_storeu_ps(plane, first);
  _mm256_storeu_ps(plane + 8, second);
}

// The instruction truncates too; it differs from the rule in infinities, NaNs and subnormals.
inline void Store(__m256 first, __m256 second, uint16_t* plane) {
  const __m256i halves =
      _mm256_inserti128_si256(_mm256_castsi128_si256(_mm256_cvtps_ph(first, _MM_FROUND_TO_ZERO)),
                              _mm256_cvtps_ph(second, _MM_FROUND_TO_ZERO), 1);
  const __m256i sign = _mm256_and_si256(halves, _mm256_set1_epi16(INT16_MIN));
  const __m256i finite =
      _mm256_min_epu16(_mm256_xor_si256(halves, sign), _mm256_set1_epi16(0x7BFF));
  const __m256i is_normal = _mm256_cmpgt_epi16(finite, _mm256_set1_epi16(0x03FF));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(plane),
                      _mm256_or_si256(_mm256_and_si256(finite, is_normal), sign));
}

// Out of range the instruction gives 0x80000000, whose low half is right but above the range.
inline __m256i LowHalves(__m256 values) {
  const __m256i is_above =
      _mm256_castps_si256(_mm256_cmp_ps(values, _mm256_set1_ps(2147483648.0F), _CMP_GE_OQ));
  const __m256i integers = _mm256_or_si256(_mm256_cvttps_epi32(values), is_above);
  return _mm256_and_si256(integers, _mm256_set1_epi32(0xFFFF));
}

inline void Store(__m256 first, __m256 second, int16_t* plane) {
  const __m256i packed = _mm256_packus_epi32(LowHalves(first), LowHalves(second));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(plane), _mm256_permute4x64_epi64(packed, 0xD8));
}

// Pixels up to the second block, so that its stores to the first plane are aligned.
template <class Element>
inline std::size_t HeadPixels(const Element* plane) {
  const std::size_t misaligned = reinterpret_cast<std::uintptr_t>(plane) % 32;
  return kBlockPixels - misaligned / sizeof(Element);
}

template <int kChannels, class Element>
void Fill(const EncodePlan<Element>& plan) {
  __m256i shuffles[kChannels];
  __m256 means[kChannels];
  __m256 scales[kChannels];
  Element* planes[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    shuffles[c] = EightPixels<kChannels>::Shuffle(c);
    means[c] = _mm256_set1_ps(plan.means[c]);
    scales[c] = _mm256_set1_ps(plan.scales[c]);
    planes[c] = plan.planes[c];
  }
  const uint8_t* pixels = plan.pixels;
  ForEachBlock(plan.pixel_count, HeadPixels(planes[0]), [&](std::size_t i) {
    const EightPixels<kChannels> first(pixels + i * kChannels);
    const EightPixels<kChannels> second(pixels + (i + 8) * kChannels);
    for (int c = 0; c < kChannels; ++c) {
      const auto value = [&](const EightPixels<kChannels>& eight) {
        const __m256 floats = _mm256_cvtepi32_ps(eight.Separate(shuffles[c]));
        return _mm256_mul_ps(_mm256_sub_ps(floats, means[c]), scales[c]);
      };
      Store(value(first), value(second), planes[c] + i);
    }
  });
}

template <class Element>
void FillBlocks(const EncodePlan<Element>& plan) {
  plan.channels == 1 ? Fill<1>(plan) : Fill<3>(plan);
}

void Float32(const EncodePlan<float>& plan) {
  if (plan.pixel_count < kBlockPixels) return kPortableKernels.float32(plan);
  FillBlocks(plan);
}

void Float16(const EncodePlan<uint16_t>& plan) {
  if (plan.pixel_count < kBlockPixels) return kPortableKernels.float16(plan);
  FillBlocks(plan);
}

void Dfp16(const EncodePlan<int16_t>& plan) {
  if (plan.pixel_count < kBlockPixels) return kPortableKernels.dfp16(plan);
  FillBlocks(plan);
}

// Sixteen pixels by two registers of overlapping loads, 48 bytes and no more. In each half, byte c
// of four pixels of `low`, from its byte 0, and of four of `high`, from its byte 4, gets a 16-bit
// lane.
inline __m256i LoadHalves(const uint8_t* lower, const uint8_t* upper) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lower))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(upper)), 1);
}

// Only the low 16 bits of a difference reach the element, so it is formed in 16 bits.
void Dfp16Integers(const IntegerPlan& plan) {
  if (plan.pixel_count < kBlockPixels || plan.fraction_bits < 0) {
    return kPortableKernels.dfp16_integers(plan);
  }
  const __m128i shift = _mm_cvtsi32_si128(plan.fraction_bits);
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
  ForEachBlock(plan.pixel_count, HeadPixels(planes[0]), [&](std::size_t i) {
    const uint8_t* block = pixels + i * 3;
    const __m256i low = LoadHalves(block, block + 24);
    const __m256i high = LoadHalves(block + 8, block + 32);
    for (int c = 0; c < 3; ++c) {
      const __m256i bytes = _mm256_or_si256(_mm256_shuffle_epi8(low, low_shuffles[c]),
                                            _mm256_shuffle_epi8(high, high_shuffles[c]));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[c] + i),
                          _mm256_sll_epi16(_mm256_sub_epi16(bytes, means[c]), shift));
    }
  });
}

}  // namespace

const EncodeKernels kAvx2Kernels = {"avx2", Float32, Float16, Dfp16, Dfp16Integers};

}  // namespace corvane
