// The affine warp beside OpenCV's warpAffine and pixman on one thread, and beside only writing the
// result. pixman has no such format of three bytes on every machine: it works on four, from an
// image that was widened before. Names are warp/case/who.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "benchmarks/warp_cases.h"

#if defined(CORVANE_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#if defined(CORVANE_BENCH_PIXMAN)
#include <pixman.h>
#endif

namespace {

using corvane_bench::WarpCase;

void Register(const WarpCase& one, const char* who,
              std::function<void(const uint8_t* source, uint8_t* target)> run) {
  const std::string name = std::string("warp/") + one.name + '/' + who;
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    static const std::vector<uint8_t> source = corvane_bench::WarpSource();
    std::vector<uint8_t> target(static_cast<std::size_t>(3 * one.width * one.height));
    for (auto unused : state) {
      (void)unused;
      run(source.data(), target.data());
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(target.size()));
  });
}

#if defined(CORVANE_BENCH_OPENCV)
void WarpByOpenCv(const WarpCase& one, const uint8_t* source, uint8_t* target) {
  const cv::Mat src(corvane_bench::kSourceHeight, corvane_bench::kSourceWidth, CV_8UC3,
                    const_cast<uint8_t*>(source));
  cv::Mat dst(one.height, one.width, CV_8UC3, target);
  corvane_bench::WarpMatrix matrix = corvane_bench::MatrixOf(one);
  cv::warpAffine(src, dst, cv::Mat(2, 3, CV_32F, matrix.m), dst.size(),
                 cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT);
}
#endif

#if defined(CORVANE_BENCH_PIXMAN)
// The source with four bytes for a pixel.
std::vector<uint32_t> WidenedSource() {
  const std::vector<uint8_t> source = corvane_bench::WarpSource();
  std::vector<uint32_t> pixels(source.size() / 3);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    pixels[i] = source[3 * i] | source[3 * i + 1] << 8 | source[3 * i + 2] << 16;
  }
  return pixels;
}

// target has room for four bytes for a pixel.
void WarpByPixman(const WarpCase& one, uint32_t* target) {
  static std::vector<uint32_t> pixels = WidenedSource();
  pixman_image_t* const from = pixman_image_create_bits(
      PIXMAN_x8r8g8b8, corvane_bench::kSourceWidth, corvane_bench::kSourceHeight, pixels.data(),
      4 * corvane_bench::kSourceWidth);
  pixman_image_t* const to =
      pixman_image_create_bits(PIXMAN_x8r8g8b8, one.width, one.height, target, 4 * one.width);
  const corvane_bench::WarpMatrix matrix = corvane_bench::MatrixOf(one);
  pixman_transform_t transform = {};
  for (int i = 0; i < 6; ++i) transform.matrix[i / 3][i % 3] = pixman_double_to_fixed(matrix.m[i]);
  transform.matrix[2][2] = pixman_fixed_1;
  pixman_image_set_transform(from, &transform);
  pixman_image_set_filter(from, PIXMAN_FILTER_BILINEAR, nullptr, 0);
  pixman_image_composite32(PIXMAN_OP_SRC, from, nullptr, to, 0, 0, 0, 0, 0, 0, one.width,
                           one.height);
  pixman_image_unref(to);
  pixman_image_unref(from);
}
#endif

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (const WarpCase& one : corvane_bench::kWarpCases) {
    Register(one, "corvane", [one](const uint8_t* source, uint8_t* target) {
      corvane_bench::RunWarp(one, source, target);
    });
    Register(one, "write_only", [one](const uint8_t*, uint8_t* target) {
      std::memset(target, 1, static_cast<std::size_t>(3 * one.width * one.height));
    });
#if defined(CORVANE_BENCH_OPENCV)
    cv::setNumThreads(1);
    Register(one, "opencv",
             [one](const uint8_t* source, uint8_t* target) { WarpByOpenCv(one, source, target); });
#endif
#if defined(CORVANE_BENCH_PIXMAN)
    const auto room = std::make_shared<std::vector<uint32_t>>(one.width * one.height);
    Register(one, "pixman", [=](const uint8_t*, uint8_t*) { WarpByPixman(one, room->data()); });
#endif
  }
  benchmark::RunSpecifiedBenchmarks();
}
