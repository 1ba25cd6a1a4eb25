// Claims on the conversions of single values: all 2^32 floats, all ints.
#include "src/image/warp_rules.h"
#include "src/rknn/pixel_rules.h"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

// Floats whose bits differ in the lowest 13 only. They share the sign, the exponent and the ten
// fraction bits that a half keeps: a half that is right for the first and the last of them is right
// for all, because the rule is monotone.
constexpr uint32_t kBlock = 1U << 13;
constexpr uint64_t kBlocks = (uint64_t{1} << 32) / kBlock;

void FillWanted(const uint32_t (&bits)[kBlock], uint32_t first, uint16_t (&wanted)[kBlock]) {
  const uint16_t half = HalfAtMost(first & 0x7FFFFFFF);
  if (half != HalfAtMost((first | (kBlock - 1)) & 0x7FFFFFFF)) {
    Counterexample("the floats from 0x%08X on do not share one half", first);
  }
  for (uint32_t i = 0; i < kBlock; ++i) {
    wanted[i] = static_cast<uint16_t>(first >> 16 & 0x8000) | ((bits[i] << 1) == 0 ? 0 : half);
  }
}

void FillWanted(const uint32_t (&bits)[kBlock], uint32_t, int16_t (&wanted)[kBlock]) {
  for (uint32_t i = 0; i < kBlock; ++i) wanted[i] = static_cast<int16_t>(TruncatedByBits(bits[i]));
}

// Floats that the conversion does not admit are replaced by zero.
template <class Element>
uint64_t CheckConversion(const Conversion<Element>& conversion, uint64_t block) {
  const uint32_t first = static_cast<uint32_t>(block) * kBlock;
  uint32_t bits[kBlock], offset_bits[kBlock];
  float values[kBlock];
  Element elements[kBlock], wanted[kBlock];
  uint32_t admitted = 0;
  for (uint32_t i = 0; i < kBlock; ++i) {
    const uint32_t magnitude = (first + i) & 0x7FFFFFFF;
    const bool is_admitted =
        magnitude >= conversion.first_magnitude && magnitude <= conversion.last_magnitude;
    admitted += is_admitted;
    bits[i] = is_admitted ? first + i : first & 0x80000000;
    offset_bits[i] = is_admitted ? bits[i] - conversion.exponent_offset : bits[i];
  }
  if (admitted == 0 && (first & 0x7FFFFFFF) != 0) return 0;
  std::memcpy(values, offset_bits, sizeof(values));
  conversion.convert(values, kBlock, elements);
  FillWanted(bits, first, wanted);
  const std::size_t i = FirstDifference(elements, wanted, kBlock);
  if (i < kBlock) {
    Counterexample("float 0x%08X gives 0x%04X, not 0x%04X", bits[i], elements[i] & 0xFFFF,
                   wanted[i] & 0xFFFF);
  }
  return std::max(admitted, 1U);
}

// A rule from a float to an int against the same on bits.
template <class Rule, class Reference>
uint64_t CheckAllFloats(Rule rule, Reference reference) {
  return ForAll(kBlocks, [&](uint64_t block) {
    for (uint32_t i = 0; i < kBlock; ++i) {
      const uint32_t bits = static_cast<uint32_t>(block) * kBlock + i;
      const int32_t result = rule(FromBits(bits)), wanted = reference(bits);
      if (result != wanted) {
        Counterexample("float 0x%08X gives %d, not %d", bits, result, wanted);
      }
    }
    return kBlock;
  });
}

void HalvesByRule(const float* values, std::size_t count, uint16_t* halves) {
  for (std::size_t i = 0; i < count; ++i) halves[i] = FloatToHalf(values[i]);
}

void LowHalvesByRule(const float* values, std::size_t count, int16_t* elements) {
  for (std::size_t i = 0; i < count; ++i) elements[i] = QuantizeDfp16(values[i], 1);
}

// A power of two by its bits, in double, where subnormal floats are normal numbers.
uint64_t CheckPowersOfTwo(uint64_t upper) {
  for (uint32_t lower = 0; lower < 1U << 16; ++lower) {
    const auto exponent = static_cast<int>(static_cast<uint32_t>(upper) << 16 | lower);
    const uint32_t bits = BitsOf(PowerOfTwo(exponent));
    const uint32_t fraction = bits & 0x7FFFFF, biased = bits >> 23;
    const double value = std::ldexp(biased == 0 ? fraction : fraction | 0x800000,
                                    static_cast<int>(std::max(biased, 1U)) - 150);
    const bool is_right = exponent > 127    ? bits == 0x7F800000
                          : exponent < -149 ? bits == 0
                                            : value == std::ldexp(1.0, exponent);
    if (!is_right) Counterexample("2^%d has the bits 0x%08X", exponent, bits);
  }
  return 1U << 16;
}

template <class Element>
void AddConversions(const std::string& rule, const std::string& statement,
                    const std::vector<Conversion<Element>>& leaves, std::vector<Claim>* claims) {
  for (const Conversion<Element>& leaf : leaves) {
    claims->push_back({rule + "/" + leaf.name, statement, [leaf] {
                         return ForAll(
                             kBlocks, [&](uint64_t block) { return CheckConversion(leaf, block); });
                       }});
  }
}

}  // namespace

std::vector<Claim> ConversionClaims() {
  std::vector<Claim> claims = {
      {"truncation/scalar", "every float becomes the next int32 toward zero",
       [] { return CheckAllFloats(TruncateToInt32, TruncatedByBits); }},
      {"position/scalar", "every float is rounded as integers round it",
       [] { return CheckAllFloats(RoundToFixed, RoundedByBits); }},
      {"power-of-two/scalar", "every int gives the bits of its power of two",
       [] { return ForAll(1U << 16, CheckPowersOfTwo); }}};
  const std::string half = "every admitted float becomes the next half toward zero";
  AddConversions<uint16_t>("half", half, {{"scalar", 0, 0x7FFFFFFF, 0, HalvesByRule}}, &claims);
  AddConversions("half", half, HalfLeaves(), &claims);
  const std::string low = "every admitted float becomes the low half of its int32";
  AddConversions<int16_t>("low-half", low, {{"scalar", 0, 0x7FFFFFFF, 0, LowHalvesByRule}},
                          &claims);
  AddConversions("low-half", low, LowHalfLeaves(), &claims);
  return claims;
}

}  // namespace corvane
