// What a user orders by environment variables, without a change to the program:
//   CORVANE_SIM_FAULTS  faults.h
//   CORVANE_SIM_TRACE   call_log.h
//   CORVANE_SIM_THREADS ThreadsWanted
//   CORVANE_SIM_ENGINE  EngineWanted
//   CORVANE_SIM_ONNXRUNTIME  OnnxRuntimeWanted
#ifndef CORVANE_SIMULATOR_CONTROL_ENVIRONMENT_H_
#define CORVANE_SIMULATOR_CONTROL_ENVIRONMENT_H_

namespace rknn_sim {

// Reads the variables at the program's first call, and never again. A value that is not understood
// is reported in one line and ignored.
void ReadEnvironmentOnce();

// How many threads a network may use: one, unless CORVANE_SIM_THREADS asks for more.
int ThreadsWanted();

// What runs ONNX models: "opencv" or "onnxruntime". A path of ONNX Runtime asks for it, too.
enum class WantedEngine { kAny, kOpenCv, kOnnxRuntime };
WantedEngine EngineWanted();

// ONNX Runtime's library, or the folder that holds it; null where none is named.
const char* OnnxRuntimeWanted();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_ENVIRONMENT_H_
