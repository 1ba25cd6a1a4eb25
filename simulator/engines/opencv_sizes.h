// What OpenCV computes otherwise than ONNX says, where only the sizes of the values tell.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_SIZES_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_SIZES_H_

#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// Of one operation, as OpenCV has them, outermost first; empty where they are not known.
struct OperationSizes {
  Vector<Vector<int64_t>> inputs;
  Vector<int64_t> output;
};

// Null where nothing is wrong.
const char* SizeProblem(const OnnxNodes& nodes, const OnnxNode& node, const OperationSizes& sizes);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_SIZES_H_
