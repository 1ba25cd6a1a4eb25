// The rules in plain loops, for any CPU and for the calls that the vector loops do not accept.
#include <cstddef>
#include <cstdint>

#include "src/rknn/encode_kernels.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

// Fills the planes with rule(byte, c) of each pixel's byte c. For rules that compilers vectorise.
template <class Element, class Plan, class Rule>
inline void FillByRule(const Plan& call, int channels, Rule rule) {
  const Plan plan = call;  // a local copy: stores to the planes cannot alias its fields
  Element* __restrict plane0 = plan.planes[0];
  if (channels == 1) {
    for (std::size_t i = 0; i < plan.pixel_count; ++i) plane0[i] = rule(plan.pixels[i], 0);
    return;
  }
  Element* __restrict plane1 = plan.planes[1];
  Element* __restrict plane2 = plan.planes[2];
  for (std::size_t i = 0; i < plan.pixel_count; ++i) {
    plane0[i] = rule(plan.pixels[3 * i], 0);
    plane1[i] = rule(plan.pixels[3 * i + 1], 1);
    plane2[i] = rule(plan.pixels[3 * i + 2], 2);
  }
}

// From this many pixels on, building a table of 256 elements for each channel pays off.
constexpr std::size_t kTablePixels = 512;

// Does the same for longer rules: where pixels are many, evaluates the rule once for each byte.
template <class Element, class Plan, class Rule>
inline void Fill(const Plan& plan, int channels, Rule rule) {
  if (plan.pixel_count < kTablePixels) return FillByRule<Element>(plan, channels, rule);
  Element table[3][256];
  for (int c = 0; c < channels; ++c) {
    for (int byte = 0; byte < 256; ++byte) table[c][byte] = rule(static_cast<uint8_t>(byte), c);
  }
  FillByRule<Element>(plan, channels, [&](uint8_t byte, int c) { return table[c][byte]; });
}

void Float32(const EncodePlan<float>& plan) {
  FillByRule<float>(plan, plan.channels, [=](uint8_t byte, int c) {
    return Normalise(byte, plan.means[c], plan.scales[c]);
  });
}

void Float16(const EncodePlan<uint16_t>& plan) {
  Fill<uint16_t>(plan, plan.channels, [=](uint8_t byte, int c) {
    return FloatToHalf(Normalise(byte, plan.means[c], plan.scales[c]));
  });
}

void Dfp16(const EncodePlan<int16_t>& plan) {
  Fill<int16_t>(plan, plan.channels, [=](uint8_t byte, int c) {
    return QuantizeDfp16(static_cast<float>(byte) - plan.means[c], plan.scales[c]);
  });
}

void Dfp16Integers(const IntegerPlan& plan) {
  Fill<int16_t>(plan, 3, [=](uint8_t byte, int c) {
    return QuantizeInteger(byte, plan.means[c], plan.fraction_bits);
  });
}

}  // namespace

const EncodeKernels kPortableKernels = {"portable", 0,     nullptr,      Float32,
                                        Float16,    Dfp16, Dfp16Integers};

}  // namespace corvane
