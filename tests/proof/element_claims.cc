// Claims on whole encoders: every byte against every constant that a short cut admits.
#include <array>

#include "src/rknn/encode_loop.h"
#include "src/rknn/pixel_rules.h"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

constexpr int kPixels = 256;

// Byte c of pixel i: every byte value in each channel, at three different places.
uint8_t ByteAt(int channels, int i, int c) {
  return static_cast<uint8_t>(channels == 1 ? i : i + 85 * c);
}

const uint8_t* EveryByte(int channels) {
  static const auto images = [] {
    std::array<std::array<uint8_t, 3 * kPixels>, 2> made = {};
    for (int i = 0; i < kPixels; ++i) {
      made[0][static_cast<std::size_t>(i)] = ByteAt(1, i, 0);
      for (int c = 0; c < 3; ++c) made[1][static_cast<std::size_t>(3 * i + c)] = ByteAt(3, i, c);
    }
    return made;
  }();
  return images[channels == 1 ? 0 : 1].data();
}

template <class Element>
struct Planes {
  alignas(32) Element elements[3][kPixels];
};

template <class Element>
EncodePlan<Element> MakePlan(int channels, const float (&means)[3], const float (&scales)[3],
                             Planes<Element>* planes) {
  EncodePlan<Element> plan = {EveryByte(channels), kPixels, channels, {}, {}, {}};
  for (int c = 0; c < 3; ++c) {
    plan.means[c] = means[c];
    plan.scales[c] = scales[c];
    plan.planes[c] = planes->elements[c];
  }
  return plan;
}

// --- byte - mean where the mean is a multiple of 1/256

constexpr int kMeansEach = 1024;
constexpr int kLargestMean = (1 << 23) - 1;  // in 256ths: below 32768

// The difference in 256ths has at most 24 bits, so a float holds it exactly.
void CheckDifferences(const EncodeKernels& kernels, int channels, uint64_t item) {
  Planes<float> planes;
  for (int i = 0; i < kMeansEach; ++i) {
    const int mean = static_cast<int>(item) * kMeansEach + i - (1 << 23);
    if (mean < -kLargestMean) continue;
    const int means[3] = {mean, -mean, mean};
    const float as_floats[3] = {static_cast<float>(means[0]) / 256,
                                static_cast<float>(means[1]) / 256,
                                static_cast<float>(means[2]) / 256};
    kernels.float32(MakePlan<float>(channels, as_floats, {1, 1, 1}, &planes));
    for (int c = 0; c < channels; ++c) {
      int different = 0;
      for (int p = 0; p < kPixels; ++p) {
        const int difference = 256 * ByteAt(channels, p, c) - means[c];
        different += BitsOf(planes.elements[c][p]) != BitsOf(static_cast<float>(difference) / 256);
      }
      if (different == 0) continue;
      for (int p = 0; p < kPixels; ++p) {
        const int difference = 256 * ByteAt(channels, p, c) - means[c];
        const float element = planes.elements[c][p];
        if (BitsOf(element) == BitsOf(static_cast<float>(difference) / 256)) continue;
        Counterexample("byte 0x%02X - mean 0x%08X gives 0x%08X in channel %d of %d",
                       ByteAt(channels, p, c), BitsOf(as_floats[c]), BitsOf(element), c, channels);
      }
    }
  }
}

// Subnormal means count as 0.
bool IsMultipleOf256th(uint32_t bits) {
  const Decoded mean(bits);
  if (mean.significand == 0) return true;
  const int lowest_bit = mean.exponent - 150 + __builtin_ctzll(mean.significand);
  return mean.exponent < 127 + 15 && lowest_bit >= -8;
}

void CheckAdmittedMeans(Enumeration& enumeration) {
  enumeration.ForAll(1U << 18, 1U << 14, [](uint64_t item) {
    for (uint32_t i = 0; i < 1U << 14; ++i) {
      const uint32_t bits = static_cast<uint32_t>(item) << 14 | i;
      EncodePlan<float> plan = {};
      plan.channels = 1;
      plan.means[0] = FromBits(bits);
      const bool admits = AllMeansTakeOffset(plan);
      if (admits != IsMultipleOf256th(bits)) {
        Counterexample("mean 0x%08X is %s", bits, admits ? "admitted" : "refused");
      }
    }
  });
}

// --- the integer rule

// The same in 64 bits, by multiplication; fraction_bits from 0 on.
unsigned ScaledDifference(int byte, uint32_t mean, int fraction_bits) {
  const int64_t difference = int64_t{byte} - static_cast<int32_t>(mean);
  const int64_t factor = fraction_bits < 16 ? int64_t{1} << fraction_bits : 65536;
  return static_cast<unsigned>(difference * factor & 0xFFFF);
}

