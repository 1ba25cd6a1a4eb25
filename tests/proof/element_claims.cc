// Claims on whole encoders: every byte against every constant that a short cut admits.
#include "src/rknn/encode_loop.h"
#include "src/rknn/pixel_rules.h"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

constexpr int kPixels = 256;

// Byte c of pixel i: each channel has every byte value, in an order of its own.
uint8_t ByteAt(int i, int c) { return static_cast<uint8_t>(i + 85 * c); }

const uint8_t* EveryByte(int channels) {
  static const std::vector<uint8_t> images = [] {
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 3 * kPixels; ++i) bytes.push_back(ByteAt(i / 3, i % 3));
    for (int i = 0; i < kPixels; ++i) bytes.push_back(ByteAt(i, 0));
    return bytes;
  }();
  return images.data() + (channels == 1 ? 3 * kPixels : 0);
}

template <class Element>
struct Planes {
  alignas(32) Element elements[3][kPixels];

  EncodePlan<Element> PlanFor(int channels, const float (&means)[3], float scale) {
    return {EveryByte(channels),
            kPixels,
            channels,
            {means[0], means[1], means[2]},
            {scale, scale, scale},
            {elements[0], elements[1], elements[2]}};
  }
};

// 1024 means that are multiples of 1/256, their difference from every byte. In 256ths it has at
// most 24 bits, so a float holds it exactly.
uint64_t CheckDifferences(const EncodeKernels& kernels, int channels, uint64_t item) {
  Planes<float> planes;
  const int first = static_cast<int>(item) * 1024 - (1 << 23);
  for (int mean = std::max(first, 1 - (1 << 23)); mean < first + 1024; ++mean) {
    const int means[3] = {mean, -mean, mean};
    const float as_float = static_cast<float>(mean) / 256;
    kernels.float32(planes.PlanFor(channels, {as_float, -as_float, as_float}, 1));
    for (int c = 0; c < channels; ++c) {
      float wanted[kPixels];
      for (int p = 0; p < kPixels; ++p) {
        wanted[p] = static_cast<float>(256 * ByteAt(p, c) - means[c]) / 256;
      }
      // By bytes: +0 and -0 differ.
      if (std::memcmp(wanted, planes.elements[c], sizeof(wanted)) != 0) {
        Counterexample("bytes less a mean of 0x%06X/256, channel %d of %d", means[c], c, channels);
      }
    }
  }
  return 1024U * kPixels * static_cast<uint64_t>(channels);
}

// Subnormal means count as 0.
bool IsMultipleOf256th(uint32_t bits) {
  const Decoded mean(bits);
  if (mean.significand == 0) return true;
  const int lowest_bit = mean.exponent - 150 + __builtin_ctzll(mean.significand);
  return mean.exponent < 127 + 15 && lowest_bit >= -8;
}

uint64_t CheckAdmittedMeans(uint64_t item) {
  EncodePlan<float> plan = {};
  plan.channels = 1;
  for (uint32_t i = 0; i < 1U << 14; ++i) {
    const uint32_t bits = static_cast<uint32_t>(item) << 14 | i;
    plan.means[0] = FromBits(bits);
    const bool admits = AllMeansTakeOffset(plan);
    if (admits != IsMultipleOf256th(bits)) {
      Counterexample("mean 0x%08X is %s", bits, admits ? "admitted" : "refused");
    }
  }
  return 1U << 14;
}

