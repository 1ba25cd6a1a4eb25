#include "invocation.h"

#include <cstdarg>
#include <utility>

#include "report.h"

namespace rknn_sim {

Invocation::Invocation(Function function, rknn_context handle) {
  record_.function = function;
  record_.context = handle;
  record_.thread = std::this_thread::get_id();
  effects_ = TheScript().CountCall(function, &record_.nth);
  is_traced_ = TheTrace().is_on();
  is_observed_ = is_traced_ || effects_.hook != nullptr;
  if (is_traced_) place_ = TheTrace().Begin(record_);
}

// The compiler checks the format.  NOLINTNEXTLINE(cert-dcl50-cpp)
int Invocation::Misuse(int code, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  record_.is_misuse = true;
  ReportMisuse(NameOf(record_.function), code, format, arguments);
  va_end(arguments);
  return code;
}

void Invocation::Reach() {
  if (effects_.delay.count() > 0) std::this_thread::sleep_for(effects_.delay);
  if (effects_.hook != nullptr) (*effects_.hook)(record_);
}

int Invocation::End(int ret) {
  record_.ret = ret;
  record_.has_returned = true;
  if (is_traced_) TheTrace().End(place_, std::move(record_));
  return ret;
}

}  // namespace rknn_sim
