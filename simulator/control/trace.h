// The recording of calls, in the order in which they began.
#ifndef CORVANE_SIMULATOR_CONTROL_TRACE_H_
#define CORVANE_SIMULATOR_CONTROL_TRACE_H_

#include <atomic>
#include <mutex>

#include "control.h"

namespace rknn_sim {

class Trace {
 public:
  struct Place {
    uint64_t recording = 0;
    std::size_t index = 0;
  };

  bool is_on() const { return is_on_; }
  void SetOn(bool is_on) { is_on_ = is_on; }
  void Reset();

  Place Begin(const Call& call);
  void End(const Place& place, Call&& call);  // dropped if Reset came in between
  Vector<Call> Calls();

 private:
  std::atomic<bool> is_on_{false};
  std::mutex mutex_;
  uint64_t recording_ = 0;
  Vector<Call> calls_;
};

Trace& TheTrace();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_TRACE_H_
