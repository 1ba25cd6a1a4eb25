#include "simulator/engines/load_network.h"

#include <cfenv>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "simulator/control/environment.h"
#include "simulator/engines/trial.h"
#include "simulator/forever.h"
#include "simulator/interface/report.h"

namespace rknn_sim {

namespace {

// Networks run in parallel, but none runs while one is loaded: the child process of the trial must
// not inherit a lock of the engine's that another thread holds.
Forever<std::shared_mutex> loading_or_running;

// An NPU does not know the calling thread's mode. Invoke restores it, also where an engine changes
// it: ONNX Runtime's first session switches flush-to-zero off.
void ComputeInDefaultMode() { std::fesetenv(FE_DFL_ENV); }

struct Loading {
  const OnnxFile* file;
  const OnnxEngine* engine;
  std::unique_ptr<OnnxNetwork> network;
};

bool LoadNow(void* subject, String* why) {
  auto& loading = *static_cast<Loading*>(subject);
  loading.network = loading.engine->load(*loading.file, why);
  return loading.network != nullptr;
}

}  // namespace

bool RunFirst(const OnnxGraph& graph, OnnxNetwork* network, String* why) {
  const auto run_on = [&](float number, String* reason) {
    Vector<Vector<float>> numbers;
    for (const OnnxTensor& input : graph.inputs) {
      std::size_t elements = 1;
      for (const int64_t dim : input.dims) elements *= static_cast<std::size_t>(dim);
      numbers.emplace_back(elements, number);
    }
    return network->Run(numbers, reason);
  };
  String ignored;
  return run_on(0.0f, why) || run_on(1.0f, &ignored);
}

bool FindEngine(OnnxEngine* engine, String* why) {
  switch (EngineWanted()) {
    case WantedEngine::kOpenCv:
      return FindOpenCv(engine, why);
    case WantedEngine::kOnnxRuntime:
      return FindOnnxRuntime(engine, why);
    case WantedEngine::kAny:
      break;
  }
  String no_onnxruntime, no_opencv;
  if (FindOnnxRuntime(engine, &no_onnxruntime) || FindOpenCv(engine, &no_opencv)) return true;
  return Refuse(why, "no engine for ONNX models: %s; %s", no_opencv.c_str(),
                no_onnxruntime.c_str());
}

std::unique_ptr<LoadedNetwork> LoadedNetwork::Load(const OnnxFile& file, String* why) {
  OnnxEngine engine;
  if (!FindEngine(&engine, why)) return nullptr;
  std::unique_ptr<LoadedNetwork> loaded(new LoadedNetwork(std::move(engine)));
  const std::unique_lock<std::shared_mutex> lock(*loading_or_running);
  ComputeInDefaultMode();
  // Engines trust a model's operations and attributes: with some they read past their buffers,
  // divide by zero or ask for all memory.
  Loading loading = {&file, &loaded->engine_, nullptr};
  String reason;
  switch (TryInChild(LoadNow, &loading, &reason)) {
    case Trial::kEnded:
      *why = loaded->engine_.name + "'s import of this ONNX model " + reason;
      return nullptr;
    case Trial::kRefused:
      *why = reason;
      return nullptr;
    case Trial::kDone:
      break;
  }
  if (!LoadNow(&loading, why)) return nullptr;
  loaded->network_ = std::move(loading.network);
  return loaded;
}

LoadedNetwork::~LoadedNetwork() {
  if (network_ == nullptr) return;  // not loaded: the lock is Load's
  const std::shared_lock<std::shared_mutex> lock(*loading_or_running);
  network_.reset();
}

bool LoadedNetwork::Run(const Vector<Vector<float>>& inputs, String* why) {
  const std::shared_lock<std::shared_mutex> lock(*loading_or_running);
  ComputeInDefaultMode();
  return network_->Run(inputs, why);
}

}  // namespace rknn_sim
