// Numbers in model files, the same in every locale.
#ifndef CORVANE_SIMULATOR_NUMBERS_PARSE_NUMBER_H_
#define CORVANE_SIMULATOR_NUMBERS_PARSE_NUMBER_H_

#include <charconv>
#include <string_view>
#include <system_error>

namespace rknn_sim {

// Both read the whole text, without blanks, and give false for any other text and for a number that
// the type cannot hold.
template <typename Integer>
bool ParseInteger(std::string_view text, Integer* value) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *value);
  return result.ec == std::errc() && result.ptr == end;
}

// As strtof in the "C" locale: also hexadecimal, infinite and NaN.
bool ParseFloat(std::string_view text, float* value);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_NUMBERS_PARSE_NUMBER_H_
