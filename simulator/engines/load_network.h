// Loads an ONNX file on the engine that is wanted, in a child process first.
#ifndef CORVANE_SIMULATOR_ENGINES_LOAD_NETWORK_H_
#define CORVANE_SIMULATOR_ENGINES_LOAD_NETWORK_H_

#include "simulator/engines/network.h"

namespace rknn_sim {

// The engine that CORVANE_SIM_ENGINE names; else ONNX Runtime where the dynamic loader finds it;
// else OpenCV. False, with what to install, where there is none.
bool FindEngine(OnnxEngine* engine, String* why);

// A network that any thread may run and destroy. It computes in the default floating-point mode,
// whatever the calling thread's is.
class LoadedNetwork {
 public:
  // Null with what is wrong; throws std::bad_alloc.
  static std::unique_ptr<LoadedNetwork> Load(const OnnxFile& file, String* why);
  ~LoadedNetwork();
  LoadedNetwork(const LoadedNetwork&) = delete;
  LoadedNetwork& operator=(const LoadedNetwork&) = delete;

  const OnnxEngine& engine() const { return engine_; }
  const OnnxNetwork& outputs() const { return *network_; }
  bool Run(const Vector<Vector<float>>& inputs, String* why);

 private:
  explicit LoadedNetwork(OnnxEngine engine) : engine_(std::move(engine)) {}

  OnnxEngine engine_;
  std::unique_ptr<OnnxNetwork> network_;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_LOAD_NETWORK_H_
