// Convolutions and pools as OpenCV computes them.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_WINDOWS_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_WINDOWS_H_

#include "simulator/onnx/nodes.h"

namespace rknn_sim {

// What OpenCV computes otherwise than ONNX says, or past its buffers, with a cure. Null for other
// operations, and where nothing is wrong.
const char* WindowProblem(const OnnxNode& node);

bool IsPaddedAverage(const OnnxNode& node);
bool CountsPadding(const OnnxNode& node);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_WINDOWS_H_
