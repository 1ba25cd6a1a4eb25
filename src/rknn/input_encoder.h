// Builds the model's input tensor from an image: one plane for each channel, every byte normalised
// and encoded by the rules in pixel_rules.h. The fastest loops that this CPU runs are chosen.
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

// One value for each byte of a pixel, in the image's order; null skips the step.
struct Normalisation {
  const float* means;
  const float* scales;
};

// Each function writes pixel_count * channels elements and reads nothing outside the image.
void EncodeFloat32(const InputImage& image, const Normalisation& normalisation, float* planes);
void EncodeFloat16(const InputImage& image, const Normalisation& normalisation, uint16_t* planes);
void EncodeDfp16(const InputImage& image, const Normalisation& normalisation, int fraction_bits,
                 int16_t* planes);

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_INPUT_ENCODER_H_