// The integer rule in 64 bits, by multiplication.
uint64_t CheckIntegers(const EncodeKernels& kernels, uint64_t low_half) {
  constexpr int kShifts[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,         10,
                             11, 12, 13, 14, 15, 16, 17, 31, 32, 0x7FFFFFFF};
  Planes<int16_t> planes;
  IntegerPlan plan = {
      EveryByte(3), kPixels, {}, 0, {planes.elements[0], planes.elements[1], planes.elements[2]}};
  for (uint32_t c = 0; c < 3; ++c) {  // the upper halves must not matter
    const uint32_t upper = static_cast<uint32_t>(low_half) * 40503 + c * 0x5555;
    plan.means[c] = static_cast<int32_t>(upper << 16 | ((low_half + c) & 0xFFFF));
  }
  for (const int shift : kShifts) {
    plan.fraction_bits = shift;
    kernels.dfp16_integers(plan);
    const int64_t factor = shift < 16 ? int64_t{1} << shift : 65536;
    for (int i = 0; i < 3 * kPixels; ++i) {
      const int c = i % 3, byte = ByteAt(i / 3, c);
      const auto wanted = static_cast<int16_t>((int64_t{byte} - plan.means[c]) * factor & 0xFFFF);
      if (planes.elements[c][i / 3] != wanted) {
        Counterexample("byte 0x%02X, mean 0x%08X, shift %d gives 0x%04X, not 0x%04X", byte,
                       static_cast<uint32_t>(plan.means[c]), shift,
                       planes.elements[c][i / 3] & 0xFFFF, wanted & 0xFFFF);
      }
    }
  }
  return 21 * 3 * kPixels;
}

// A negative shift by s divides by 2^s. The quotient is the same from q * 2^s to the next multiple,
// so both ends of each such stretch decide: every q, both signs.
uint64_t CheckDivision(int shift, int64_t quotient) {
  for (const int64_t magnitude : {quotient << shift, ((quotient + 1) << shift) - 1}) {
    for (const int64_t sign : {1, -1}) {
      const int64_t difference = sign * magnitude;
      if (difference > INT32_MAX || difference < INT32_MIN) continue;
      const auto byte = static_cast<uint8_t>(quotient);
      const auto mean = static_cast<int32_t>(static_cast<uint32_t>(byte - difference));  // wraps
      const auto wanted = static_cast<int16_t>(sign * quotient);
      if (QuantizeInteger(byte, mean, -shift) != wanted) {
        Counterexample("0x%08X / 2^%d is not 0x%04X", static_cast<uint32_t>(difference), shift,
                       wanted & 0xFFFF);
      }
    }
  }
  return 4;
}

uint64_t CheckDivisions() {
  uint64_t cases = 0;
  for (int shift = 1; shift <= 40; ++shift) {
    const uint64_t quotients = ((uint64_t{1} << 31) >> shift) + 1;
    cases += ForAll(quotients / 16384 + 1, [=](uint64_t item) {
      const uint64_t end = std::min(quotients, (item + 1) * 16384);
      uint64_t checked = 0;
      for (uint64_t q = item * 16384; q < end; ++q) {
        checked += CheckDivision(shift, static_cast<int64_t>(q));
      }
      return checked;
    });
  }
  return cases;
}

// Scales that bring the mean's difference from a byte next to a limit of a short cut's range, and
// one float to either side.
std::vector<float> ScalesNearLimits(float mean) {
  std::vector<float> scales = {0, 1, -1.0F / 128, 6.1e-5F, -INFINITY, NAN};
  const int nearest = mean > 0 && mean < 255 ? static_cast<int>(mean) : 0;
  for (const int byte : {0, 1, nearest, std::min(nearest + 1, 255), 255}) {
    for (const float limit :
         {0x1p-14F, 0x1p-13F, 65504.0F, 65536.0F, 32767.0F, 32768.0F, 0x1p31F}) {
      const float scale = limit / (static_cast<float>(byte) - mean);
      for (const float toward : {scale, INFINITY, -INFINITY}) {
        scales.push_back(std::nextafter(scale, toward));
      }
    }
  }
  return scales;
}

template <class Element, class Rule>
void CompareElements(const EncodePlan<Element>& plan, void (*encode)(const EncodePlan<Element>&),
                     Rule rule) {
  encode(plan);
  const float mean = plan.means[0], scale = plan.scales[0];
  for (int c = 0; c < plan.channels; ++c) {
    Element wanted[kPixels];
    for (int p = 0; p < kPixels; ++p) wanted[p] = rule(ByteAt(p, c), mean, scale);
    if (std::memcmp(plan.planes[c], wanted, sizeof(wanted)) != 0) {
      Counterexample("mean 0x%08X, scale 0x%08X, channel %d of %d, %zu-byte elements", BitsOf(mean),
                     BitsOf(scale), c, plan.channels, sizeof(Element));
    }
  }
}

