#include "src/rknn/input_encoder.h"

#if defined(CORVANE_SIMD_AVX2)
#include <cpuid.h>
#endif

#include "src/rknn/encode_kernels.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

#if defined(CORVANE_SIMD_AVX2)
bool CpuHasAvx2AndF16c() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  const bool has_f16c = __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & (1U << 29)) != 0;
  __builtin_cpu_init();
  return has_f16c &&
         __builtin_cpu_supports("avx2");  // also checks that the system saves AVX registers
}
#endif

const EncodeKernels& FastestKernels() {
  static const EncodeKernels& fastest = *UsableKernels()[0];
  return fastest;
}

bool AcceptsConstants(const EncodeKernels&, const EncodePlan<float>&) { return true; }
bool AcceptsConstants(const EncodeKernels& kernels, const EncodePlan<uint16_t>& plan) {
  return kernels.accepts_float16 == nullptr || kernels.accepts_float16(plan);
}
bool AcceptsConstants(const EncodeKernels&, const EncodePlan<int16_t>&) { return true; }
bool AcceptsConstants(const EncodeKernels&, const IntegerPlan& plan) {
  return plan.fraction_bits >= 0;
}

// The one place that falls back to the portable loops.
template <class Plan>
const EncodeKernels& PreferredOrPortable(const EncodeKernels& preferred, const Plan& plan) {
  const bool is_accepted =
      plan.pixel_count >= preferred.min_pixels && AcceptsConstants(preferred, plan);
  return is_accepted ? preferred : kPortableKernels;
}

template <class Plan, class Element>
void SetPlanes(const InputImage& image, Element* planes, Plan* plan) {
  plan->pixels = image.pixels;
  plan->pixel_count = image.pixel_count;
  for (int c = 0; c < image.channels; ++c) {
    const int plane = image.reverse_channels ? image.channels - 1 - c : c;
    plan->planes[c] = planes + static_cast<std::size_t>(plane) * image.pixel_count;
  }
}

template <class Element>
EncodePlan<Element> MakePlan(const InputImage& image, const Normalisation& normalisation,
                             Element* planes) {
  EncodePlan<Element> plan = {};
  plan.channels = image.channels;
  for (int c = 0; c < image.channels; ++c) {
    plan.means[c] = normalisation.means != nullptr ? normalisation.means[c] : 0.0F;
    plan.scales[c] = normalisation.scales != nullptr ? normalisation.scales[c] : 1.0F;
    // If both factors are NaN, the product's payload depends on their order, which compilers
    // change. Make the mean's NaN win.
    if (plan.means[c] != plan.means[c] && plan.scales[c] != plan.scales[c]) plan.scales[c] = 1.0F;
  }
  SetPlanes(image, planes, &plan);
  return plan;
}

}  // namespace

const EncodeKernels* const* UsableKernels() {
#if defined(CORVANE_SIMD_NEON)
  static const EncodeKernels* const usable[] = {&kNeonKernels, &kPortableKernels, nullptr};
  return usable;
#elif defined(CORVANE_SIMD_AVX2)
  static const EncodeKernels* const usable[] = {&kAvx2Kernels, &kPortableKernels, nullptr};
  return CpuHasAvx2AndF16c() ? usable : usable + 1;
#else
  static const EncodeKernels* const usable[] = {&kPortableKernels, nullptr};
  return usable;
#endif
}

void EncodeFloat32(const EncodeKernels& kernels, const InputImage& image,
                   const Normalisation& normalisation, float* planes) {
  const EncodePlan<float> plan = MakePlan(image, normalisation, planes);
  PreferredOrPortable(kernels, plan).float32(plan);
}

void EncodeFloat16(const EncodeKernels& kernels, const InputImage& image,
                   const Normalisation& normalisation, uint16_t* planes) {
  const EncodePlan<uint16_t> plan = MakePlan(image, normalisation, planes);
  PreferredOrPortable(kernels, plan).float16(plan);
}

void EncodeDfp16(const EncodeKernels& kernels, const InputImage& image,
                 const Normalisation& normalisation, int fraction_bits, int16_t* planes) {
  if (image.channels == 3 && normalisation.scales == nullptr) {
    IntegerPlan plan = {};
    plan.fraction_bits = fraction_bits;
    for (int c = 0; c < 3; ++c) {
      plan.means[c] = normalisation.means != nullptr ? TruncateToInt32(normalisation.means[c]) : 0;
    }
    SetPlanes(image, planes, &plan);
    PreferredOrPortable(kernels, plan).dfp16_integers(plan);
    return;
  }
  EncodePlan<int16_t> plan = MakePlan(image, normalisation, planes);
  for (float& scale : plan.scales) scale = PowerOfTwo(fraction_bits) * scale;
  PreferredOrPortable(kernels, plan).dfp16(plan);
}

void EncodeFloat32(const InputImage& image, const Normalisation& normalisation, float* planes) {
  EncodeFloat32(FastestKernels(), image, normalisation, planes);
}

void EncodeFloat16(const InputImage& image, const Normalisation& normalisation, uint16_t* planes) {
  EncodeFloat16(FastestKernels(), image, normalisation, planes);
}

void EncodeDfp16(const InputImage& image, const Normalisation& normalisation, int fraction_bits,
                 int16_t* planes) {
  EncodeDfp16(FastestKernels(), image, normalisation, fraction_bits, planes);
}

}  // namespace corvane
