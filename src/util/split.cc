#include <algorithm>
#include <cstring>

#include "corvane/util.h"

namespace corvane {

std::vector<std::string> SplitByChar(const std::string& text, char separator) {
  std::vector<std::string> fields;
  if (text.empty()) return fields;
  const char* field = text.data();
  const char* const end = field + text.size();
  const auto separators = static_cast<std::size_t>(std::count(field, end, separator));
  fields.reserve(separators + (end[-1] == separator ? 0 : 1));
  while (field != end) {
    const void* found = std::memchr(field, separator, static_cast<std::size_t>(end - field));
    const char* const stop = found != nullptr ? static_cast<const char*>(found) : end;
    fields.emplace_back(field, stop);
    field = stop == end ? end : stop + 1;
  }
  return fields;
}

}  // namespace corvane
