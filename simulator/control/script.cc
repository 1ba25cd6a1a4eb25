#include "simulator/control/script.h"

#include <utility>

#include "simulator/forever.h"

namespace rknn_sim {

namespace {
Forever<Script> script;
}  // namespace

Script& TheScript() { return *script; }

void Effects::Add(const Effects& later) {
  if (later.has_code) {
    has_code = true;
    code = later.code;
  }
  if (later.delay.count() > 0) delay = later.delay;
  leaves_outputs_unwritten |= later.leaves_outputs_unwritten;
  if (later.hook != nullptr) hook = later.hook;
}

void Script::Reset() {
  // What is dropped may call a test's destructors: not under the lock.
  std::shared_ptr<const Model> old_model;
  Vector<Rule> old_rules;
  const std::lock_guard<std::mutex> lock(mutex_);
  old_model.swap(model_);
  old_rules.swap(rules_);
  has_rules_ = false;
  has_next_handle_ = false;
  for (auto& count : counts_) count = 0;
  for (auto& relaxed : relaxed_) relaxed = false;
}

void Script::SetModel(Model model) {
  std::shared_ptr<const Model> shared =
      std::allocate_shared<Model>(MallocAllocator<Model>(), std::move(model));
  const std::lock_guard<std::mutex> lock(mutex_);
  model_.swap(shared);
}

std::shared_ptr<const Model> Script::model() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return model_;
}

void Script::SetNextHandle(rknn_context handle) {
  const std::lock_guard<std::mutex> lock(mutex_);
  has_next_handle_ = true;
  next_handle_ = handle;
}

bool Script::TakeNextHandle(rknn_context* handle) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!has_next_handle_) return false;
  has_next_handle_ = false;
  *handle = next_handle_;
  return true;
}

void Script::AddEffects(Function function, uint64_t nth, Effects effects) {
  const std::lock_guard<std::mutex> lock(mutex_);
  rules_.push_back({function, nth, std::move(effects)});
  has_rules_ = true;
}

Effects Script::CountCall(Function function, uint64_t* nth) {
  Effects effects;
  *nth = ++counts_[static_cast<std::size_t>(function)];
  if (!has_rules_) return effects;
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const Rule& rule : rules_) {
    if (rule.function == function && (rule.nth == kEveryCall || rule.nth == *nth)) {
      effects.Add(rule.effects);
    }
  }
  return effects;
}

uint64_t Script::CallCount(Function function) const {
  return counts_[static_cast<std::size_t>(function)];
}

}  // namespace rknn_sim