// Means of every sign, exponent and three fraction bits. The claims on the rules' parts stand on
// other computations; here the loops are compared with the scalar rules.
uint64_t CheckElements(const EncodeKernels& kernels, uint64_t item) {
  const float mean = FromBits(static_cast<uint32_t>(item) << 20 | (item % 2 == 0 ? 0x1234 : 0));
  Planes<float> floats;
  Planes<uint16_t> halves;
  Planes<int16_t> integers;
  uint64_t cases = 0;
  for (const float scale : ScalesNearLimits(mean)) {
    if (std::isnan(mean) && std::isnan(scale)) continue;  // the encoder replaces such a scale
    for (const int channels : {1, 3}) {
      const float means[3] = {mean, mean, mean};
      CompareElements(floats.PlanFor(channels, means, scale), kernels.float32, Normalise);
      const auto half_plan = halves.PlanFor(channels, means, scale);
      if (kernels.accepts_float16 == nullptr || kernels.accepts_float16(half_plan)) {
        CompareElements(half_plan, kernels.float16, [](uint8_t byte, float m, float s) {
          return FloatToHalf(Normalise(byte, m, s));
        });
      }
      CompareElements(integers.PlanFor(channels, means, scale), kernels.dfp16,
                      [](uint8_t byte, float m, float s) {
                        return QuantizeDfp16(static_cast<float>(byte) - m, s);
                      });
      cases += 3U * kPixels * static_cast<uint64_t>(channels);
    }
  }
  return cases;
}

// Images of up to 1024 pixels in blocks of kPixels, the second block at `head`.
template <std::size_t kPixels>
uint64_t CheckWalks(uint64_t item) {
  const std::size_t head = item + 1;
  for (std::size_t count = kPixels; count <= 1024; ++count) {
    std::vector<bool> is_done(count);
    ForEachBlock<kPixels>(count, head, [&](std::size_t first) {
      if (first + kPixels > count) Counterexample("block 0x%zX leaves 0x%zX", first, count);
      std::fill_n(is_done.begin() + static_cast<std::ptrdiff_t>(first), kPixels, true);
    });
    if (std::count(is_done.begin(), is_done.end(), false) != 0) {
      Counterexample("a pixel of 0x%zX is left out, head %zu", count, head);
    }
  }
  return 1024 - kPixels + 1;
}

}  // namespace

std::vector<Claim> ElementClaims() {
  std::vector<Claim> claims = {
      {"offset-means", "the offset admits the multiples of 1/256 below 32768 alone",
       [] { return ForAll(1U << 18, CheckAdmittedMeans); }},
      {"division/scalar", "negative shifts divide toward zero", CheckDivisions},
      {"block-walk", "blocks cover each of 16 to 1024 pixels and no other", [] {
         constexpr std::size_t kTwo = 2 * kBlockPixels;
         return ForAll(kBlockPixels, CheckWalks<kBlockPixels>) + ForAll(kTwo, CheckWalks<kTwo>);
       }}};
  for (const EncodeKernels* kernels : {&kPortableKernels, &VectorKernels()}) {
    const std::string name = std::string("/") + kernels->name;
    for (const int channels : {1, 3}) {
      claims.push_back({"difference" + name + "-" + std::to_string(channels),
                        "every byte minus every multiple of 1/256 below 32768", [=] {
                          return ForAll(1U << 14, [=](uint64_t item) {
                            return CheckDifferences(*kernels, channels, item);
                          });
                        }});
    }
    claims.push_back({"integer-rule" + name, "every byte, low half of a mean and shift", [=] {
                        return ForAll(1U << 16,
                                      [=](uint64_t item) { return CheckIntegers(*kernels, item); });
                      }});
  }
  claims.push_back(
      {"elements/vector", "every byte, means of every exponent, scales at each limit", [] {
         return ForAll(4096, [](uint64_t item) { return CheckElements(VectorKernels(), item); });
       }});
  return claims;
}

}  // namespace corvane
