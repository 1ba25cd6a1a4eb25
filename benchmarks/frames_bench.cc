// Whole frames: from a 1920 x 1080 picture and five landmarks to the descriptor of a network that
// takes so many milliseconds of an NPU, which runs one network at a time. One thread with one
// backend, and two that take turns: while the NPU works for one, the other prepares its frame.
// Names are frames/MILLISECONDS/backends; the CPU time is that of the process, the network apart.
#include <benchmark/benchmark.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/simulated_backend.h"
#include "benchmarks/warp_cases.h"
#include "corvane/align.h"

namespace {

using namespace corvane_bench;  // NOLINT(google-build-using-namespace)

constexpr int kFramesOfAThread = 20, kSide = 112;
// A face of some 300 pixels, turned by 15 degrees.
constexpr float kLandmarks[10] = {862, 500, 1008, 539, 921, 611, 845, 664, 961, 695};

void Describe(corvane::Backend_<float>* backend, const std::vector<uint8_t>& picture, int frames) {
  std::vector<uint8_t> face(3 * kSide * kSide);
  std::vector<corvane::OutputTensor> outputs;
  for (int i = 0; i < frames; ++i) {
    float matrix[6];
    corvane::AlignFace112(kLandmarks, matrix);
    corvane::warpaffine_bilinear_c3(picture.data(), kSourceWidth, kSourceHeight, face.data(), kSide,
                                    kSide, matrix, 0, 0);
    backend->Forward(face.data(), corvane::PIXEL_RGB, kSide, kSide, &outputs);
    benchmark::DoNotOptimize(outputs.data());
  }
}

void Frames(benchmark::State& state, std::chrono::microseconds network, int threads) {
  static std::mutex npu;
  static const std::vector<uint8_t> picture = WarpSource();
  rknn_sim::Reset();
  rknn_sim::HookAt(rknn_sim::Function::kRun, rknn_sim::kEveryCall, [=](const rknn_sim::Call&) {
    const std::lock_guard<std::mutex> only_one(npu);
    std::this_thread::sleep_for(network);
  });
  std::vector<std::unique_ptr<corvane::Backend_<float>>> backends;
  for (int i = 0; i < threads; ++i) {
    backends.push_back(MakeBackend({kSide, kSide}, corvane::RKNN_INPUT_FLOAT32, true));
  }
  for (auto unused : state) {
    (void)unused;
    std::vector<std::thread> workers;
    for (const auto& backend : backends) {
      workers.emplace_back(Describe, backend.get(), std::cref(picture), kFramesOfAThread);
    }
    for (std::thread& worker : workers) worker.join();
  }
  state.SetItemsProcessed(state.iterations() * kFramesOfAThread * threads);
}

}  // namespace

int main(int argc, char** argv) {
  for (const int milliseconds : {1, 5, 20}) {
    for (const int threads : {1, 2}) {
      const std::string name =
          "frames/" + std::to_string(milliseconds) + "ms/" + std::to_string(threads);
      benchmark::RegisterBenchmark(name.c_str(), Frames, std::chrono::milliseconds(milliseconds),
                                   threads)
          ->MeasureProcessCPUTime()
          ->UseRealTime();
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
