// Every compiled set of encoder loops against literals and against the rules computed another way
// (in double, case by case), on all bytes and on constants chosen to break shortcuts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "src/rknn/encode_kernels.h"
#include "src/rknn/input_encoder.h"
#include "src/rknn/pixel_rules.h"
#include "tests/support/guarded_buffer.h"
#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace corvane {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// Switches flush-to-zero on or off in this thread for a scope.
class ScopedFlushToZero {
 public:
#if defined(__aarch64__)
  explicit ScopedFlushToZero(bool on) {
    __asm__ volatile("mrs %0, fpcr" : "=r"(before_));
    Set(on ? 0x1000000 : 0);
  }
  void Set(uint64_t mode) { __asm__ volatile("msr fpcr, %0" : : "r"(mode)); }
#else
  explicit ScopedFlushToZero(bool on) : before_(_mm_getcsr()) { Set(on ? 0x9FC0 : 0x1F80); }
  void Set(uint64_t mode) { _mm_setcsr(static_cast<unsigned>(mode)); }
#endif
  ~ScopedFlushToZero() { Set(before_); }

 private:
  uint64_t before_;
};

float FromBits(uint32_t bits) {
  float value = 0;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

uint32_t Bits(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

// The rules, computed another way. Double precision holds each step's exact result closely enough
// that rounding it to float equals the float operation.
float Difference(uint8_t byte, float mean) {
  return std::isnan(mean) ? mean : static_cast<float>(1.0 * byte - double{mean});
}
float Product(float value, float scale) {
  return std::isnan(value) ? value : static_cast<float>(double{value} * double{scale});
}

uint16_t Half(float value) {
  const uint16_t sign = std::signbit(value) ? 0x8000 : 0;
  const double magnitude = std::fabs(double{value});
  if (magnitude < std::ldexp(1.0, -14)) return sign;
  if (!(magnitude < 65536)) return sign | 0x7BFF;
  const int exponent = std::ilogb(magnitude);
  const int significand = static_cast<int>(std::ldexp(magnitude, 10 - exponent));  // 1024 to 2047
  return static_cast<uint16_t>(sign | ((exponent + 15) * 1024 + significand - 1024));
}

int32_t Truncated(float value) {
  if (std::isnan(value)) return 0;
  return static_cast<int32_t>(
      std::trunc(std::fmax(-2147483648.0, std::fmin(2147483647.0, double{value}))));
}

int16_t Dfp16(uint8_t byte, float mean, float scale, int fraction_bits) {
  const float factor = Product(static_cast<float>(std::ldexp(1.0, fraction_bits)), scale);
  return static_cast<int16_t>(Truncated(Product(Difference(byte, mean), factor)));
}

int16_t Dfp16Integer(uint8_t byte, float mean, int fraction_bits) {
  int64_t value = static_cast<int32_t>(int64_t{byte} - Truncated(mean));
  for (int i = 0; i < fraction_bits; ++i) value = value * 2 % 65536;
  for (int i = 0; i > fraction_bits; --i) value /= 2;
  return static_cast<int16_t>(value);
}

enum class Kind { kFloat32, kFloat16, kDfp16 };
constexpr Kind kKinds[] = {Kind::kFloat32, Kind::kFloat16, Kind::kDfp16};

// Hosts differ in which operand's NaN a product keeps, so the rules are compared for any NaN. The
// sets of loops on one host must agree on its bits.
uint32_t AnyNan(float value) { return std::isnan(value) ? 0x7FC00000 : Bits(value); }

uint32_t Expected(Kind kind, uint8_t byte, const Normalisation& constants, int channels, int c,
                  int fraction_bits) {
  const float mean = constants.means != nullptr ? constants.means[c] : 0;
  const float scale = constants.scales != nullptr ? constants.scales[c] : 1;
  if (kind == Kind::kDfp16) {
    return static_cast<uint16_t>(channels == 3 && constants.scales == nullptr
                                     ? Dfp16Integer(byte, mean, fraction_bits)
                                     : Dfp16(byte, mean, scale, fraction_bits));
  }
  const float value = Product(Difference(byte, mean), scale);
  return kind == Kind::kFloat32 ? AnyNan(value) : Half(value);
}

// Encodes into a buffer with canaries on both sides and returns the elements' bits.
template <class Element, class Encode>
std::vector<uint32_t> Between(std::size_t count, std::size_t lead, Encode encode) {
  const Element canary = static_cast<Element>(0x5A5A);
  std::vector<Element> buffer(lead + count + 40, canary);
  encode(buffer.data() + lead);
  std::vector<uint32_t> bits(count);
  for (std::size_t i = 0; i < buffer.size(); ++i) {
    if (i < lead || i >= lead + count) {
      EXPECT_EQ(buffer[i], canary) << "wrote outside, at " << i << " of " << lead << "+" << count;
    } else {
      std::memcpy(&bits[i - lead], &buffer[i], sizeof(Element));
    }
  }
  return bits;
}

std::vector<uint32_t> Encode(const EncodeKernels& kernels, Kind kind, const InputImage& image,
                             const Normalisation& constants, int fraction_bits) {
  const std::size_t count = image.pixel_count * image.channels;
  const std::size_t lead = 1 + image.pixel_count % 9;  // so that every alignment occurs
  switch (kind) {
    case Kind::kFloat32:
      return Between<float>(
          count, lead, [&](float* planes) { EncodeFloat32(kernels, image, constants, planes); });
    case Kind::kFloat16:
      return Between<uint16_t>(
          count, lead, [&](uint16_t* planes) { EncodeFloat16(kernels, image, constants, planes); });
    default:
      return Between<int16_t>(count, lead, [&](int16_t* planes) {
        EncodeDfp16(kernels, image, constants, fraction_bits, planes);
      });
  }
}

// Every usable set of loops gives what the rules give. False at the first difference.
bool AllAgree(Kind kind, const InputImage& image, const Normalisation& constants,
              int fraction_bits = 8) {
  std::vector<uint32_t> expected(image.pixel_count * image.channels);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const int c = static_cast<int>(i % image.channels);
    const int plane = image.reverse_channels ? image.channels - 1 - c : c;
    expected[plane * image.pixel_count + i / image.channels] =
        Expected(kind, image.pixels[i], constants, image.channels, c, fraction_bits);
  }
  std::vector<uint32_t> first;
  for (const EncodeKernels* const* set = UsableKernels(); *set != nullptr; ++set) {
    const std::vector<uint32_t> got = Encode(**set, kind, image, constants, fraction_bits);
    if (first.empty()) first = got;
    for (std::size_t i = 0; i < got.size(); ++i) {
      const uint32_t bits = kind == Kind::kFloat32 ? AnyNan(FromBits(got[i])) : got[i];
      if (bits == expected[i] && got[i] == first[i]) continue;
      const std::size_t plane = i / image.pixel_count;
      const std::size_t c = image.reverse_channels ? image.channels - 1 - plane : plane;
      ADD_FAILURE() << (*set)->name << ", kind " << static_cast<int>(kind) << ", "
                    << image.pixel_count << " pixels of " << image.channels << ", byte "
                    << +image.pixels[i % image.pixel_count * image.channels + c] << ", fl "
                    << fraction_bits << std::hexfloat << ", mean "
                    << (constants.means != nullptr ? constants.means[c] : 0) << ", scale "
                    << (constants.scales != nullptr ? constants.scales[c] : 1) << std::hex
                    << ": expected " << expected[i] << ", got " << got[i];
      return false;
    }
  }
  return true;
}

// All 256 bytes in each channel, and 19 pixels more, so that the end is inside a block.
constexpr std::size_t kAllBytes = 256 + 19;
std::vector<uint8_t> AllBytes(int channels) {
  std::vector<uint8_t> pixels(kAllBytes * channels);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    pixels[i] = static_cast<uint8_t>(i / channels + 85 * (i % channels));
  }
  return pixels;
}

