// The engine that computes an ONNX graph. OpenCV's dnn module is one; a build without it has none.
#ifndef CORVANE_SIMULATOR_ENGINES_NETWORK_H_
#define CORVANE_SIMULATOR_ENGINES_NETWORK_H_

#include <memory>

#include "simulator/onnx/graph.h"

namespace rknn_sim {

class OnnxNetwork {
 public:
  virtual ~OnnxNetwork() = default;

  // inputs[i]: the numbers of the graph's input i. False with what is wrong; throws std::bad_alloc.
  virtual bool Run(const Vector<Vector<float>>& inputs, String* why) = 0;

  // Of the last run.
  virtual Vector<int64_t> OutputDims(std::size_t i) const = 0;  // outermost first
  virtual std::size_t OutputElements(std::size_t i) const = 0;
  virtual void CopyOutput(std::size_t i, float* to) const = 0;
};

using OnnxNetworkPointer = std::unique_ptr<OnnxNetwork>;

// A network that has run once, on zeros. Null with what is wrong; throws std::bad_alloc. The bytes
// are ReadOnnx's, the graph's inputs have fixed sizes; the bytes are not needed afterwards.
OnnxNetworkPointer LoadOnnxNetwork(const uint8_t* bytes, std::size_t size, const OnnxGraph& graph,
                                   String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_NETWORK_H_
