// Makes a model of the bytes that rknn_init was handed, or of what a test has scripted.
#ifndef CORVANE_SIMULATOR_MODELS_LOAD_MODEL_H_
#define CORVANE_SIMULATOR_MODELS_LOAD_MODEL_H_

#include "simulator/models/model.h"

namespace rknn_sim {

// A scripted model wins over the bytes. Null, with the reason in *why, for bytes that are no model
// that can run here. Throws std::bad_alloc.
ModelPointer LoadModel(const uint8_t* bytes, uint32_t size, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_LOAD_MODEL_H_
