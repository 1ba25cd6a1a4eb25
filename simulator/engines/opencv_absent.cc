#include "simulator/engines/network.h"

namespace rknn_sim {

bool FindOpenCv(OnnxEngine*, String* why) {
  *why = "this simulator was built without OpenCV's dnn module (Debian: libopencv-dnn-dev)";
  return false;
}

}  // namespace rknn_sim
