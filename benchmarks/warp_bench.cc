// The affine warp beside OpenCV's warpAffine on one thread, and beside only writing the result.
// Names are warp/case/who.
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
  }
  benchmark::RunSpecifiedBenchmarks();
}
