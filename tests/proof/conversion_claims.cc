// Claims on the conversions of single values: all 2^32 floats, all ints.
#include "src/image/warp_rules.h"
#include "src/rknn/pixel_rules.h"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

// Floats whose bits differ in the lowest 13 only. They share the sign, the exponent and the ten
// fraction bits that a half keeps, so the same half is right for the first and the last, and by
// monotony for all.
constexpr uint32_t kBlock = 1U << 13;
constexpr uint64_t kBlocks = (uint64_t{1} << 32) / kBlock;

// The floats of a block that the conversion admits, zero in the place of the others, and what each
// is before the offset.
template <class Element>
void FillAdmitted(const Conversion<Element>& conversion, uint64_t block, uint32_t (&bits)[kBlock],
                  float (&values)[kBlock]) {
  uint32_t offset_bits[kBlock];
  for (uint32_t i = 0; i < kBlock; ++i) {
    const uint32_t all = static_cast<uint32_t>(block) * kBlock + i;
    const uint32_t magnitude = all & 0x7FFFFFFF;
    const bool is_admitted =
        magnitude >= conversion.first_magnitude && magnitude <= conversion.last_magnitude;
    bits[i] = is_admitted ? all : all & 0x80000000;
    offset_bits[i] = is_admitted ? all - conversion.exponent_offset : bits[i];
  }
  std::memcpy(values, offset_bits, sizeof(values));
}

template <class Element>
uint64_t AdmittedCases(const Conversion<Element>& conversion) {
  return 2 * (uint64_t{conversion.last_magnitude} - conversion.first_magnitude + 1);
}

// Blocks without an admitted float have nothing to convert.
template <class Element>
bool HasAdmitted(const Conversion<Element>& conversion, uint64_t block) {
  const uint32_t first = static_cast<uint32_t>(block) * kBlock & 0x7FFFFFFF;
  return first + kBlock - 1 >= conversion.first_magnitude && first <= conversion.last_magnitude;
}

void CheckHalves(const Conversion<uint16_t>& conversion, uint64_t block) {
  if (!HasAdmitted(conversion, block)) return;
  uint32_t bits[kBlock];
  float values[kBlock];
  uint16_t halves[kBlock];
  FillAdmitted(conversion, block, bits, values);
  conversion.convert(values, kBlock, halves);
  const uint32_t first = static_cast<uint32_t>(block) * kBlock;
  const uint16_t half = HalfAtMost(first & 0x7FFFFFFF);
  if (half != HalfAtMost((first + kBlock - 1) & 0x7FFFFFFF)) {
    Counterexample("the halves of the floats 0x%08X and 0x%08X differ", first, first + kBlock - 1);
  }
  const auto sign = static_cast<uint16_t>(first >> 16 & 0x8000);
  bool is_equal = true;
  for (uint32_t i = 0; i < kBlock; ++i) {
    is_equal &= halves[i] == (sign | ((bits[i] & 0x7FFFFFFF) == 0 ? 0 : half));
  }
  for (uint32_t i = 0; !is_equal && i < kBlock; ++i) {
    const int wanted = sign | ((bits[i] & 0x7FFFFFFF) == 0 ? 0 : half);
    if (halves[i] != wanted) {
      Counterexample("float 0x%08X gives half 0x%04X, not 0x%04X", bits[i], halves[i], wanted);
    }
  }
}

void CheckLowHalves(const Conversion<int16_t>& conversion, uint64_t block) {
  if (!HasAdmitted(conversion, block)) return;
  uint32_t bits[kBlock];
  float values[kBlock];
  int16_t elements[kBlock];
  FillAdmitted(conversion, block, bits, values);
  conversion.convert(values, kBlock, elements);
  for (uint32_t i = 0; i < kBlock; ++i) {
    const auto wanted = static_cast<uint16_t>(TruncatedByBits(bits[i]));
    if (static_cast<uint16_t>(elements[i]) != wanted) {
      Counterexample("float 0x%08X gives 0x%04X, not 0x%04X", bits[i],
                     static_cast<unsigned>(static_cast<uint16_t>(elements[i])), wanted);
    }
  }
}