// Uses the mean and scale in channel `at` of a colour image, beside ordinary ones, and in a gray
// image.
bool AllAgreeOnAllBytes(Kind kind, float mean, float scale, int at, int fraction_bits) {
  static const std::vector<uint8_t> gray = AllBytes(1);
  static const std::vector<uint8_t> colour = AllBytes(3);
  float means[] = {127.5F, 104, 123};
  float scales[] = {1 / 127.5F, 0.5F, 1 / 128.0F};
  means[at] = mean;
  scales[at] = scale;
  return AllAgree(kind, {gray.data(), kAllBytes, 1, false}, {&mean, &scale}, fraction_bits) &&
         AllAgree(kind, {gray.data(), kAllBytes, 1, false}, {&mean, nullptr}, fraction_bits) &&
         AllAgree(kind, {colour.data(), kAllBytes, 3, at == 1}, {means, scales}, fraction_bits) &&
         AllAgree(kind, {colour.data(), kAllBytes, 3, at == 2}, {means, nullptr}, fraction_bits);
}

class EncoderTest : public testing::TestWithParam<bool> {
 protected:
  ScopedFlushToZero mode_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(FlushToZero, EncoderTest, testing::Bool());

TEST(EncodingTest, HalvesThatAreKnown) {
  const struct {
    float value;
    uint16_t half;
  } rows[] = {
      {1.0F, 0x3C00},     {-2.5F, 0xC100},          {0.1F, 0x2E66},     {1.00146484375F, 0x3C01},
      {65519.0F, 0x7BFF}, {65536.0F, 0x7BFF},       {70000.0F, 0x7BFF}, {kInf, 0x7BFF},
      {kNan, 0x7BFF},     {-kInf, 0xFBFF},          {-kNan, 0xFBFF},    {0x1p-14F, 0x0400},
      {0x1p-15F, 0x0000}, {1e-5F, 0x0000},          {-0.0F, 0x8000},    {0x1.fffffep-15F, 0x0000},
      {-1e-40F, 0x8000},  {0x1.ffffffp15F, 0x7BFF},
  };
  for (const auto& row : rows) EXPECT_EQ(FloatToHalf(row.value), row.half) << row.value;
}

TEST(EncodingTest, ElementsThatAreKnown) {
  const uint8_t pixel[] = {204, 17, 123};
  const float means[] = {104, 117, 123};
  const float halves[] = {0.5F, 0.5F, 0.5F};
  float planes[3] = {};
  EncodeFloat32({pixel, 1, 3, true}, {means, halves}, planes);
  EXPECT_EQ(std::vector<float>(planes, planes + 3), (std::vector<float>{0, -50, 50}));
  EncodeFloat32({pixel, 1, 3, false}, {means, halves}, planes);
  EXPECT_EQ(std::vector<float>(planes, planes + 3), (std::vector<float>{50, -50, 0}));

  const float middle[] = {127.5F, 127.9F, 127.9F, 127.9F};
  const float ones[] = {1 / 127.5F};
  const uint8_t ends[] = {255, 0};
  uint16_t half[2] = {};
  EncodeFloat16({ends, 2, 1, false}, {middle, ones}, half);
  EXPECT_EQ(half[0], 0x3C00);
  EXPECT_EQ(half[1], 0xBC00);

  const float scale = 0.0078125F;
  const struct {
    uint8_t byte;
    int channels, fraction_bits;
    const float* mean;
    const float* scale;
    int element;
  } rows[] = {
      {200, 1, 7, middle, nullptr, 9280},     // a gray image keeps the mean's fraction,
      {200, 3, 7, middle, nullptr, 9344},     // a colour image drops it:
      {200, 3, 0, middle + 1, nullptr, 73},   // 127.9 acts as 127
      {200, 3, 8, nullptr, nullptr, -14336},  // no saturation
      {200, 1, 8, nullptr, nullptr, -14336},  //
      {200, 1, 0, nullptr, nullptr, 200},     //
      {255, 1, 8, middle, &scale, 255},       //
      {128, 1, 8, middle, &scale, 1},         // toward zero from both sides
      {127, 1, 8, middle, &scale, -1},        //
      {0, 1, 8, middle, &scale, -255},        //
      {3, 3, 16, nullptr, nullptr, 0},        // all bits shifted out
      {3, 3, 15, nullptr, nullptr, -32768},   //
      {100, 3, -3, middle, nullptr, -3},      // -27 / 8, toward zero
      {7, 1, -1, nullptr, nullptr, 3},        //
  };
  for (const auto& row : rows) {
    const uint8_t bytes[] = {row.byte, row.byte, row.byte};
    int16_t got[3] = {};
    EncodeDfp16({bytes, 1, row.channels, false}, {row.mean, row.scale}, row.fraction_bits, got);
    EXPECT_EQ(got[0], row.element) << +row.byte << " by " << row.fraction_bits;
  }
}

TEST_P(EncoderTest, AgreesOnAllBytesForEveryKindOfConstant) {
  const float kOtherNan = FromBits(0x7FA12345);
  const float means[] = {0,       -0.0F,   127.5F,        123.675F,      104,    0.1F,
                         -3.25F,  254.99F, 255,           300,           1e-40F, 1e-20F,
                         1e30F,   1e9F,    -32767,        -32768,        32768,  40000.5F,
                         -3e9F,   kInf,    -kInf,         kNan,          -kNan,  kOtherNan,
                         FLT_MAX, 0x1p31F, 128.00390625F, 128.001953125F};
  const float scales[] = {1,        1 / 127.5F, -0.5F, 0.017F, 0,      -0.0F,    1 / 255.0F,
                          0x1p-14F, 0x1p-15F,   1e-8F, 1e-38F, 1e-40F, 1e30F,    257.0F,
                          1e36F,    kInf,       -kInf, kNan,   -kNan,  -FLT_MAX, 8421504.5F};
  int at = 0;
  for (const float mean : means) {
    for (const float scale : scales) {
      at = (at + 1) % 3;
      for (const Kind kind : kKinds) {
        if (!AllAgreeOnAllBytes(kind, mean, scale, at, at * 7)) return;
      }
    }
  }
}

// The scales put one byte's value just below, on and just above each limit of each encoding.
TEST_P(EncoderTest, AgreesNextToEveryLimit) {
  int at = 0;
  for (const float limit : {0x1p-126F, 0x1p-14F, 0x1p-13F, 32768.0F, 65504.0F, 65536.0F, 0x1p31F}) {
    for (const float mean : {0.0F, 127.5F, 127.0F, 123.675F, 127.9999F, 255.25F}) {
      for (const int byte : {0, 1, 126, 127, 128, 255}) {
        const float exact = limit / std::fabs(static_cast<float>(byte) - mean);
        if (!(exact > 0 && exact < kInf)) continue;
        for (int ulps = -2; ulps <= 2; ++ulps) {
          const float scale = FromBits(Bits(exact) + static_cast<uint32_t>(ulps));
          at = (at + 1) % 3;
          // At 2^-126 two hosts may differ (docs/exactness.md), but not two sets of loops on one.
          for (const Kind kind : kKinds) {
            if (!AllAgreeOnAllBytes(kind, mean, at == 0 ? -scale : scale, at, 0)) return;
          }
        }
      }
    }
  }
}

// With a mean of -1024 - 256 * q, the differences of all bytes and all q are 1024 to 2047: every
// pattern of the ten fraction bits that halves keep. A power of two as scale then gives every
// exponent, and a scale just below it gives the values whose truncated bits are all ones.
TEST_P(EncoderTest, ConvertsEveryUpperBitPattern) {
  const std::vector<uint8_t> colour = AllBytes(3);
  for (int exponent = -149; exponent <= 127; ++exponent) {
    for (const bool is_below : {false, true}) {
      for (int quarter = 0; quarter < 4; ++quarter) {
        const float mean = static_cast<float>(-1024 - 256 * quarter);
        const float scale = FromBits(Bits(PowerOfTwo(exponent)) - (is_below ? 1 : 0));
        const float means[] = {mean, mean, mean};
        const float scales[] = {scale, -scale, scale};
        const InputImage image = {colour.data(), kAllBytes, 3, false};
        ASSERT_TRUE(AllAgree(Kind::kFloat16, image, {means, scales}));
        ASSERT_TRUE(quarter > 0 || AllAgree(Kind::kDfp16, image, {means, scales}, 0));
      }
    }
  }
}

// From 512 pixels on, the portable loops read a table.
TEST_P(EncoderTest, AgreesOnBothSidesOfTheTablesThreshold) {
  std::vector<uint8_t> pixels(3 * 1025);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 167 >> 2);
  const float means[] = {127.5F, -3.25F, 300};
  const float scales[] = {1 / 127.5F, -0.017F, 40};
  for (const std::size_t pixel_count : {511, 512, 1025}) {
    for (const int channels : {1, 3}) {
      for (const bool reverse : {false, true}) {
        const InputImage image = {pixels.data(), pixel_count, channels, reverse && channels == 3};
        for (const int fraction_bits : {-3, 0, 8, 15}) {
          for (const Kind kind : kKinds) {
            ASSERT_TRUE(AllAgree(kind, image, {means, scales}, fraction_bits));
            ASSERT_TRUE(AllAgree(kind, image, {means, nullptr}, fraction_bits));
          }
        }
      }
    }
  }
}

