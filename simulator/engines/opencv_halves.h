// OpenCV's importer takes no constants in half precision.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_HALVES_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_HALVES_H_

#include <string_view>

#include "malloc_allocator.h"

namespace rknn_sim {

// The model, which ReadOnnx has accepted, with its half-precision constants as floats: the same
// numbers.
String WidenHalves(std::string_view model);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_HALVES_H_
