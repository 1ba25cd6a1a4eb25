// One call through the C interface: counted, scripted, recorded, and refused where it is misuse.
#ifndef CORVANE_SIMULATOR_INTERFACE_INVOCATION_H_
#define CORVANE_SIMULATOR_INTERFACE_INVOCATION_H_

#include <cfenv>

#include "simulator/control/call_log.h"
#include "simulator/control/script.h"
#include "simulator/control/trace.h"

namespace rknn_sim {

class Invocation {
 public:
  Invocation(Function function, rknn_context handle);

  // Null unless a trace, a recording or a hook looks at the call.
  Call* record() { return is_observed_ ? &record_ : nullptr; }

  // Whether a recording or a hook sees the bytes of buffers, too.
  bool copies_buffers() const { return copies_buffers_; }

  // Writes the line and returns the code.
  __attribute__((format(printf, 3, 4))) int Misuse(int code, const char* format, ...);

  // The scripted delay and hook: once the arguments have been checked, before any work.
  void Reach();

  bool fails_on_any_code() const { return effects_.has_code && effects_.code != 0; }
  bool fails() const { return effects_.has_code && effects_.code < 0; }
  bool leaves_outputs_unwritten() const { return effects_.leaves_outputs_unwritten; }
  // What the call returns when nothing else is wrong.
  int code() const { return effects_.has_code ? effects_.code : RKNN_SUCC; }

  int End(int ret);

 private:
  Call record_;
  Effects effects_;
  bool is_traced_;  // to memory
  bool is_logged_;  // to a file
  bool copies_buffers_;
  bool is_observed_;
  Trace::Place place_;
  CallLog::Clock::time_point begin_;
};

// Keeps the calling thread's floating-point mode, which an engine may change.
class FloatingPointModeKept {
 public:
  FloatingPointModeKept() { std::fegetenv(&mode_); }
  ~FloatingPointModeKept() { std::fesetenv(&mode_); }
  FloatingPointModeKept(const FloatingPointModeKept&) = delete;
  FloatingPointModeKept& operator=(const FloatingPointModeKept&) = delete;

 private:
  std::fenv_t mode_;
};

// Runs body(invocation) as one call; no exception leaves it.
template <typename Body>
int Invoke(Function function, rknn_context handle, Body body) noexcept {
  const FloatingPointModeKept mode;
  try {
    Invocation invocation(function, handle);
    try {
      return invocation.End(body(invocation));
    } catch (const std::bad_alloc&) {
      return invocation.End(RKNN_ERR_MALLOC_FAIL);
    } catch (...) {  // from a test's hook
      return invocation.End(RKNN_ERR_FAIL);
    }
  } catch (...) {
    return RKNN_ERR_MALLOC_FAIL;
  }
}

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_INTERFACE_INVOCATION_H_
