// What the vector loops share: walking over the pixels in blocks, and knowing before the first
// pixel what no element will do.
#ifndef CORVANE_SRC_RKNN_ENCODE_LOOP_H_
#define CORVANE_SRC_RKNN_ENCODE_LOOP_H_

#include <cstddef>
#include <cstdint>

namespace corvane {
namespace {

constexpr std::size_t kBlockPixels = 16;

// Calls encode_block(first pixel) until all pixels are done: blocks overlap at both ends rather
// than leave a rest, so no load leaves the image. pixel_count is at least kBlockPixels; head, from
// 1 to kBlockPixels, is where the second block starts (the loop's stores are aligned by it).
template <class EncodeBlock>
inline void ForEachBlock(std::size_t pixel_count, std::size_t head, EncodeBlock encode_block) {
  encode_block(std::size_t{0});
  std::size_t i = head;
  for (; i + kBlockPixels <= pixel_count; i += kBlockPixels) encode_block(i);
  if (i < pixel_count) encode_block(pixel_count - kBlockPixels);
}

// Whether for every byte x that is not the mean itself smallest <= |(x - mean) * scale| <= largest.
// The product only grows with the distance from the mean, so the ends and the bytes next to the
// mean tell. NaNs and infinities answer no.
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

// A byte becomes a float without a conversion: 0x4700xx00 are the bits of 32768 + xx. Where
// 32768 + mean is a float too, (32768 + xx) - (32768 + mean) rounds exactly what xx - mean rounds.
// Floats up to 65536 hold every multiple of 1/256.
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
