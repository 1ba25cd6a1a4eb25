#include "simulator/control/trace.h"

#include <utility>

#include "simulator/forever.h"

namespace rknn_sim {

namespace {
Forever<Trace> trace;
}  // namespace

Trace& TheTrace() { return *trace; }

void Trace::Reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  is_on_ = false;
  ++recording_;
  Vector<Call>().swap(calls_);
}

Trace::Place Trace::Begin(const Call& call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back(call);
  return {recording_, calls_.size() - 1};
}

void Trace::End(const Place& place, Call&& call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (place.recording == recording_) calls_[place.index] = std::move(call);
}

Vector<Call> Trace::Calls() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

}  // namespace rknn_sim
