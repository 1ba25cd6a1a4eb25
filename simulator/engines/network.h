// An ONNX graph that an engine has loaded, whichever engine it is.
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

// An ONNX file that ReadOnnx has accepted; its inputs have fixed sizes.
struct OnnxFile {
  std::string_view bytes;
  const OnnxGraph* graph;
};

// A library that loads and runs ONNX graphs.
struct OnnxEngine {
  String name;  // with the version: "OpenCV 4.6.0"
  // It computes wrong sizes, instead of none, where it does not do what ONNX says.
  bool may_be_wrong;
  // A network that has run once, by RunFirst. Null with what is wrong; throws std::bad_alloc. The
  // file's bytes are not needed afterwards.
  std::unique_ptr<OnnxNetwork> (*load)(const OnnxFile& file, String* why);
  // What the engine cannot run, one line for each node, as far as that is known without loading.
  Vector<String> (*problems)(const OnnxFile& file);
};

// Runs a network on zeros, or on ones where it refuses zeros: they may be scales, sizes or
// divisors.
bool RunFirst(const OnnxGraph& graph, OnnxNetwork* network, String* why);

// False, with the reason, where it is not there.
bool FindOpenCv(OnnxEngine* engine, String* why);
bool FindOnnxRuntime(OnnxEngine* engine, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_NETWORK_H_
