// What usually helps against the runtime's error codes.
#ifndef CORVANE_TOOLS_RUNTIME_CURES_H_
#define CORVANE_TOOLS_RUNTIME_CURES_H_

namespace corvane_tool {

// One line, for any code.
const char* CureOf(int code);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_CURES_H_