TEST_P(EncoderTest, TakesEveryFractionLength) {
  for (int fraction_bits = -128; fraction_bits <= 127; ++fraction_bits) {
    for (const float mean : {127.5F, -1e9F, 2e9F, -3e9F}) {
      ASSERT_TRUE(AllAgreeOnAllBytes(Kind::kDfp16, mean, 0.3F, 1, fraction_bits));
    }
    ASSERT_TRUE(AllAgreeOnAllBytes(Kind::kDfp16, 0, 1e38F, 0, fraction_bits));
  }
}

TEST_P(EncoderTest, ReadsNothingOutsideTheImage) {
  using corvane_test::GuardedBuffer;
  const float means[] = {127.5F, 123.675F, 104};
  const float scales[] = {1 / 127.5F, 0.017F, 1 / 128.0F};
  for (const auto flush : {GuardedBuffer::Flush::kAtBegin, GuardedBuffer::Flush::kAtEnd}) {
    for (const std::size_t channels : {1, 3}) {
      for (std::size_t width = 0; width <= 2 * 32 + 3; ++width) {
        const GuardedBuffer pixels(width * channels, flush);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
          pixels.data()[i] = static_cast<uint8_t>(i * 7);
        }
        const InputImage image = {pixels.data(), width, static_cast<int>(channels), width % 2 == 1};
        for (const Kind kind : kKinds) {
          ASSERT_TRUE(AllAgree(kind, image, {means, scales}));
          ASSERT_TRUE(AllAgree(kind, image, {means, nullptr}));
        }
      }
    }
  }
}

}  // namespace
}  // namespace corvane
