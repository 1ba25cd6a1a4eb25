// The rules a second time, in integers and on the bits of floats, for the claims to compare with.
#ifndef CORVANE_TESTS_PROOF_REFERENCE_H_
#define CORVANE_TESTS_PROOF_REFERENCE_H_

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace corvane {
namespace {

inline float FromBits(uint32_t bits) {
  float value = 0;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

inline uint32_t BitsOf(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

// The magnitude of a float is significand * 2^(exponent - 150). Subnormal numbers count as zero.
struct Decoded {
  explicit Decoded(uint32_t bits)
      : is_negative(bits >> 31 != 0),
        is_nan((bits & 0x7FFFFFFF) > 0x7F800000),
        exponent(static_cast<int>(bits >> 23 & 0xFF)),
        significand(exponent == 0 ? 0 : (bits & 0x7FFFFF) | 0x800000) {}
  bool is_negative, is_nan;
  int exponent;
  uint64_t significand;
};

// Toward zero, with the limits of 32 bits for what is beyond them.
inline int32_t TruncatedByBits(uint32_t bits) {
  const Decoded value(bits);
  if (value.is_nan) return 0;
  if (value.exponent >= 158) return value.is_negative ? INT32_MIN : INT32_MAX;
  const int shift = std::max(value.exponent - 118, 0);  // 32 bits of fraction
  const auto magnitude = static_cast<int64_t>(value.significand << shift >> 32);
  return static_cast<int32_t>(value.is_negative ? -magnitude : magnitude);
}

// Adds one half with a rounding to 24 bits, ties to even, then truncates. From 2^24 on one half is
// less than half the distance between two floats, below 1/4 the sum stays below 1.
inline int32_t RoundedByBits(uint32_t bits) {
  const Decoded value(bits);
  if (value.is_nan || value.exponent < 125) return 0;
  uint64_t magnitude = 0;
  if (value.exponent >= 182) {
    magnitude = uint64_t{1} << 32;
  } else if (value.exponent >= 151) {
    magnitude = value.significand << (value.exponent - 150);
  } else {
    uint64_t sum = (value.significand << (value.exponent - 124)) + (uint64_t{1} << 25);  // / 2^26
    const int excess = std::max(40 - __builtin_clzll(sum), 0);  // bits beyond 24
    const uint64_t ulp = uint64_t{1} << excess;
    const uint64_t rest = sum & (ulp - 1);
    sum -= rest;
    if (2 * rest > ulp || (2 * rest == ulp && (sum & ulp) != 0)) sum += ulp;
    magnitude = sum >> 26;
  }
  if (magnitude >= uint64_t{1} << 31) return value.is_negative ? -2147483646 : 2147483647;
  return static_cast<int32_t>(value.is_negative ? -static_cast<int64_t>(magnitude)
                                                : static_cast<int64_t>(magnitude));
}

// The largest half of at most this magnitude among 0 and the finite normal halves: a search among
// their values instead of a shift of bits.
inline uint16_t HalfAtMost(uint32_t magnitude_bits) {
  static const std::vector<double> normal_halves = [] {
    std::vector<double> values;
    for (int exponent = -14; exponent <= 15; ++exponent) {
      for (int i = 0; i < 1024; ++i) values.push_back(std::ldexp(1 + i / 1024.0, exponent));
    }
    return values;
  }();
  if (magnitude_bits > 0x7F800000) return 0x7BFF;  // NaN
  const auto above = std::upper_bound(normal_halves.begin(), normal_halves.end(),
                                      static_cast<double>(FromBits(magnitude_bits)));
  const auto count = static_cast<int>(above - normal_halves.begin());
  return static_cast<uint16_t>(count == 0 ? 0 : 0x3FF + count);
}

// 32 times the blend of two neighbours, cut off; and the blend of two such rows.
inline uint32_t RowBlend(uint32_t left, uint32_t right, uint32_t fraction) {
  return (left * (1024 - fraction) + right * fraction) / 32;
}
inline uint32_t ColumnBlend(int top, int bottom, int fraction) {
  return static_cast<uint32_t>(top * 1024 + (bottom - top) * fraction) / 32768;
}

}  // namespace
}  // namespace corvane

#endif  // CORVANE_TESTS_PROOF_REFERENCE_H_
