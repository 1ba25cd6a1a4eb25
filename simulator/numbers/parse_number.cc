#include "simulator/numbers/parse_number.h"

#include <locale.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "malloc_allocator.h"

namespace rknn_sim {

bool ParseFloat(std::string_view text, float* value) {
  // std::from_chars for floats came with GCC 11. The "C" locale needs no memory, so it is kept.
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  if (text.empty() || text.front() <= ' ') return false;  // strtof skips blanks
  const String terminated(text.data(), text.size());
  char* end = nullptr;
  const int saved = errno;
  errno = 0;
  *value = strtof_l(terminated.c_str(), &end, c_locale);
  // glibc also sets it for subnormal numbers, which a float can hold.
  const bool is_out_of_range = errno == ERANGE && (*value == 0.0f || std::isinf(*value));
  errno = saved;
  return !is_out_of_range && end == terminated.c_str() + terminated.size();
}

}  // namespace rknn_sim
