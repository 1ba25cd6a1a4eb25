// make_golden FOLDER: writes the golden vectors by the scalar rules. README.md there has the
// format.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <random>
#include <string>
#include <vector>

#include "src/image/warp_rules.h"
#include "src/rknn/pixel_rules.h"

namespace corvane {
namespace {

std::mt19937 generator(1);
uint32_t RandomBits() { return static_cast<uint32_t>(generator()); }

float FromBits(uint32_t bits) {
  float value = 0;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

template <class Value>
std::string Hex(Value value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(value));
  char text[9];
  std::snprintf(text, sizeof(text), "%0*X", static_cast<int>(2 * sizeof(value)), bits);
  return text;
}

template <class Value>
std::string HexOfAll(const std::vector<Value>& values) {
  std::string text;
  for (const Value value : values) text += Hex(value);
  return text;
}

// Both sides of each limit of a rule, and some of every kind.
std::vector<uint32_t> Floats() {
  std::vector<uint32_t> floats = {0x00000000, 0x00000001, 0x00800000, 0x7F800000, 0x7FC00000};
  for (const uint32_t limit : {0x38000000U, 0x38800000U, 0x3EFFFFFFU, 0x3F000000U, 0x3F800000U,
                               0x3FC00000U, 0x47000000U, 0x477FE000U, 0x477FF000U, 0x47800000U,
                               0x4B000000U, 0x4B800000U, 0x4F000000U, 0x4F800000U, 0x7F7FFFFFU}) {
    floats.insert(floats.end(), {limit - 1, limit, limit + 1});
  }
  for (int i = 0; i < 40; ++i) floats.push_back(0x36000000 + RandomBits() % 0x1A000000);
  for (std::size_t i = 0, count = floats.size(); i < count; ++i) {
    floats.push_back(floats[i] | 0x80000000);
  }
  return floats;
}

void WriteConversions(const std::string& folder) {
  std::ofstream half(folder + "/half.txt"), low_half(folder + "/low_half.txt");
  std::ofstream position(folder + "/position.txt");
  for (const uint32_t bits : Floats()) {
    const float value = FromBits(bits);
    half << Hex(bits) << ' ' << Hex(FloatToHalf(value)) << '\n';
    low_half << Hex(bits) << ' ' << Hex(QuantizeDfp16(value, 1)) << '\n';
    position << Hex(bits) << ' ' << Hex(RoundToFixed(value)) << '\n';
  }
}

void WriteIntegers(const std::string& folder) {
  std::ofstream integer(folder + "/integer.txt");
  for (const int shift : {0, 1, 7, 8, 15, 16, 31, -1, -7, -16, -31, -32, -40}) {
    for (const int32_t mean : {0, 127, -1, 70000, INT32_MIN, INT32_MAX}) {
      for (const int byte : {0, 1, 127, 200, 255}) {
        const auto pixel = static_cast<uint8_t>(byte);
        integer << Hex(pixel) << ' ' << Hex(mean) << ' ' << Hex(shift) << ' '
                << Hex(QuantizeInteger(pixel, mean, shift)) << '\n';
      }
    }
  }
}

void WriteBlends(const std::string& folder) {
  std::ofstream blend(folder + "/blend.txt");
  for (int i = 0; i < 200; ++i) {
    int neighbours[4], fractions[2];
    for (int& n : neighbours)
      n = i < 16 ? ((i >> (&n - neighbours)) & 1) * 255 : static_cast<int>(RandomBits() % 256);
    for (int& f : fractions) f = i % 4 == 0 ? 1023 : static_cast<int>(RandomBits() % 1024);
    for (const int n : neighbours) blend << Hex(static_cast<uint8_t>(n)) << ' ';
    for (const int f : fractions) blend << Hex(static_cast<uint16_t>(f)) << ' ';
    blend << Hex(Blend(neighbours[0], neighbours[1], neighbours[2], neighbours[3], fractions[0],
                       fractions[1]))
          << '\n';
  }
}

void WriteEncodings(const std::string& folder) {
  struct Constants {
    int channels;
    float means[3], scales[3];
    int shift;
  };
  const Constants rows[] = {
      {3, {0, 0, 0}, {1, 1, 1}, 0},
      {3, {127.5F, 127.5F, 127.5F}, {1 / 127.5F, 1 / 127.5F, 1 / 127.5F}, 14},
      {3, {123.675F, 116.28F, 103.53F}, {0.01712475F, 0.017507F, 0.01742919F}, 10},
      {3, {-1000, 0.1F, 255}, {65, -1e5F, 1e-6F}, 8},
      {1, {127.5F, 0, 0}, {0.0078125F, 0, 0}, 8},
      {1, {0.3F, 0, 0}, {-3e8F, 0, 0}, 0}};
  std::ofstream encode(folder + "/encode.txt");
  for (const Constants& row : rows) {
    constexpr std::size_t kPixels = 21;  // a block of 16 and a rest
    const auto channels = static_cast<std::size_t>(row.channels);
    std::vector<uint8_t> image(kPixels * channels);
    for (uint8_t& byte : image) byte = static_cast<uint8_t>(RandomBits());
    std::vector<float> floats;
    std::vector<uint16_t> halves;
    std::vector<int16_t> integers;
    for (std::size_t c = 0; c < channels; ++c) {
      for (std::size_t i = 0; i < kPixels; ++i) {
        const uint8_t byte = image[i * channels + c];
        floats.push_back(Normalise(byte, row.means[c], row.scales[c]));
        halves.push_back(FloatToHalf(floats.back()));
        integers.push_back(QuantizeDfp16(static_cast<float>(byte) - row.means[c],
                                         PowerOfTwo(row.shift) * row.scales[c]));
      }
    }
    encode << row.channels;
    for (const float mean : row.means) encode << ' ' << Hex(mean);
    for (const float scale : row.scales) encode << ' ' << Hex(scale);
    encode << ' ' << Hex(row.shift) << ' ' << HexOfAll(image) << ' ' << HexOfAll(floats) << ' '
           << HexOfAll(halves) << ' ' << HexOfAll(integers) << '\n';
  }
}

void WriteWarps(const std::string& folder) {
  constexpr int kWidth = 24, kHeight = 18, kTargetWidth = 20, kTargetHeight = 5;
  const float matrices[][6] = {{1, 0, 0, 0, 1, 0},
                               {1, 0, 0.5F, 0, 1, 0.25F},
                               {0.93F, -0.25F, 4.4F, 0.25F, 0.93F, 1.7F},
                               {-1.2F, 0.1F, 22.3F, 0.05F, -0.9F, 16.6F},
                               {3.3F, 0, -8, 0.7F, 2, -4},
                               {0.01F, 1e6F, -2e6F, 1, 1, 1}};
  std::ofstream warp(folder + "/warp.txt");
  std::vector<uint8_t> pixels(3 * kWidth * kHeight);
  for (uint8_t& byte : pixels) byte = static_cast<uint8_t>(RandomBits());
  const Source source = {pixels.data(), kWidth, kHeight, {0x40, 0x80, 0xFF}};
  for (const auto& m : matrices) {
    for (const int border_type : {0, -233}) {
      std::vector<uint8_t> target(3 * kTargetWidth * kTargetHeight, 0x55);
      for (int y = 0; y < kTargetHeight; ++y) {
        const auto row = static_cast<float>(y);
        const int32_t row_x = RoundToFixed(std::fma(m[1], row, m[2]) * 1024);
        const int32_t row_y = RoundToFixed(std::fma(row, m[4], m[5]) * 1024);
        for (int x = 0; x < kTargetWidth; ++x) {
          const auto column = static_cast<float>(x);
          WarpPixel(source, border_type == -233,
                    AddWrapping(row_x, RoundToFixed(column * (m[0] * 1024))),
                    AddWrapping(row_y, RoundToFixed(column * (m[3] * 1024))),
                    target.data() + 3 * (y * kTargetWidth + x));
        }
      }
      for (const float value : m) warp << Hex(value) << ' ';
      warp << Hex(border_type) << " 00FF8040 " << HexOfAll(pixels) << ' ' << HexOfAll(target)
           << '\n';
    }
  }
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "make_golden FOLDER\n");
    return 2;
  }
  corvane::WriteConversions(argv[1]);
  corvane::WriteIntegers(argv[1]);
  corvane::WriteBlends(argv[1]);
  corvane::WriteEncodings(argv[1]);
  corvane::WriteWarps(argv[1]);
  return 0;
}