// A rule from a float to an int against the same on bits.
template <class Rule, class Reference>
void CheckAllFloats(Enumeration& enumeration, Rule rule, Reference reference) {
  enumeration.ForAll(kBlocks, kBlock, [&](uint64_t block) {
    for (uint32_t i = 0; i < kBlock; ++i) {
      const uint32_t bits = static_cast<uint32_t>(block) * kBlock + i;
      const int32_t result = rule(FromBits(bits));
      if (result != reference(bits)) {
        Counterexample("float 0x%08X gives 0x%08X, not 0x%08X", bits, static_cast<uint32_t>(result),
                       static_cast<uint32_t>(reference(bits)));
      }
    }
  });
}

void HalvesByRule(const float* values, std::size_t count, uint16_t* halves) {
  for (std::size_t i = 0; i < count; ++i) halves[i] = FloatToHalf(values[i]);
}

void LowHalvesByRule(const float* values, std::size_t count, int16_t* elements) {
  for (std::size_t i = 0; i < count; ++i) elements[i] = QuantizeDfp16(values[i], 1);
}

// What the bits of a float are worth, in double, which holds subnormal floats as normal numbers.
double ValueOfBits(uint32_t bits) {
  const int exponent = static_cast<int>(bits >> 23 & 0xFF);
  const uint32_t fraction = bits & 0x7FFFFF;
  if (exponent == 255) return fraction == 0 ? HUGE_VAL : NAN;
  return std::ldexp(exponent == 0 ? fraction : fraction | 0x800000, std::max(exponent, 1) - 150);
}

void CheckPowersOfTwo(Enumeration& enumeration) {
  enumeration.ForAll(uint64_t{1} << 16, 1U << 16, [](uint64_t upper) {
    for (uint32_t lower = 0; lower < 1U << 16; ++lower) {
      const int exponent = static_cast<int>(static_cast<uint32_t>(upper) << 16 | lower);
      const uint32_t bits = BitsOf(PowerOfTwo(exponent));
      // From 2^128 on there is no float but infinity, below 2^-149 none but 0.
      const bool is_right = exponent > 127    ? bits == 0x7F800000
                            : exponent < -149 ? bits == 0
                                              : ValueOfBits(bits) == std::ldexp(1.0, exponent);
      if (!is_right) Counterexample("2^%d has the bits 0x%08X", exponent, bits);
    }
  });
}

template <class Element, class Check>
Claim ConversionClaim(const std::string& rule, const Conversion<Element>& leaf, Check check,
                      const std::string& statement) {
  return {rule + "/" + leaf.name, statement, [=](Enumeration& enumeration) {
            const bool admits_all = leaf.last_magnitude == 0x7FFFFFFF;
            enumeration.ForAll(kBlocks, admits_all ? kBlock : 0,
                               [&](uint64_t block) { check(leaf, block); });
            if (!admits_all) enumeration.Count(AdmittedCases(leaf));
          }};
}

}  // namespace

std::vector<Claim> ConversionClaims() {
  std::vector<Conversion<uint16_t>> halves = HalfLeaves();
  halves.insert(halves.begin(), {"scalar", 0, 0x7FFFFFFF, 0, HalvesByRule});
  std::vector<Conversion<int16_t>> low_halves = LowHalfLeaves();
  low_halves.insert(low_halves.begin(), {"scalar", 0, 0x7FFFFFFF, 0, LowHalvesByRule});

  std::vector<Claim> claims;
  for (const auto& leaf : halves) {
    claims.push_back(ConversionClaim("half", leaf, CheckHalves,
                                     "every admitted float becomes the half below it"));
  }
  claims.push_back({"truncation/scalar", "every float becomes the int32 next to it toward zero",
                    [](Enumeration& enumeration) {
                      CheckAllFloats(enumeration, TruncateToInt32, TruncatedByBits);
                    }});
  for (const auto& leaf : low_halves) {
    claims.push_back(ConversionClaim("low-half", leaf, CheckLowHalves,
                                     "every admitted float becomes the low half of its int32"));
  }
  claims.push_back(
      {"position/scalar", "every float is rounded to the position that integers give",
       [](Enumeration& enumeration) { CheckAllFloats(enumeration, RoundToFixed, RoundedByBits); }});
  claims.push_back(
      {"power-of-two/scalar", "every int gives the bits of its power of two", CheckPowersOfTwo});
  return claims;
}

}  // namespace corvane