void CheckIntegers(const EncodeKernels& kernels, uint64_t low_half) {
  Planes<int16_t> planes;
  for (const int fraction_bits :
       {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 31, 32, 0x7FFFFFFF}) {
    IntegerPlan plan = {EveryByte(3), kPixels, {}, fraction_bits, {}};
    for (uint32_t c = 0; c < 3; ++c) {  // upper halves that must not matter
      const uint32_t upper = (static_cast<uint32_t>(low_half) * 40503 + c * 0x5555) << 16;
      plan.means[c] = static_cast<int32_t>(upper | ((low_half + c) & 0xFFFF));
      plan.planes[c] = planes.elements[c];
    }
    kernels.dfp16_integers(plan);
    for (int c = 0; c < 3; ++c) {
      const auto mean = static_cast<uint32_t>(plan.means[c]);
      for (int p = 0; p < kPixels; ++p) {
        const unsigned wanted = ScaledDifference(ByteAt(3, p, c), mean, fraction_bits);
        const unsigned element = static_cast<uint16_t>(planes.elements[c][p]);
        if (element != wanted) {
          Counterexample("byte 0x%02X, mean 0x%08X, shift %d gives 0x%04X, not 0x%04X",
                         ByteAt(3, p, c), mean, fraction_bits, element, wanted);
        }
      }
    }
  }
}

// A negative shift by s divides by 2^s. The quotient is the same from q * 2^s to the next multiple,
// so both ends of each such stretch decide: every q, both signs.
void CheckDivision(int shift, int64_t quotient) {
  for (const int64_t magnitude : {quotient << shift, ((quotient + 1) << shift) - 1}) {
    for (const int64_t sign : {1, -1}) {
      const int64_t difference = sign * magnitude;
      if (difference > INT32_MAX || difference < INT32_MIN) continue;
      const uint8_t byte = static_cast<uint8_t>(quotient);
      const auto mean = static_cast<uint32_t>(byte - difference);  // byte - mean wraps to it
      const auto element =
          static_cast<uint16_t>(QuantizeInteger(byte, static_cast<int32_t>(mean), -shift));
      if (element != static_cast<uint16_t>(sign * quotient)) {
        Counterexample("0x%08X / 2^%d gives 0x%04X, not 0x%04X", static_cast<uint32_t>(difference),
                       shift, element, static_cast<uint16_t>(sign * quotient));
      }
    }
  }
}

void CheckDivisions(Enumeration& enumeration) {
  for (int shift = 1; shift <= 40; ++shift) {
    const uint64_t quotients = ((uint64_t{1} << 31) >> shift) + 1;
    const uint64_t each = std::min<uint64_t>(quotients, 1U << 14);
    enumeration.ForAll((quotients + each - 1) / each, 4 * each, [=](uint64_t item) {
      for (uint64_t i = 0; i < each; ++i)
        CheckDivision(shift, static_cast<int64_t>(item * each + i));
    });
  }
  for (const int shift : {-64, -1000, INT32_MIN}) {
    for (const int32_t mean : {INT32_MIN, -1, 0, 255, INT32_MAX}) {
      if (QuantizeInteger(0, mean, shift) != 0) Counterexample("shift %d leaves something", shift);
    }
  }
}

// --- range checks at four bytes, and the loops that they choose

// Means of every sign, exponent and three fraction bits; for each the scales that bring a product
// next to a limit of some range, one float below and above it.
float MeanOfItem(uint64_t item) { return FromBits(static_cast<uint32_t>(item) << 20 | 0x1234); }

std::vector<float> ScalesNearLimits(float mean) {
  std::vector<float> scales = {0, 1, -1.0F / 128, 6.1e-5F, -INFINITY, NAN};
  const int nearest = mean > 0 && mean < 255 ? static_cast<int>(mean) : 0;
  for (const int byte : {0, 1, nearest, std::min(nearest + 1, 255), 255}) {
    for (const float limit : {6.103515625e-5F, 1.220703125e-4F, 65504.0F, 65536.0F, 32767.0F,
                              32768.0F, 2147483648.0F}) {
      const float scale = limit / (static_cast<float>(byte) - mean);
      scales.push_back(scale);
      scales.push_back(std::nextafter(scale, INFINITY));
      scales.push_back(std::nextafter(scale, -INFINITY));
    }
  }
  return scales;
}

bool EveryByteStaysWithin(float mean, float scale, float smallest, float largest) {
  bool stays = true;
  for (int byte = 0; byte < 256; ++byte) {
    const float difference = static_cast<float>(byte) - mean;
    const float magnitude = std::fabs(difference * scale);
    stays &= difference == 0 || (magnitude >= smallest && magnitude <= largest);
  }
  return stays;
}

void CheckRanges(Enumeration& enumeration) {
  enumeration.ForAll(4096, 111 * 3, [](uint64_t item) {
    const float mean = MeanOfItem(item);
    for (const float scale : ScalesNearLimits(mean)) {
      const float limits[][2] = {{PowerOfTwo(-14), 65504}, {PowerOfTwo(-13), 65504}, {0, 32767}};
      for (const auto& range : limits) {
        if (StaysWithin(mean, scale, range[0], range[1]) !=
            EveryByteStaysWithin(mean, scale, range[0], range[1])) {
          Counterexample("mean 0x%08X, scale 0x%08X: four bytes do not speak for all in %g to %g",
                         BitsOf(mean), BitsOf(scale), static_cast<double>(range[0]),
                         static_cast<double>(range[1]));
        }
      }
    }
  });
}

