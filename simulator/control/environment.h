// What a user orders through the environment, without touching the program:
//   CORVANE_SIM_FAULTS  faults.h
//   CORVANE_SIM_TRACE   call_log.h
//   CORVANE_SIM_THREADS ThreadsWanted
#ifndef CORVANE_SIMULATOR_CONTROL_ENVIRONMENT_H_
#define CORVANE_SIMULATOR_CONTROL_ENVIRONMENT_H_

namespace rknn_sim {

// Reads it at the program's first call, and never again. A value that is not understood is told in
// a line and left out.
void ReadEnvironmentOnce();

// How many threads a network may use: one, unless more are asked for. On the board one NPU does it.
int ThreadsWanted();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_ENVIRONMENT_H_
