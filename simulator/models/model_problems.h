// What keeps a model from running, for tools that show all of it: rknn_init has one line.
#ifndef CORVANE_SIMULATOR_MODELS_MODEL_PROBLEMS_H_
#define CORVANE_SIMULATOR_MODELS_MODEL_PROBLEMS_H_

#include <stdint.h>

// A line for each operation of an ONNX model that the engine of this process is known not to run,
// as far as that is known without loading the model. The caller frees it. Null where there are no
// such lines, for other models, and without memory. A tool that also runs with the vendor's runtime
// finds the function with dlsym.
extern "C" __attribute__((visibility("default"))) char* rknn_sim_model_problems(const void* model,
                                                                                uint32_t size);

#endif  // CORVANE_SIMULATOR_MODELS_MODEL_PROBLEMS_H_
