#include "simulator/interface/invocation.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "simulator/control/environment.h"
#include "simulator/interface/report.h"

namespace rknn_sim {

Invocation::Invocation(Function function, rknn_context handle) {
  ReadEnvironmentOnce();
  record_.function = function;
  record_.context = handle;
  record_.thread = std::this_thread::get_id();
  effects_ = TheScript().CountCall(function, &record_.nth);
  is_traced_ = TheTrace().is_on();
  copies_buffers_ = is_traced_ || effects_.hook != nullptr;
  is_logged_ = TheCallLog().is_on();
  is_observed_ = copies_buffers_ || is_logged_;
  if (is_logged_) begin_ = CallLog::Clock::now();
  if (is_traced_) place_ = TheTrace().Begin(record_);
}

// The compiler checks the format.  NOLINTNEXTLINE(cert-dcl50-cpp)
int Invocation::Misuse(int code, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  char text[512];
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  ReportMisuse(NameOf(record_.function), code, text);
  record_.is_misuse = true;
  if (is_observed_) record_.misuse = text;
  return code;
}

void Invocation::Reach() {
  if (effects_.delay.count() > 0) std::this_thread::sleep_for(effects_.delay);
  if (effects_.hook != nullptr) (*effects_.hook)(record_);
}

int Invocation::End(int ret) {
  record_.ret = ret;
  record_.has_returned = true;
  if (is_logged_) TheCallLog().Write(record_, begin_);
  if (is_traced_) TheTrace().End(place_, std::move(record_));
  return ret;
}

}  // namespace rknn_sim
