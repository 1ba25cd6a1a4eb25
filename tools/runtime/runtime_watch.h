// What the library says to the runtime, seen from outside.
//
// The library says that a call of the runtime failed (errno is EIO), but not which one, with which
// code, nor how long the halves of a run took, nor what the tensors are called. The tool therefore
// defines the runtime's functions itself, which record the calls and pass them on. This works alike
// with the vendor's runtime and the simulated one.
#ifndef CORVANE_TOOLS_RUNTIME_RUNTIME_WATCH_H_
#define CORVANE_TOOLS_RUNTIME_RUNTIME_WATCH_H_

#include <vector>

#include "rknn_api.h"

namespace corvane_tool {

struct RuntimeRecord {
  // The first call with a negative code, or, while loading, with any but 0. Null: none failed.
  const char* failed_call = nullptr;
  int failed_code = 0;

  // Of the model loaded last: what the runtime answered about its tensors.
  std::vector<rknn_tensor_attr> inputs, outputs;

  // Of the last run, as SteadyMilliseconds: when the prepared input reached the runtime and
  // when the outputs had come back as floats. 0: the run did not get that far.
  double input_given = 0;
  double outputs_back = 0;
};

// The calling thread's record, which its watched calls write.
RuntimeRecord& WatchedRuntime();

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_RUNTIME_WATCH_H_
