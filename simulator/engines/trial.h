// Tries in a child process what may crash, hang or use all memory.
#ifndef CORVANE_SIMULATOR_ENGINES_TRIAL_H_
#define CORVANE_SIMULATOR_ENGINES_TRIAL_H_

#include "malloc_allocator.h"

namespace rknn_sim {

enum class Trial {
  kDone,
  kRefused,  // by the action
  kEnded     // the child crashed, hung or could not begin
};

// Calls action(subject, why) in a forked child that may use 4 GiB more memory and a minute. The
// child writes nothing to standard error and runs none of the program's signal handlers. Unless it
// is done, *why is the action's reason, or how the child ended.
Trial TryInChild(bool (*action)(void* subject, String* why), void* subject, String* why);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_TRIAL_H_
