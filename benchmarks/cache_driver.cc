// Runs one case once or not at all, from cold caches, for benchmarks/count_misses, which takes the
// difference: cache_driver CASE 0|1. Without arguments it prints the cases, one a line: the least
// number of cache lines that the operation must touch, a tab, the name.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "benchmarks/warp_cases.h"
#include "src/rknn/encode_kernels.h"

namespace {

constexpr std::size_t kLine = 64, kPixels = 640 * 640;

struct Case {
  std::string name;
  std::function<std::size_t()> least_lines;
  std::function<void()> run;
};

// Starts on a line, so that no line is shared with other data.
template <class Element>
Element* Buffer(std::size_t count) {
  alignas(kLine) static Element elements[3 * kPixels];
  return count <= 3 * kPixels ? elements : nullptr;
}

template <class Element>
void AddEncoder(const std::string& name,
                void (*encode)(const corvane::InputImage&, const corvane::Normalisation&, Element*),
                std::vector<Case>* cases) {
  static const float means[] = {127.5F, 127.5F, 127.5F};
  static const float scales[] = {1 / 127.5F, 1 / 127.5F, 1 / 127.5F};
  for (const std::size_t side : {112, 640}) {
    const std::size_t count = 3 * side * side;
    cases->push_back(
        {name + ' ' + std::to_string(side) + 'x' + std::to_string(side),
         [=] { return count * (1 + sizeof(Element)) / kLine; },
         [=] {
           const corvane::InputImage image = {Buffer<uint8_t>(count), side * side, 3, false};
           encode(image, {means, scales}, Buffer<Element>(count));
         }});
  }
}

// Those of the four pixels around each source point, and those of the result.
std::size_t LinesOfWarp(const corvane_bench::WarpCase& one) {
  const corvane_bench::WarpMatrix matrix = corvane_bench::MatrixOf(one);
  std::set<std::size_t> lines;
  for (int y = 0; y < one.height; ++y) {
    for (int x = 0; x < one.width; ++x) {
      const float* const m = matrix.m;
      const auto column = static_cast<std::size_t>(m[0] * x + m[1] * y + m[2]);
      const auto row = static_cast<std::size_t>(m[3] * x + m[4] * y + m[5]);
      for (const std::size_t r : {row, row + 1}) {
        const std::size_t first = 3 * (r * corvane_bench::kSourceWidth + column);
        lines.insert(first / kLine);
        lines.insert((first + 5) / kLine);
      }
    }
  }
  return lines.size() + 3 * static_cast<std::size_t>(one.width * one.height) / kLine;
}

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const int degrees : {0, 15, 90}) {
    const corvane_bench::WarpCase face = {"", 112, 112, static_cast<double>(degrees), 960.3, 540.7};
    cases.push_back({"warp 112x112 by " + std::to_string(degrees) + " degrees",
                     [=] { return LinesOfWarp(face); },
                     [=] {
                       constexpr std::size_t kSource = std::size_t{3} *
                                                       corvane_bench::kSourceWidth *
                                                       corvane_bench::kSourceHeight;
                       alignas(kLine) static uint8_t source[kSource];
                       corvane_bench::RunWarp(face, source, Buffer<uint8_t>(3 * 112 * 112));
                     }});
  }
  AddEncoder<float>("float32", corvane::EncodeFloat32, &cases);
  AddEncoder<uint16_t>("float16", corvane::EncodeFloat16, &cases);
  AddEncoder<int16_t>(
      "fixed point",
      [](const corvane::InputImage& image, const corvane::Normalisation& norm, int16_t* planes) {
        corvane::EncodeDfp16(image, norm, 14, planes);
      },
      &cases);
  return cases;
}

}  // namespace

int main(int argc, char** argv) {
  for (const Case& one : Cases()) {
    if (argc != 3) {
      std::printf("%zu\t%s\n", one.least_lines(), one.name.c_str());
    } else if (one.name == argv[1]) {
      if (std::strcmp(argv[2], "1") == 0) one.run();
      return 0;
    }
  }
  return argc == 3 ? 1 : 0;
}
