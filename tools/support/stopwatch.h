#ifndef CORVANE_TOOLS_SUPPORT_STOPWATCH_H_
#define CORVANE_TOOLS_SUPPORT_STOPWATCH_H_

#include <chrono>

namespace corvane_tool {

// Milliseconds of a clock that nobody sets: for durations.
inline double SteadyMilliseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::milli>(now).count();
}

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_STOPWATCH_H_
