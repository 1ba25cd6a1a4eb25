// Doing something that may crash, hang or eat all memory, in a child process first.
#ifndef CORVANE_SIMULATOR_MODELS_TRIAL_H_
#define CORVANE_SIMULATOR_MODELS_TRIAL_H_

#include "malloc_allocator.h"

namespace rknn_sim {

// Calls action(subject, why) in a forked child that may use 4 GiB more memory and a minute, writes
// nothing to standard error and runs no handler of the program's for what kills it. True when it
// gave true. Otherwise *why is what it said, or how it ended.
bool TryInChild(bool (*action)(void* subject, String* why), void* subject, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_MODELS_TRIAL_H_
