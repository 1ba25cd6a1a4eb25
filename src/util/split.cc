#include <cstring>

#include "corvane/util.h"

namespace corvane {

std::vector<std::string> SplitByChar(const std::string& text, char separator) {
  std::vector<std::string> fields;
  fields.reserve(8);  // one allocation for a short record; longer ones grow as vectors do
  const char* field = text.data();
  const char* const end = field + text.size();
  while (field != end) {
    const void* const found = std::memchr(field, separator, static_cast<std::size_t>(end - field));
    const char* const stop = found != nullptr ? static_cast<const char*>(found) : end;
    fields.emplace_back(field, stop);
    field = stop == end ? end : stop + 1;
  }
  return fields;
}

}  // namespace corvane