template <class Element, class Rule>
void CompareElements(const EncodePlan<Element>& plan, void (*encode)(const EncodePlan<Element>&),
                     Rule rule) {
  encode(plan);
  for (int c = 0; c < plan.channels; ++c) {
    for (int p = 0; p < kPixels; ++p) {
      const uint8_t byte = ByteAt(plan.channels, p, c);
      const Element wanted = rule(byte, plan.means[c], plan.scales[c]);
      if (std::memcmp(&plan.planes[c][p], &wanted, sizeof(wanted)) != 0) {
        Counterexample("byte 0x%02X, mean 0x%08X, scale 0x%08X, channel %d of %d, %zu-byte element",
                       byte, BitsOf(plan.means[c]), BitsOf(plan.scales[c]), c, plan.channels,
                       sizeof(wanted));
      }
    }
  }
}

// The scalar rule is what the loops are compared with here: the claims above prove its parts.
void CheckElements(const EncodeKernels& kernels, uint64_t item) {
  const float mean = MeanOfItem(item);
  Planes<float> floats;
  Planes<uint16_t> halves;
  Planes<int16_t> integers;
  for (const float scale : ScalesNearLimits(mean)) {
    if (std::isnan(mean) && std::isnan(scale)) continue;  // MakePlan() of the encoder drops these
    for (const int channels : {1, 3}) {
      const float means[3] = {mean, mean, mean};
      const float scales[3] = {scale, scale, scale};
      CompareElements(MakePlan(channels, means, scales, &floats), kernels.float32, Normalise);
      const auto half_plan = MakePlan(channels, means, scales, &halves);
      if (kernels.accepts_float16 == nullptr || kernels.accepts_float16(half_plan)) {
        CompareElements(half_plan, kernels.float16, [](uint8_t byte, float m, float s) {
          return FloatToHalf(Normalise(byte, m, s));
        });
      }
      CompareElements(MakePlan(channels, means, scales, &integers), kernels.dfp16,
                      [](uint8_t byte, float m, float s) {
                        return QuantizeDfp16(static_cast<float>(byte) - m, s);
                      });
    }
  }
}

// --- the walk in blocks

void CheckWalks(Enumeration& enumeration) {
  enumeration.ForAll(16, 1024 - kBlockPixels + 1, [](uint64_t item) {
    const std::size_t head = item + 1;
    for (std::size_t count = kBlockPixels; count <= 1024; ++count) {
      std::vector<bool> is_done(count);
      ForEachBlock(count, head, [&](std::size_t first) {
        if (first + kBlockPixels > count) {
          Counterexample("block at 0x%zX leaves 0x%zX pixels, head %zu", first, count, head);
        }
        std::fill_n(is_done.begin() + static_cast<std::ptrdiff_t>(first), kBlockPixels, true);
      });
      const auto missed = std::find(is_done.begin(), is_done.end(), false) - is_done.begin();
      if (missed != static_cast<std::ptrdiff_t>(count)) {
        Counterexample("pixel 0x%zX of 0x%zX is left out, head %zu",
                       static_cast<std::size_t>(missed), count, head);
      }
    }
  });
}

}  // namespace

std::vector<Claim> ElementClaims() {
  std::vector<Claim> claims;
  claims.push_back({"offset-means", "the offset admits the multiples of 1/256 below 32768 alone",
                    CheckAdmittedMeans});
  for (const EncodeKernels* kernels : {&kPortableKernels, &VectorKernels()}) {
    const std::string name = kernels->name;
    for (const int channels : {1, 3}) {
      claims.push_back({"difference/" + name + (channels == 1 ? "-gray" : "-colour"),
                        "every byte minus every multiple of 1/256 below 32768 is exact",
                        [=](Enumeration& enumeration) {
                          const auto cases = static_cast<uint64_t>(kMeansEach * kPixels * channels);
                          enumeration.ForAll((1 << 24) / kMeansEach, cases, [=](uint64_t item) {
                            CheckDifferences(*kernels, channels, item);
                          });
                        }});
    }
    claims.push_back({"integer-rule/" + name, "every byte, low half of a mean and shift",
                      [=](Enumeration& enumeration) {
                        enumeration.ForAll(1U << 16, 21 * 3 * kPixels,
                                           [=](uint64_t item) { CheckIntegers(*kernels, item); });
                      }});
    claims.push_back({"elements/" + name, "every byte with constants next to each limit",
                      [=](Enumeration& enumeration) {
                        enumeration.ForAll(4096, 111 * 3 * 4 * kPixels,
                                           [=](uint64_t item) { CheckElements(*kernels, item); });
                      }});
  }
  claims.push_back({"division/scalar",
                    "negative shifts divide toward zero, at both ends of each "
                    "stretch with one quotient",
                    CheckDivisions});
  claims.push_back(
      {"range-check", "four bytes decide whether all 256 stay in a range", CheckRanges});
  claims.push_back(
      {"block-walk", "blocks cover each pixel of 16 to 1024 and leave none", CheckWalks});
  return claims;
}

}  // namespace corvane
