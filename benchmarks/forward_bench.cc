// Compares the public call, Forward, with its kernel alone (into a buffer that is reused); the
// difference is what the call adds: allocations, records, the lock, the runtime. Also measures the
// peers, and the time for writing the input alone. The simulated runtime returns one constant
// output without its checks of the model. Names are forward/kind/size/who.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "benchmarks/input_peers.h"
#include "benchmarks/simulated_backend.h"
#include "corvane/backend.h"
#include "src/rknn/input_encoder.h"

namespace {

using namespace corvane_bench;  // NOLINT(google-build-using-namespace)

constexpr Size kSizes[] = {{32, 32},   {112, 112},   {224, 224},  {320, 320},
                           {640, 640}, {1920, 1080}, {2560, 1440}};

template <class Element>
struct Operations {
  const char* name;
  corvane::RKNNInputType kind;
  bool has_scales;
  Operation<Element> kernel;
};

template <class Element>
void RegisterAll(Size size, const Operations<Element>& operations) {
  const std::string prefix = std::string("forward/") + operations.name + '/' +
                             std::to_string(size.width) + 'x' + std::to_string(size.height) + '/';
  const auto kind = operations.kind;
  const bool has_scales = operations.has_scales;
  benchmark::RegisterBenchmark((prefix + "forward").c_str(), [=](benchmark::State& state) {
    const Work<Element> work(size, 3);
    const auto backend = MakeBackend(size, kind, has_scales);
    std::vector<corvane::OutputTensor> outputs;
    for (auto unused : state) {
      (void)unused;
      backend->Forward(work.pixels.get(), corvane::PIXEL_RGB, size.width, size.height, &outputs);
      benchmark::ClobberMemory();
    }
    if (outputs.empty() || outputs[0].data[0] != 0.5F) state.SkipWithError("the model did not run");
  });
  Register<Element>(prefix + "kernel", size, 3, operations.kernel);
  RegisterPeers<Element>(prefix, size, 3);
}

template <class Element, class Encode>
Operation<Element> Kernel(Encode encode, const float* scales = kScales) {
  return [=](Work<Element>& work) { encode(work.image, {kMeans, scales}, work.planes.get()); };
}

void EncodeFixedPoint(const corvane::InputImage& image, const corvane::Normalisation& normalisation,
                      int16_t* planes) {
  corvane::EncodeDfp16(image, normalisation, 7, planes);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  UseOneThread();
  for (const Size size : kSizes) {
    RegisterAll<float>(size, {"float32", corvane::RKNN_INPUT_FLOAT32, true,
                              Kernel<float>(corvane::EncodeFloat32)});
    RegisterAll<uint16_t>(size, {"float16", corvane::RKNN_INPUT_FLOAT16, true,
                                 Kernel<uint16_t>(corvane::EncodeFloat16)});
    RegisterAll<int16_t>(
        size, {"int16", corvane::RKNN_INPUT_INT16, true, Kernel<int16_t>(EncodeFixedPoint)});
    RegisterAll<int16_t>(size, {"int16_integers", corvane::RKNN_INPUT_INT16, false,
                                Kernel<int16_t>(EncodeFixedPoint, nullptr)});
  }
  benchmark::RunSpecifiedBenchmarks();
}
