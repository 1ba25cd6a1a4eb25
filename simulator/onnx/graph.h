// Reads what the runtime's interface needs from an ONNX file, and checks what the engine's importer
// trusts. It needs no library.
#ifndef CORVANE_SIMULATOR_ONNX_GRAPH_H_
#define CORVANE_SIMULATOR_ONNX_GRAPH_H_

#include <string_view>

#include "malloc_allocator.h"
#include "rknn_api.h"

namespace rknn_sim {

// ONNX's own numbers for the types of elements.
constexpr uint64_t kOnnxFloat = 1, kOnnxUint8 = 2, kOnnxInt8 = 3, kOnnxUint16 = 4, kOnnxInt16 = 5,
                   kOnnxInt32 = 6, kOnnxInt64 = 7, kOnnxBool = 9, kOnnxFloat16 = 10,
                   kOnnxDouble = 11, kOnnxUint32 = 12, kOnnxUint64 = 13, kOnnxBfloat16 = 16;

// False for a type that the runtime does not have.
bool NativeType(uint64_t onnx_type, rknn_tensor_type* type);

constexpr int64_t kOpenDim = -1;  // a size that the file leaves open or gives a name only

struct OnnxTensor {
  String name;
  uint64_t type = 0;
  bool has_shape = false;
  Vector<int64_t> dims;  // outermost first, as ONNX has them
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
