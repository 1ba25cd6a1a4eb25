// What the vector loops share: the walk over the pixels in blocks, and proofs from a call's
// constants alone that no element leaves a range.
#ifndef CORVANE_SRC_RKNN_ENCODE_LOOP_H_
#define CORVANE_SRC_RKNN_ENCODE_LOOP_H_

#include <cstddef>
#include <cstdint>

namespace corvane {
namespace {

constexpr std::size_t kBlockPixels = 16;

// Calls encode_block(first pixel) until all pixels are done. The first two and the last two blocks
// may overlap, so no pixels are left over and no load leaves the image. pixel_count is at least
// kPixels, the size of a block; the second block starts at head, from 1 to kPixels, chosen to align
// stores.
template <std::size_t kPixels, class EncodeBlock>
inline void ForEachBlock(std::size_t pixel_count, std::size_t head, EncodeBlock encode_block) {
  encode_block(std::size_t{0});
  std::size_t i = head;
  for (; i + kPixels <= pixel_count; i += kPixels) encode_block(i);
  if (i < pixel_count) encode_block(pixel_count - kPixels);
}

// Returns whether smallest <= |(x - mean) * scale| <= largest for every byte x other than the mean.
// The product grows with the distance from the mean, so it suffices to test the ends and the bytes
// next to the mean. NaN and infinite constants give false.
inline bool StaysWithin(float mean, float scale, float smallest, float largest) {
  const int below_mean = !(mean > 0) ? 0 : mean < 254 ? static_cast<int>(mean) : 254;
  const int bytes[] = {0, below_mean, below_mean + 1, 255};
  for (const int byte : bytes) {
    const float difference = static_cast<float>(byte) - mean;
    const float product = difference * scale;
    const float magnitude = product < 0 ? -product : product;
    const bool is_inside = magnitude >= smallest && magnitude <= largest;
    if (!is_inside && difference != 0) return false;
  }
  return true;
}

template <class Plan>
inline bool AllStayWithin(const Plan& plan, float smallest, float largest) {
  for (int c = 0; c < plan.channels; ++c) {
    if (!StaysWithin(plan.means[c], plan.scales[c], smallest, largest)) return false;
  }
  return true;
}

// A byte becomes a float without a conversion: 0x4700xx00 are the bits of 32768 + xx. If 32768 +
// mean is a float, too, (32768 + xx) - (32768 + mean) equals xx - mean before rounding, hence after
// it. Floats below 65536 represent every multiple of 1/256.
constexpr uint8_t kOffsetTopByte = 0x47;
constexpr float kOffset = 32768.0F;

template <class Plan>
inline bool AllMeansTakeOffset(const Plan& plan) {
  for (int c = 0; c < plan.channels; ++c) {
    const float mean = plan.means[c];
    if (!(mean > -kOffset && mean < kOffset)) return false;
    const float in_256ths = mean * 256;
    if (static_cast<float>(static_cast<int32_t>(in_256ths)) != in_256ths) return false;
  }
  return true;
}

}  // namespace
}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_ENCODE_LOOP_H_
