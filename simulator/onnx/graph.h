// Reads what the runtime's interface needs from an ONNX file, and checks what the engine's importer
// trusts. It needs no library.
#ifndef CORVANE_SIMULATOR_ONNX_GRAPH_H_
#define CORVANE_SIMULATOR_ONNX_GRAPH_H_

#include <string_view>

#include "malloc_allocator.h"
#include "simulator/onnx/types.h"

namespace rknn_sim {

constexpr int64_t kOpenDim = -1;  // a size that the file leaves open or gives a name only

struct OnnxTensor {
  String name;
  uint64_t type = 0;
  bool has_shape = false;
  Vector<int64_t> dims;  // outermost first, as ONNX has them

  // An open batch is one image.
  void FixBatch() {
    if (!dims.empty() && (dims[0] == kOpenDim || dims[0] == 0)) dims[0] = 1;
  }
};

struct OnnxProperty {
  String key;
  String value;
};

struct OnnxGraph {
  Vector<OnnxTensor> inputs;  // those that are not constants of the file
  Vector<OnnxTensor> outputs;
  Vector<OnnxProperty> properties;
};

// Whether the bytes look like an ONNX model, which may be damaged.
bool IsOnnx(const uint8_t* bytes, std::size_t size);

// False, with what is wrong, for bytes that are not a well-formed model. Well-formed means: every
// message that is read keeps its limits; one graph; every constant, also those inside nodes and
// subgraphs, holds exactly the elements that its shape promises, in the field that belongs to its
// type, in this file. It does not mean that the operations make sense: that is the importer's part.
bool ReadOnnx(const uint8_t* bytes, std::size_t size, OnnxGraph* graph, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_GRAPH_H_
