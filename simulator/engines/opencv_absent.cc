#include "simulator/engines/network.h"

namespace rknn_sim {

OnnxNetworkPointer LoadOnnxNetwork(const uint8_t*, std::size_t, const OnnxGraph&, String* why) {
  *why =
      "the model is ONNX, which this simulator was built without; wanted one built where OpenCV's "
      "dnn module is (Debian: libopencv-dnn-dev)";
  return nullptr;
}

}  // namespace rknn_sim
