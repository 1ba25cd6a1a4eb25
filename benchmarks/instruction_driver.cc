// Runs one case a given number of times, for benchmarks/count_instructions, which takes the
// difference of two runs: instruction_driver CASE REPETITIONS. Without arguments it prints the
// cases, one a line: pixels handled by one repetition, a tab, the name.
//
// A further kernel is one more line in Cases().
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/warp_cases.h"
#include "src/rknn/encode_kernels.h"

namespace {

struct Case {
  std::string name;
  std::size_t pixels;
  std::function<void()> run;
};

constexpr std::size_t kPixels = 112 * 112;

template <class Element>
Element* Planes() {
  static std::vector<Element> planes(3 * kPixels);
  return planes.data();
}

void AddEncoderCases(std::vector<Case>* cases) {
  static const std::vector<uint8_t> pixels(3 * kPixels, 77);
  static const float means[] = {127.5F, 127.5F, 127.5F};
  static const float odd_means[] = {123.675F, 116.28F, 103.53F};  // no multiples of 1/256
  static const float scales[] = {1 / 127.5F, 1 / 127.5F, 1 / 127.5F};
  for (const corvane::EncodeKernels* const* set = corvane::UsableKernels(); *set != nullptr;
       ++set) {
    const corvane::EncodeKernels& kernels = **set;
    for (const int channels : {3, 1}) {
      const corvane::InputImage image = {pixels.data(), kPixels, channels, false};
      const auto add = [&](const char* what, std::function<void()> run) {
        cases->push_back({std::string(kernels.name) + ' ' + what + ", " + std::to_string(channels) +
                              (channels == 1 ? " channel" : " channels"),
                          kPixels, std::move(run)});
      };
      for (const float* mean : {means, odd_means}) {
        const std::string other = mean == odd_means ? " odd means" : "";
        const corvane::Normalisation norm = {mean, scales};
        add(("float32" + other).c_str(),
            [=, &kernels] { EncodeFloat32(kernels, image, norm, Planes<float>()); });
        add(("float16" + other).c_str(),
            [=, &kernels] { EncodeFloat16(kernels, image, norm, Planes<uint16_t>()); });
        add(("dfp16 float rule" + other).c_str(),
            [=, &kernels] { EncodeDfp16(kernels, image, norm, 14, Planes<int16_t>()); });
      }
      if (channels == 3) {
        add("dfp16 integer rule", [=, &kernels] {
          EncodeDfp16(kernels, image, {means, nullptr}, 7, Planes<int16_t>());
        });
      }
    }
  }
}

// What is left over of the blocks of 16 pixels, and what a call costs by itself: the same for each
// pixel of the neighbouring sizes, where nothing is wrong.
void AddSizes(std::vector<Case>* cases) {
  static const std::vector<uint8_t> pixels(3 * kPixels, 77);
  static const float means[] = {127.5F, 127.5F, 127.5F};
  static const float scales[] = {1 / 127.5F, 1 / 127.5F, 1 / 127.5F};
  const corvane::Normalisation norm = {means, scales};
  for (const std::size_t side : {112, 100, 99, 96, 32, 31, 24, 20, 19, 17, 16}) {
    const corvane::InputImage image = {pixels.data(), side * side, 3, false};
    const auto add = [&](const char* what, std::function<void()> run) {
      const std::string sides = std::to_string(side) + 'x' + std::to_string(side);
      cases->push_back({std::string("size ") + what + ' ' + sides, side * side, std::move(run)});
    };
    add("float32", [=] { EncodeFloat32(image, norm, Planes<float>()); });
    add("float16", [=] { EncodeFloat16(image, norm, Planes<uint16_t>()); });
    add("dfp16", [=] { EncodeDfp16(image, norm, 14, Planes<int16_t>()); });
    const corvane_bench::WarpCase face = {
        "", static_cast<int>(side), static_cast<int>(side), 15, 960, 540};
    add("warp", [=] {
      static const std::vector<uint8_t> source = corvane_bench::WarpSource();
      static std::vector<uint8_t> target(3 * kPixels);
      corvane_bench::RunWarp(face, source.data(), target.data());
    });
  }
}

void AddWarpCases(std::vector<Case>* cases) {
  for (const corvane_bench::WarpCase& one : corvane_bench::kWarpCases) {
    static const std::vector<uint8_t> source = corvane_bench::WarpSource();
    const auto pixels = static_cast<std::size_t>(one.width) * static_cast<std::size_t>(one.height);
    const auto target = std::make_shared<std::vector<uint8_t>>(3 * pixels);
    cases->push_back({std::string("warp ") + one.name, pixels,
                      [=, &one] { corvane_bench::RunWarp(one, source.data(), target->data()); }});
  }
}

std::vector<Case> Cases() {
  std::vector<Case> cases;
  AddEncoderCases(&cases);
  AddWarpCases(&cases);
  AddSizes(&cases);
  return cases;
}

}  // namespace

int main(int argc, char** argv) {
  for (const Case& one : Cases()) {
    if (argc != 3) {
      std::printf("%zu\t%s\n", one.pixels, one.name.c_str());
    } else if (one.name == argv[1]) {
      for (long i = std::strtol(argv[2], nullptr, 10); i > 0; --i) one.run();
      return 0;
    }
  }
  return argc == 3 ? 1 : 0;
}
