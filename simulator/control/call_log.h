// Writes the calls of a program to a file as lines of JSON, for people and scripts.
//
// One object is one line, in the order in which calls end, and is written before the call returns:
//   {"call":1,"at_us":0,"took_us":512,"thread":4711,"function":"rknn_init","nth":1,
//    "context":"0xc0de0001","ret":0,"size":1990,"flags":0}
#ifndef CORVANE_SIMULATOR_CONTROL_CALL_LOG_H_
#define CORVANE_SIMULATOR_CONTROL_CALL_LOG_H_

#include <atomic>
#include <chrono>
#include <mutex>

#include "control.h"

namespace rknn_sim {

class CallLog {
 public:
  using Clock = std::chrono::steady_clock;

  bool is_on() const { return is_on_.load(std::memory_order_relaxed); }
  // Empties the file at path, or makes it. False, with the reason and the file untouched, where it
  // cannot be written or holds something else than an earlier trace.
  bool Open(const char* path, String* why);
  void Write(const Call& call, Clock::time_point begin);

 private:
  std::atomic<bool> is_on_{false};
  std::mutex mutex_;
  int file_ = -1;
  uint64_t calls_ = 0;
  Clock::time_point start_;
};

CallLog& TheCallLog();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_CALL_LOG_H_
