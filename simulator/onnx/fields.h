// Field numbers of the ONNX messages that the simulator and the tool read.
#ifndef CORVANE_SIMULATOR_ONNX_FIELDS_H_
#define CORVANE_SIMULATOR_ONNX_FIELDS_H_

#include <cstdint>

namespace rknn_sim {

namespace model_field {
constexpr uint64_t kIrVersion = 1, kProducer = 2, kGraph = 7, kOpset = 8, kMetadata = 14,
                   kTraining = 20, kFunction = 25;
}
namespace graph_field {
constexpr uint64_t kNode = 1, kInitializer = 5, kInput = 11, kOutput = 12, kSparseInitializer = 15;
}
namespace function_field {
constexpr uint64_t kNode = 7, kDefault = 11;
}
namespace node_field {
constexpr uint64_t kInput = 1, kOutput = 2, kName = 3, kOp = 4, kAttribute = 5, kDomain = 7;
}
namespace attribute_field {
constexpr uint64_t kName = 1, kF = 2, kI = 3, kS = 4, kTensor = 5, kGraph = 6, kInts = 8,
                   kTensors = 10, kGraphs = 11, kType = 20, kSparseTensor = 22, kSparseTensors = 23;
}
namespace tensor_field {
constexpr uint64_t kDims = 1, kDataType = 2, kFloatData = 4, kInt32Data = 5, kStringData = 6,
                   kInt64Data = 7, kName = 8, kRawData = 9, kDoubleData = 10, kUint64Data = 11,
                   kExternalData = 13, kDataLocation = 14;
}
// ValueInfoProto, and what it nests: TypeProto, its tensor, its shape, a dimension.
namespace value_field {
constexpr uint64_t kName = 1, kType = 2, kTensorType = 1, kElementType = 1, kShape = 2, kDim = 1,
                   kDimValue = 1;
}
namespace opset_field {
constexpr uint64_t kDomain = 1, kVersion = 2;
}
namespace entry_field {  // a metadata property
constexpr uint64_t kKey = 1, kValue = 2;
}

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_FIELDS_H_
