// The loops that input_encoder.h chooses from: their arguments, and the sets that this build has.
#ifndef CORVANE_SRC_RKNN_ENCODE_KERNELS_H_
#define CORVANE_SRC_RKNN_ENCODE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "src/rknn/input_encoder.h"

namespace corvane {

// One call with all its variants turned into data: no mean is a mean of 0, no scale is a scale of
// 1, and a reversed channel order swaps plane pointers. Entries are in the order of a pixel's
// bytes.
template <class Element>
struct EncodePlan {
  const uint8_t* pixels;
  std::size_t pixel_count;
  int channels;  // 1 or 3
  float means[3];
  float scales[3];
  Element* planes[3];
};

// The arguments of the integer rule, for fixed-point images with three channels.
struct IntegerPlan {
  const uint8_t* pixels;
  std::size_t pixel_count;
  int32_t means[3];
  int fraction_bits;
  int16_t* planes[3];
};

struct EncodeKernels {
  const char* name;
  std::size_t min_pixels;  // fewest pixels accepted; smaller images go to kPortableKernels
  // Whether float16 accepts the plan's constants; other plans go to kPortableKernels. Null: all.
  bool (*accepts_float16)(const EncodePlan<uint16_t>& plan);
  void (*float32)(const EncodePlan<float>& plan);
  void (*float16)(const EncodePlan<uint16_t>& plan);
  void (*dfp16)(const EncodePlan<int16_t>& plan);  // scales hold scale * 2^fraction_bits
  void (*dfp16_integers)(
      const IntegerPlan& plan);  // fraction_bits is not negative, but for portable
};

extern const EncodeKernels kPortableKernels;
extern const EncodeKernels kNeonKernels;  // built for AArch64
extern const EncodeKernels kAvx2Kernels;  // built for x86-64; needs AVX2 and F16C

// The sets that this build has and this CPU runs, the fastest first, then a null pointer.
const EncodeKernels* const* UsableKernels();

// The functions of input_encoder.h with a given set, for tests and benchmarks.
void EncodeFloat32(const EncodeKernels& kernels, const InputImage& image,
                   const Normalisation& normalisation, float* planes);
void EncodeFloat16(const EncodeKernels& kernels, const InputImage& image,
                   const Normalisation& normalisation, uint16_t* planes);
void EncodeDfp16(const EncodeKernels& kernels, const InputImage& image,
                 const Normalisation& normalisation, int fraction_bits, int16_t* planes);

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_ENCODE_KERNELS_H_
