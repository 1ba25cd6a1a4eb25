// The rules in plain loops: what every CPU runs, and what the vector loops leave to them.
#include <cstddef>
#include <cstdint>

#include "src/rknn/encode_kernels.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

// rule(byte, c) is the element of a pixel's byte c.
template <class Plan, class Rule>
inline void FillOnePlane(const Plan& plan, Rule rule) {
  const uint8_t* pixels = plan.pixels;
  auto* __restrict plane = plan.planes[0];
  const std::size_t pixel_count = plan.pixel_count;
  for (std::size_t i = 0; i < pixel_count; ++i) plane[i] = rule(pixels[i], 0);
}

template <class Plan, class Rule>
inline void FillThreePlanes(const Plan& plan, Rule rule) {
  const uint8_t* pixels = plan.pixels;
  auto* __restrict plane0 = plan.planes[0];
  auto* __restrict plane1 = plan.planes[1];
  auto* __restrict plane2 = plan.planes[2];
  const std::size_t pixel_count = plan.pixel_count;
  for (std::size_t i = 0; i < pixel_count; ++i) {
    plane0[i] = rule(pixels[3 * i], 0);
    plane1[i] = rule(pixels[3 * i + 1], 1);
    plane2[i] = rule(pixels[3 * i + 2], 2);
  }
}

template <class Element, class Rule>
inline void Fill(const EncodePlan<Element>& plan, Rule rule) {
  if (plan.channels == 1) {
    FillOnePlane(plan, rule);
  } else {
    FillThreePlanes(plan, rule);
  }
}

void Float32(const EncodePlan<float>& call) {
  const EncodePlan<float> plan = call;  // a copy cannot alias the planes
  Fill(plan, [&](uint8_t byte, int c) { return Normalise(byte, plan.means[c], plan.scales[c]); });
}

void Float16(const EncodePlan<uint16_t>& call) {
  const EncodePlan<uint16_t> plan = call;
  Fill(plan, [&](uint8_t byte, int c) {
    return FloatToHalf(Normalise(byte, plan.means[c], plan.scales[c]));
  });
}

void Dfp16(const EncodePlan<int16_t>& call) {
  const EncodePlan<int16_t> plan = call;
  Fill(plan, [&](uint8_t byte, int c) {
    return QuantizeDfp16(static_cast<float>(byte) - plan.means[c], plan.scales[c]);
  });
}

void Dfp16Integers(const IntegerPlan& call) {
  const IntegerPlan plan = call;
  FillThreePlanes(plan, [&](uint8_t byte, int c) {
    return QuantizeInteger(byte, plan.means[c], plan.fraction_bits);
  });
}

}  // namespace

const EncodeKernels kPortableKernels = {"portable", Float32, Float16, Dfp16, Dfp16Integers};

}  // namespace corvane
