// Whether a call's arguments and its place in the order of calls are as the interface wants them.
//
// Each function returns 0, or reports the first misuse that it finds and returns its code. Checks
// that a test has relaxed are left out.
#ifndef CORVANE_SIMULATOR_INTERFACE_CHECKS_H_
#define CORVANE_SIMULATOR_INTERFACE_CHECKS_H_

#include "simulator/interface/context.h"
#include "simulator/interface/invocation.h"

namespace rknn_sim {

bool Enforces(Check check);

int CheckInit(Invocation& call, const rknn_context* handle, const void* model, uint32_t size,
              uint32_t flags);
// Records the index that an attribute's query asks about.
int CheckQuery(Invocation& call, const Context& context, uint32_t command, const void* info,
               uint32_t size);
int CheckInputsSet(Invocation& call, Context& context, uint32_t count, const rknn_input* inputs);
int CheckRun(Invocation& call, const Context& context);
int CheckOutputsGet(Invocation& call, Context& context, uint32_t count, const rknn_output* outputs);
int CheckOutputsRelease(Invocation& call, Context& context, uint32_t count,
                        const rknn_output* outputs);

int CheckModelBytes(Invocation& call, ModelBytes::State state);
// No outputs are held. A misuse also where the order of calls is relaxed.
int CheckReleased(Invocation& call, const Context& context);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_INTERFACE_CHECKS_H_
