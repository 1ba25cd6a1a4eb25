// Holds the library's functions to the vectors in tests/golden/, whose README.md has the format.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "corvane/image.h"
#include "src/image/warp_rules.h"
#include "src/rknn/encode_kernels.h"

namespace corvane {
namespace {

// The rows of a file, each a list of hexadecimal words.
std::vector<std::vector<std::string>> Rows(const std::string& name) {
  std::ifstream file(CORVANE_GOLDEN_FOLDER "/" + name);
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    rows.emplace_back(std::istream_iterator<std::string>(words),
                      std::istream_iterator<std::string>());
  }
  EXPECT_GT(rows.size(), 5U) << name;
  return rows;
}

// The values of a word, one after the other.
template <class Value>
std::vector<Value> ValuesOf(const std::string& word) {
  std::vector<Value> values(word.size() / (2 * sizeof(Value)));
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string digits = word.substr(i * 2 * sizeof(Value), 2 * sizeof(Value));
    const auto bits = static_cast<uint32_t>(std::stoul(digits, nullptr, 16));
    std::memcpy(&values[i], &bits, sizeof(Value));
  }
  return values;
}

template <class Value>
Value ValueOf(const std::string& word) {
  return ValuesOf<Value>(word).at(0);
}

// Every set of loops that this CPU runs.
std::vector<const EncodeKernels*> Sets() {
  std::vector<const EncodeKernels*> sets;
  for (const auto* set = UsableKernels(); *set != nullptr; ++set) sets.push_back(*set);
  return sets;
}

// Sixteen pixels of one byte, which every set encodes by its own loops.
constexpr std::size_t kPixels = 32;  // as many as any vector loop needs

TEST(Golden, HalvesAndLowHalves) {
  const std::vector<uint8_t> ones(kPixels, 1);  // 1 times the scale is the float itself
  const InputImage image = {ones.data(), kPixels, 1, false};
  for (const EncodeKernels* set : Sets()) {
    for (const auto& row : Rows("half.txt")) {
      const auto scale = ValueOf<float>(row.at(0));
      std::vector<uint16_t> halves(kPixels);
      EncodeFloat16(*set, image, {nullptr, &scale}, halves.data());
      EXPECT_EQ(halves, std::vector<uint16_t>(kPixels, ValueOf<uint16_t>(row.at(1)))) << row.at(0);
    }
    for (const auto& row : Rows("low_half.txt")) {
      const auto scale = ValueOf<float>(row.at(0));
      std::vector<int16_t> integers(kPixels);
      EncodeDfp16(*set, image, {nullptr, &scale}, 0, integers.data());
      EXPECT_EQ(integers, std::vector<int16_t>(kPixels, ValueOf<int16_t>(row.at(1)))) << row.at(0);
    }
  }
}

TEST(Golden, Integers) {
  for (const EncodeKernels* set : Sets()) {
    for (const auto& row : Rows("integer.txt")) {
      const std::vector<uint8_t> bytes(3 * kPixels, ValueOf<uint8_t>(row.at(0)));
      IntegerPlan plan = {bytes.data(), kPixels, {}, ValueOf<int32_t>(row.at(2)), {}};
      std::vector<int16_t> integers(3 * kPixels);
      for (std::size_t c = 0; c < 3; ++c) {
        plan.means[c] = ValueOf<int32_t>(row.at(1));
        plan.planes[c] = integers.data() + c * kPixels;
      }
      (plan.fraction_bits < 0 ? kPortableKernels : *set).dfp16_integers(plan);
      EXPECT_EQ(integers, std::vector<int16_t>(3 * kPixels, ValueOf<int16_t>(row.at(3))))
          << row.at(0) << ' ' << row.at(1) << ' ' << row.at(2);
    }
  }
}

TEST(Golden, Encodings) {
  for (const EncodeKernels* set : Sets()) {
    for (const auto& row : Rows("encode.txt")) {
      const int channels = std::stoi(row.at(0));
      float constants[6];
      for (std::size_t i = 0; i < 6; ++i) constants[i] = ValueOf<float>(row.at(i + 1));
      const auto bytes = ValuesOf<uint8_t>(row.at(8));
      const std::size_t pixel_count = bytes.size() / static_cast<std::size_t>(channels);
      const InputImage image = {bytes.data(), pixel_count, channels, false};
      const Normalisation normalisation = {constants, constants + 3};
      std::vector<float> floats(bytes.size());
      std::vector<uint16_t> halves(bytes.size());
      std::vector<int16_t> integers(bytes.size());
      EncodeFloat32(*set, image, normalisation, floats.data());
      EncodeFloat16(*set, image, normalisation, halves.data());
      EncodeDfp16(*set, image, normalisation, ValueOf<int32_t>(row.at(7)), integers.data());
      EXPECT_EQ(floats, ValuesOf<float>(row.at(9))) << set->name;
      EXPECT_EQ(halves, ValuesOf<uint16_t>(row.at(10))) << set->name;
      EXPECT_EQ(integers, ValuesOf<int16_t>(row.at(11))) << set->name;
    }
  }
}

TEST(Golden, Positions) {
  for (const auto& row : Rows("position.txt")) {
    EXPECT_EQ(RoundToFixed(ValueOf<float>(row.at(0))), ValueOf<int32_t>(row.at(1))) << row.at(0);
  }
}

// A matrix without columns or rows samples one place for all pixels.
TEST(Golden, Blends) {
  for (const auto& row : Rows("blend.txt")) {
    constexpr int kWidth = 5, kHeight = 3, kTargets = 17;
    uint8_t source[3 * kWidth * kHeight] = {};
    for (std::size_t n = 0; n < 4; ++n) {
      std::memset(source + 3 * (n / 2 * kWidth + n % 2), ValueOf<uint8_t>(row.at(n)), 3);
    }
    const float matrix[] = {0, 0, static_cast<float>(ValueOf<uint16_t>(row.at(4))) / 1024,
                            0, 0, static_cast<float>(ValueOf<uint16_t>(row.at(5))) / 1024};
    std::vector<uint8_t> target(3 * kTargets);
    warpaffine_bilinear_c3(source, kWidth, kHeight, target.data(), kTargets, 1, matrix, 0, 0);
    EXPECT_EQ(target, std::vector<uint8_t>(3 * kTargets, ValueOf<uint8_t>(row.at(6))));
  }
}

TEST(Golden, Warps) {
  for (const auto& row : Rows("warp.txt")) {
    float matrix[6];
    for (std::size_t i = 0; i < 6; ++i) matrix[i] = ValueOf<float>(row.at(i));
    const auto wanted = ValuesOf<uint8_t>(row.at(9));
    std::vector<uint8_t> target(wanted.size(), 0x55);
    warpaffine_bilinear_c3(ValuesOf<uint8_t>(row.at(8)).data(), 24, 18, target.data(), 20, 5,
                           matrix, ValueOf<int32_t>(row.at(6)), ValueOf<uint32_t>(row.at(7)));
    EXPECT_EQ(target, wanted) << row.at(0) << ' ' << row.at(6);
  }
}

}  // namespace
}  // namespace corvane
