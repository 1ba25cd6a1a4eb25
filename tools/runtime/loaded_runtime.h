// The runtime, loaded when it is first called. So the tool starts without a runtime, or with a
// wrong one, and can say so.
#ifndef CORVANE_TOOLS_RUNTIME_LOADED_RUNTIME_H_
#define CORVANE_TOOLS_RUNTIME_LOADED_RUNTIME_H_

namespace corvane_tool {

// A function of librknn_api.so, or of what is preloaded. Null, after a line on standard error,
// where it is missing.
void* FindInRuntime(const char* name);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_LOADED_RUNTIME_H_
