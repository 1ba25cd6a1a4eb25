// The encoders with every usable set of loops, beside their peers and beside only writing the
// output: with memset, which has the widest stores, and with a plain loop of stores. Names are
// operation/size/who.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "benchmarks/input_peers.h"
#include "src/rknn/encode_kernels.h"

namespace {

using namespace corvane_bench;  // NOLINT(google-build-using-namespace)

constexpr Size kSizes[] = {{112, 112}, {224, 224}, {320, 320}, {640, 640}, {1920, 1080}};

template <class Element>
void RegisterAll(const char* operation, Size size, int channels,
                 std::function<void(const corvane::EncodeKernels&, Work<Element>&)> encode) {
  const std::string name = std::string(operation) + '/' + std::to_string(size.width) + 'x' +
                           std::to_string(size.height) + 'x' + std::to_string(channels) + '/';
  for (const corvane::EncodeKernels* const* set = corvane::UsableKernels(); *set != nullptr;
       ++set) {
    Register<Element>(name + (*set)->name, size, channels,
                      [=](Work<Element>& work) { encode(**set, work); });
  }
  Register<Element>(name + "fill_only", size, channels, [](Work<Element>& work) {
    std::fill_n(work.planes.get(), work.count, Element{1});
  });
  RegisterPeers<Element>(name, size, channels);
}

void RegisterSize(Size size, int channels) {
  using corvane::EncodeKernels;
  RegisterAll<float>("float32", size, channels,
                     [](const EncodeKernels& kernels, Work<float>& work) {
                       EncodeFloat32(kernels, work.image, {kMeans, kScales}, work.planes.get());
                     });
  RegisterAll<uint16_t>("float16", size, channels,
                        [](const EncodeKernels& kernels, Work<uint16_t>& work) {
                          EncodeFloat16(kernels, work.image, {kMeans, kScales}, work.planes.get());
                        });
  RegisterAll<int16_t>("dfp16", size, channels,
                       [](const EncodeKernels& kernels, Work<int16_t>& work) {
                         EncodeDfp16(kernels, work.image, {kMeans, kScales}, 14, work.planes.get());
                       });
  if (channels != 3) return;
  RegisterAll<int16_t>("dfp16_integers", size, channels,
                       [](const EncodeKernels& kernels, Work<int16_t>& work) {
                         EncodeDfp16(kernels, work.image, {kMeans, nullptr}, 7, work.planes.get());
                       });
}

}  // namespace

int main(int argc, char** argv) {
  UseOneThread();
  for (const Size size : kSizes) RegisterSize(size, 3);
  RegisterSize({112, 112}, 1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
