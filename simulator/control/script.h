// What a test has ordered: the model, the next handle, effects on calls, relaxed checks.
#ifndef CORVANE_SIMULATOR_CONTROL_SCRIPT_H_
#define CORVANE_SIMULATOR_CONTROL_SCRIPT_H_

#include <atomic>
#include <memory>
#include <mutex>

#include "control.h"

namespace rknn_sim {

// What is to happen at one call.
struct Effects {
  bool has_code = false;
  int code = 0;
  std::chrono::microseconds delay{0};
  bool leaves_outputs_unwritten = false;
  std::shared_ptr<const Hook> hook;

  void Add(const Effects& later);
};

class Script {
 public:
  void Reset();

  void SetModel(Model model);
  std::shared_ptr<const Model> model();  // null: the bytes decide

  void SetNextHandle(rknn_context handle);
  bool TakeNextHandle(rknn_context* handle);  // false: none was set

  void AddEffects(Function function, uint64_t nth, Effects effects);
  // Counts a call: its number, and what is to happen.
  Effects CountCall(Function function, uint64_t* nth);
  uint64_t CallCount(Function function) const;

  void Relax(Check check) { relaxed_[static_cast<std::size_t>(check)] = true; }
  bool Enforces(Check check) const { return !relaxed_[static_cast<std::size_t>(check)]; }

 private:
  struct Rule {
    Function function;
    uint64_t nth;
    Effects effects;
  };

  std::mutex mutex_;
  std::shared_ptr<const Model> model_;
  bool has_next_handle_ = false;
  rknn_context next_handle_ = 0;
  Vector<Rule> rules_;
  std::atomic<bool> has_rules_{false};
  std::atomic<uint64_t> counts_[kFunctionCount] = {};
  std::atomic<bool> relaxed_[kCheckCount] = {};
};

Script& TheScript();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_CONTROL_SCRIPT_H_
