#include <algorithm>
#include <cstring>

#include "corvane/util.h"

namespace corvane {
namespace {

// The first c in [begin, end), or end.
const char* Find(const char* begin, const char* end, char c) {
  const void* found = std::memchr(begin, c, static_cast<std::size_t>(end - begin));
  return found != nullptr ? static_cast<const char*>(found) : end;
}

// How often c stands in [begin, end). Blocks whose count fits a byte are what compilers turn into
// vector code; std::count goes byte by byte.
std::size_t Count(const char* begin, const char* end, char c) {
  constexpr std::ptrdiff_t kBlock = 128;
  std::size_t count = 0;
  for (; end - begin >= kBlock; begin += kBlock) {
    unsigned char in_block = 0;
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
      in_block = static_cast<unsigned char>(in_block + (begin[i] == c ? 1 : 0));
    }
    count += in_block;
  }
  return count + static_cast<std::size_t>(std::count(begin, end, c));
}

}  // namespace

std::vector<std::string> SplitByChar(const std::string& text, char separator) {
  std::vector<std::string> fields;
  const char* field = text.data();
  const char* const end = field + text.size();
  if (field == end) return fields;

  // The first separators are remembered and those behind only counted, so that a text of few fields
  // is searched once and any text gets one allocation for its fields.
  constexpr std::size_t kRemembered = 128;
  const char* remembered[kRemembered];
  std::size_t known = 0;
  const char* stop = Find(field, end, separator);
  while (stop != end && known < kRemembered) {
    remembered[known++] = stop;
    stop = Find(stop + 1, end, separator);
  }
  const std::size_t separators = known + Count(stop, end, separator);
  fields.reserve(separators + (end[-1] == separator ? 0 : 1));

  for (std::size_t i = 0; i < known; ++i) {
    fields.emplace_back(field, remembered[i]);
    field = remembered[i] + 1;
  }
  while (field != end) {
    fields.emplace_back(field, stop);
    if (stop == end) break;
    field = stop + 1;
    stop = Find(field, end, separator);
  }
  return fields;
}

}  // namespace corvane
