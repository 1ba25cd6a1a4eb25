// Every set of encoding loops against the rules of one element.
//
// Bytes: the pixel count, the fraction bits, what is given and how, the means and scales, then the
// image. Image and planes end at an unreadable page.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fuzz/byte_reader.h"
#include "src/rknn/encode_kernels.h"
#include "src/rknn/pixel_rules.h"
#include "tests/support/guarded_buffer.h"

namespace {

using corvane_fuzz::ByteReader;
using corvane_fuzz::Require;
using corvane_test::GuardedBuffer;

struct Job {
  corvane::InputImage image;
  corvane::Normalisation normalisation;
  int fraction_bits;
};

// The constants of one channel, where a missing step changes nothing. A NaN in the mean wins.
struct Constants {
  float mean, scale;
};
Constants ConstantsOf(const Job& job, int channel) {
  const float* const means = job.normalisation.means;
  const float* const scales = job.normalisation.scales;
  Constants constants = {means != nullptr ? means[channel] : 0.0F,
                         scales != nullptr ? scales[channel] : 1.0F};
  if (constants.mean != constants.mean && constants.scale != constants.scale) constants.scale = 1;
  return constants;
}

int16_t Dfp16Element(const Job& job, uint8_t byte, int channel) {
  if (job.image.channels == 3 && job.normalisation.scales == nullptr) {
    const float* const means = job.normalisation.means;
    const int32_t mean = means != nullptr ? corvane::TruncateToInt32(means[channel]) : 0;
    return corvane::QuantizeInteger(byte, mean, job.fraction_bits);
  }
  const Constants constants = ConstantsOf(job, channel);
  return corvane::QuantizeDfp16(static_cast<float>(byte) - constants.mean,
                                corvane::PowerOfTwo(job.fraction_bits) * constants.scale);
}

// encode(planes) fills a whole tensor; rule(byte, channel) is one element of it.
template <class Element, class Encode, class Rule>
void Compare(const Job& job, Encode encode, Rule rule) {
  const corvane::InputImage& image = job.image;
  const auto channels = static_cast<std::size_t>(image.channels);
  const GuardedBuffer planes(image.pixel_count * channels * sizeof(Element));
  encode(reinterpret_cast<Element*>(planes.data()));
  for (std::size_t at = 0; at < image.pixel_count * channels; ++at) {
    const auto channel = static_cast<int>(at % channels);
    const std::size_t plane =
        static_cast<std::size_t>(image.reverse_channels ? image.channels - 1 - channel : channel);
    const Element wanted = rule(image.pixels[at], channel);
    const uint8_t* const written =
        planes.data() + (plane * image.pixel_count + at / channels) * sizeof(Element);
    Require(std::memcmp(written, &wanted, sizeof(wanted)) == 0, "an element differs from its rule");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  ByteReader bytes(data, size);
  const std::size_t pixel_count = bytes.Take<uint16_t>() % 1100;  // tables are used from 512 on
  const int fraction_bits = bytes.Take<int16_t>() % 300;
  const auto mode = bytes.Take<uint8_t>();
  float constants[6];
  for (float& value : constants) {
    value = (mode & 1) != 0 ? bytes.Take<float>() : static_cast<float>(bytes.Take<int16_t>()) / 256;
  }
  const int channels = (mode & 2) != 0 ? 3 : 1;
  const GuardedBuffer pixels(pixel_count * static_cast<std::size_t>(channels));
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    pixels.data()[i] = bytes.IsEmpty() ? static_cast<uint8_t>(i * 37) : bytes.Take<uint8_t>();
  }
  const Job job = {
      {pixels.data(), pixel_count, channels, (mode & 4) != 0},
      {(mode & 8) != 0 ? constants : nullptr, (mode & 16) != 0 ? constants + 3 : nullptr},
      fraction_bits};

  for (auto set = corvane::UsableKernels(); *set != nullptr; ++set) {
    Compare<float>(
        job, [&](float* out) { EncodeFloat32(**set, job.image, job.normalisation, out); },
        [&](uint8_t byte, int c) {
          const Constants of = ConstantsOf(job, c);
          return corvane::Normalise(byte, of.mean, of.scale);
        });
    Compare<uint16_t>(
        job, [&](uint16_t* out) { EncodeFloat16(**set, job.image, job.normalisation, out); },
        [&](uint8_t byte, int c) {
          const Constants of = ConstantsOf(job, c);
          return corvane::FloatToHalf(corvane::Normalise(byte, of.mean, of.scale));
        });
    Compare<int16_t>(
        job,
        [&](int16_t* out) {
          EncodeDfp16(**set, job.image, job.normalisation, job.fraction_bits, out);
        },
        [&](uint8_t byte, int c) { return Dfp16Element(job, byte, c); });
  }
  return 0;
}
