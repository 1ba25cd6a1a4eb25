#include "simulator/control/faults.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace rknn_sim {

namespace {

struct Fault {
  Function function = Function::kInit;
  uint64_t nth = kEveryCall;
  Effects effects;
};

bool CutPrefix(std::string_view prefix, std::string_view* text) {
  if (text->substr(0, prefix.size()) != prefix) return false;
  text->remove_prefix(prefix.size());
  return true;
}

template <typename T>
bool CutNumber(std::string_view* text, T* value) {
  const auto result = std::from_chars(text->data(), text->data() + text->size(), *value);
  text->remove_prefix(static_cast<std::size_t>(result.ptr - text->data()));
  return result.ec == std::errc();
}

bool CutFunction(std::string_view* text, Function* function) {
  for (std::size_t i = 0; i < kFunctionCount; ++i) {
    *function = static_cast<Function>(i);
    std::string_view rest = *text;
    if (!CutPrefix(NameOf(*function), &rest) || !CutPrefix(":", &rest)) continue;
    *text = rest;
    return true;
  }
  return false;
}

bool CutDelay(std::string_view* text, std::chrono::microseconds* delay) {
  constexpr uint64_t kMaxMicroseconds = uint64_t{3600} * 1000 * 1000;
  uint64_t count = 0;
  if (!CutNumber(text, &count)) return false;
  const uint64_t unit = CutPrefix("us", text)   ? 1
                        : CutPrefix("ms", text) ? 1000
                        : CutPrefix("s", text)  ? 1000 * 1000
                                                : 0;
  if (unit == 0 || count > kMaxMicroseconds / unit) return false;
  *delay = std::chrono::microseconds(count * unit);
  return true;
}

bool ParseFault(std::string_view text, Fault* fault) {
  if (!CutFunction(&text, &fault->function)) return false;
  if (!CutPrefix("*", &text) && (!CutNumber(&text, &fault->nth) || fault->nth == kEveryCall)) {
    return false;
  }
  if (text.empty()) return false;
  if (CutPrefix("=", &text)) {
    fault->effects.has_code = true;
    if (!CutNumber(&text, &fault->effects.code)) return false;
  }
  if (CutPrefix("+", &text) && !CutDelay(&text, &fault->effects.delay)) return false;
  return text.empty();
}

}  // namespace

bool OrderFaults(std::string_view text, Script* script, String* why) {
  Vector<Fault> faults;
  while (!text.empty()) {
    std::string_view entry = text.substr(0, text.find(','));
    text.remove_prefix(std::min(entry.size() + 1, text.size()));
    const std::size_t first = entry.find_first_not_of(' ');
    if (first == std::string_view::npos) continue;
    entry = entry.substr(first, entry.find_last_not_of(' ') + 1 - first);
    faults.emplace_back();
    if (ParseFault(entry, &faults.back())) continue;
    char line[256];
    std::snprintf(
        line, sizeof(line),
        "'%.*s' is not understood; wanted FUNCTION:N=CODE, FUNCTION:N+DELAY or "
        "FUNCTION:N=CODE+DELAY, as in rknn_run:3=-1+20ms (N: from 1, or *; at most an hour "
        "in us, ms or s)",
        static_cast<int>(std::min<std::size_t>(entry.size(), 60)), entry.data());
    *why = line;
    return false;
  }
  for (const Fault& fault : faults) script->AddEffects(fault.function, fault.nth, fault.effects);
  return true;
}

}  // namespace rknn_sim
