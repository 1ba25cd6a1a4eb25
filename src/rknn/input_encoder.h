// Builds the model's input tensor from an image: one plane for each channel, every byte normalised
// and encoded. The four-line rules are in pixel_rules.h; this picks the fastest loops that equal
// them.
#ifndef CORVANE_SRC_RKNN_INPUT_ENCODER_H_
#define CORVANE_SRC_RKNN_INPUT_ENCODER_H_

#include <cstddef>
#include <cstdint>

namespace corvane {

struct InputImage {
  const uint8_t* pixels;  // pixel_count pixels of channels bytes, packed
  std::size_t pixel_count;
  int channels;           // 1 or 3
  bool reverse_channels;  // channel c goes to plane 2 - c instead of plane c
};

// One value for each byte of a pixel, in the image's order; null leaves the step out.
struct Normalisation {
  const float* means;
  const float* scales;
};

// Each writes pixel_count * channels elements and reads nothing behind the image's last byte.
void EncodeFloat32(const InputImage& image, const Normalisation& normalisation, float* planes);
void EncodeFloat16(const InputImage& image, const Normalisation& normalisation, uint16_t* planes);
void EncodeDfp16(const InputImage& image, const Normalisation& normalisation, int fraction_bits,
                 int16_t* planes);

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_INPUT_ENCODER_H_
