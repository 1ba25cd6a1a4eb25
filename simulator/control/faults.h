// Faults ordered as text, for programs that are not linked with a test.
//
//   rknn_run:3=-1                the third rknn_run returns -1
//   rknn_query:2=-5+20ms         ... and later
//   rknn_run:*+20ms              every one is late (us, ms or s)
//
// Entries are separated by commas; the code and the delay are ReturnAt's and DelayAt's.
#ifndef CORVANE_SIMULATOR_CONTROL_FAULTS_H_
#define CORVANE_SIMULATOR_CONTROL_FAULTS_H_

#include <string_view>

#include "simulator/control/script.h"

namespace rknn_sim {

// Orders all of them, or none: then *why says which entry is wrong.
bool OrderFaults(std::string_view text, Script* script, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_FAULTS_H_
