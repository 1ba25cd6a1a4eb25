// Models written as text, for tests of programs that need neither a board nor a network. After the
// library's prefix the file holds:
//
//   CORVANE-SIM
//   # one line per tensor; the shape outermost first, as N x C x H x W (N x H x W x C with nhwc)
//   input  data  float16 1x3x112x112
//   output score float32 1x2 values=0.25,0.75
//   output copy  float32 1x3x112x112 echo=0
//
// Types: float32, float16, int8, uint8, int16. After the shape, in any order: nhwc; fl=BITS
// (dynamic fixed point); zp=ZERO scale=SCALE (affine); for an output values=V,V,... (repeated to
// its length) or echo=INPUT (that input's numbers as the model takes them, repeated).
#ifndef CORVANE_SIMULATOR_MODELS_TEXT_MODEL_H_
#define CORVANE_SIMULATOR_MODELS_TEXT_MODEL_H_

#include "control.h"

namespace rknn_sim {

bool IsTextModel(const uint8_t* bytes, std::size_t size);

// False, with the number of the line and what was wanted there, for a text that is no model.
bool ParseTextModel(const uint8_t* bytes, std::size_t size, Model* model, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_TEXT_MODEL_H_
