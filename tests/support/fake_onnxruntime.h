// Stands in for ONNX Runtime: a shared library with its C interface, whose network is decided by
// the names of the outputs. Each output has the numbers of the first input, but for
//   asN       as elements of ONNX type N
//   counted   as many elements as the first number says, and one
//   inverse   1 / number; the run fails if one is 0
//   crash     the process ends with SIGFPE
//   sequence  no tensor
//   mode      the rounding mode of the thread that runs
#ifndef CORVANE_TESTS_SUPPORT_FAKE_ONNXRUNTIME_H_
#define CORVANE_TESTS_SUPPORT_FAKE_ONNXRUNTIME_H_

#include <cstdint>
#include <string>
#include <vector>

namespace fake_onnxruntime {

// How many objects of the library this process has not released.
int LiveObjects();

// The nth call from now in this process that can fail does so, with the text "made\nto fail".
// 0: none does.
void FailAt(int nth);

// What the last session was given: the model, threads within and between operations.
const std::string& ModelBytes();
int IntraThreads();
int InterThreads();

// The elements of the first input of the last run, as they were handed over, and their type.
const std::vector<uint8_t>& InputBytes();
int InputType();
const std::vector<int64_t>& InputDims();

}  // namespace fake_onnxruntime

#endif  // CORVANE_TESTS_SUPPORT_FAKE_ONNXRUNTIME_H_
