// A backend on the simulated runtime, whose network returns one constant descriptor.
#ifndef CORVANE_BENCHMARKS_SIMULATED_BACKEND_H_
#define CORVANE_BENCHMARKS_SIMULATED_BACKEND_H_

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "benchmarks/input_peers.h"
#include "control.h"
#include "corvane/backend.h"

namespace corvane_bench {

// What was ordered of the simulator stays.
inline std::unique_ptr<corvane::Backend_<float>> MakeBackend(Size size, corvane::RKNNInputType kind,
                                                             bool has_scales) {
  rknn_sim::Model model;
  rknn_tensor_type native = kind == corvane::RKNN_INPUT_FLOAT16 ? RKNN_TENSOR_FLOAT16
                            : kind == corvane::RKNN_INPUT_INT16 ? RKNN_TENSOR_INT16
                                                                : RKNN_TENSOR_FLOAT32;
  model.inputs.push_back(rknn_sim::MakeTensor(
      {static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height), 3, 1}, native, 7));
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
  const int saved_stdout = dup(STDOUT_FILENO);  // keeps "loading RKNN model." out of the results
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  auto backend = corvane::InitBackend(
      path, "", {}, {kMeans, kMeans + 3},
      has_scales ? std::vector<float>(kScales, kScales + 3) : std::vector<float>(), kind);
  dup2(saved_stdout, STDOUT_FILENO);
  close(saved_stdout);
  close(nowhere);
  std::remove(path);
  return backend;
}

}  // namespace corvane_bench

#endif  // CORVANE_BENCHMARKS_SIMULATED_BACKEND_H_
