// The value of one element of the input tensor: the definition that every loop equals bit for bit.
//
// Everything is in an unnamed namespace: files compiled for wider instruction sets include this,
// too, and the linker must never pick their copies for the rest of the library.
#ifndef CORVANE_SRC_RKNN_PIXEL_RULES_H_
#define CORVANE_SRC_RKNN_PIXEL_RULES_H_

#include <cstdint>
#include <cstring>

#if defined(__FAST_MATH__)
#error "The rules need IEEE arithmetic: compile this library without -ffast-math and -Ofast."
#endif

namespace corvane {
namespace {

// Returns 2^exponent. Built from bits, so that subnormal results survive in a thread that flushes
// them.
inline float PowerOfTwo(int exponent) {
  uint32_t bits = 0;
  if (exponent > 127) {
    bits = 0x7F800000;  // infinity
  } else if (exponent >= -126) {
    bits = static_cast<uint32_t>(exponent + 127) << 23;
  } else if (exponent >= -149) {
    bits = uint32_t{1} << (exponent + 149);
  }
  float power = 0;
  std::memcpy(&power, &bits, sizeof(power));
  return power;
}

inline float Normalise(uint8_t byte, float mean, float scale) {
  return (static_cast<float>(byte) - mean) * scale;
}

// Encodes half precision: the fraction is truncated; no subnormal, infinity or NaN results.
inline uint16_t FloatToHalf(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  const uint32_t sign = (bits >> 16) & 0x8000;
  const uint32_t kept = (bits >> 13) & 0x3FFFF;                       // exponent, ten fraction bits
  const uint32_t finite = kept >= 0x23C00 ? 0x7BFF : kept - 0x1C000;  // exponent bias 127 -> 15
  return static_cast<uint16_t>(sign | (kept < 0x1C400 ? 0 : finite));  // below 2^-14
}

// Rounds toward zero. Values beyond the range give the nearest limit, NaN gives 0.
inline int32_t TruncateToInt32(float value) {
  const bool is_above = value >= 2147483648.0F;
  const bool is_inside = value >= -2147483648.0F && value < 2147483648.0F;
  const bool is_below = value < -2147483648.0F;
  const auto truncated = static_cast<int32_t>(is_inside ? value : 0.0F);
  return is_above ? INT32_MAX : is_below ? INT32_MIN : truncated;
}

inline int16_t LowHalf(uint32_t value) {
  const auto low = static_cast<uint16_t>(value);
  int16_t element = 0;
  std::memcpy(&element, &low, sizeof(element));
  return element;
}

inline int16_t QuantizeDfp16(float value, float factor) {
  return LowHalf(static_cast<uint32_t>(TruncateToInt32(value * factor)));
}

// Returns the low half of (byte - mean) * 2^fraction_bits in 32-bit integers that wrap. A negative
// fraction_bits divides, rounding toward zero.
inline int16_t QuantizeInteger(uint8_t byte, int32_t mean, int fraction_bits) {
  const uint32_t difference = uint32_t{byte} - static_cast<uint32_t>(mean);
  if (fraction_bits >= 0)
    return fraction_bits < 16 ? LowHalf(difference << fraction_bits) : int16_t{0};
  const int shift = fraction_bits < -32 ? 32 : -fraction_bits;
  const bool is_negative = difference >> 31 != 0;
  const uint64_t magnitude = is_negative ? uint32_t{0} - difference : difference;
  const auto quotient = static_cast<uint32_t>(magnitude >> shift);
  return LowHalf(is_negative ? uint32_t{0} - quotient : quotient);
}

}  // namespace
}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_PIXEL_RULES_H_
