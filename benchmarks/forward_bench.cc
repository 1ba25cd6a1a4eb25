// The whole Forward call beside its kernel alone (into a buffer that is reused), to see what the
// call adds: allocations, records, the lock, the runtime's entry points. The simulated runtime
// returns one constant output and is told to spare its checks. Names are forward/kind/size/who.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "control.h"
#include "corvane/backend.h"
#include "src/rknn/input_encoder.h"

namespace {

struct Size {
  uint32_t width, height;
};
constexpr Size kSizes[] = {{32, 32},   {112, 112},   {320, 320},
                           {640, 640}, {1920, 1080}, {2560, 1440}};
const std::vector<float> kMeans = {127.5F, 127.5F, 127.5F},
                         kScales = {1 / 128.0F, 1 / 128.0F, 1 / 128.0F};

std::unique_ptr<corvane::Backend_<float>> MakeBackend(Size size, corvane::RKNNInputType kind) {
  rknn_sim::Reset();
  rknn_sim::Model model;
  rknn_tensor_type native = kind == corvane::RKNN_INPUT_FLOAT16 ? RKNN_TENSOR_FLOAT16
                            : kind == corvane::RKNN_INPUT_INT16 ? RKNN_TENSOR_INT16
                                                                : RKNN_TENSOR_FLOAT32;
  model.inputs.push_back(rknn_sim::MakeTensor({size.width, size.height, 3, 1}, native, 14));
  model.outputs.push_back(rknn_sim::MakeTensor({128}));
  model.outputs[0].values = {0.5F};
  rknn_sim::SetModel(model);
  rknn_sim::Relax(rknn_sim::Check::kModelBytes);
  const char path[] = "/dev/shm/corvane_forward_bench.bin";
  std::FILE* file = std::fopen(path, "wb");
  if (file != nullptr) {
    std::fputs("13 bytes ahead and a model", file);
    std::fclose(file);
  }
  std::fflush(stdout);
  const int saved_stdout =
      dup(STDOUT_FILENO);  // the table goes there, "loading RKNN model." must not
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  auto backend = corvane::InitBackend(path, "", {}, kMeans, kScales, kind);
  dup2(saved_stdout, STDOUT_FILENO);
  close(saved_stdout);
  close(nowhere);
  std::remove(path);
  return backend;
}

template <class Element, class Encode>
void Register(const char* name, Size size, corvane::RKNNInputType kind, Encode encode) {
  const std::string prefix = std::string("forward/") + name + '/' + std::to_string(size.width) +
                             'x' + std::to_string(size.height) + '/';
  const std::size_t pixel_count = std::size_t{size.width} * size.height;
  benchmark::RegisterBenchmark((prefix + "kernel").c_str(), [=](benchmark::State& state) {
    const std::vector<uint8_t> image(3 * pixel_count, 99);
    std::vector<Element> planes(3 * pixel_count);
    for (auto unused : state) {
      (void)unused;
      encode({image.data(), pixel_count, 3, false}, {kMeans.data(), kScales.data()}, planes.data());
      benchmark::ClobberMemory();
    }
  });
  benchmark::RegisterBenchmark((prefix + "forward").c_str(), [=](benchmark::State& state) {
    const std::vector<uint8_t> image(3 * pixel_count, 99);
    const auto backend = MakeBackend(size, kind);
    std::vector<corvane::OutputTensor> outputs;
    for (auto unused : state) {
      (void)unused;
      backend->Forward(image.data(), corvane::PIXEL_RGB, static_cast<int>(size.width),
                       static_cast<int>(size.height), &outputs);
      benchmark::ClobberMemory();
    }
    if (outputs.empty() || outputs[0].data[0] != 0.5F) state.SkipWithError("the model did not run");
  });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (const Size size : kSizes) {
    Register<float>("float32", size, corvane::RKNN_INPUT_FLOAT32, corvane::EncodeFloat32);
    Register<uint16_t>("float16", size, corvane::RKNN_INPUT_FLOAT16, corvane::EncodeFloat16);
    Register<int16_t>("int16", size, corvane::RKNN_INPUT_INT16,
                      [](const corvane::InputImage& image, const corvane::Normalisation& norm,
                         int16_t* planes) { corvane::EncodeDfp16(image, norm, 14, planes); });
  }
  benchmark::RunSpecifiedBenchmarks();
}
