#include "simulator/onnx/types.h"

namespace rknn_sim {

bool NativeType(uint64_t onnx_type, rknn_tensor_type* type) {
  switch (onnx_type) {
    case kOnnxFloat:
      *type = RKNN_TENSOR_FLOAT32;
      return true;
    case kOnnxFloat16:
      *type = RKNN_TENSOR_FLOAT16;
      return true;
    case kOnnxInt8:
      *type = RKNN_TENSOR_INT8;
      return true;
    case kOnnxUint8:
      *type = RKNN_TENSOR_UINT8;
      return true;
    case kOnnxInt16:
      *type = RKNN_TENSOR_INT16;
      return true;
    default:
      return false;
  }
}

}  // namespace rknn_sim
