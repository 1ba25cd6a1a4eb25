#include "tools/settings/numbers.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "corvane/util.h"
#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

// Rounded once: a quotient of two doubles, then to float.
bool ParseNumber(const std::string& text, float* number) {
  const std::size_t slash = text.find('/');
  const std::string above = text.substr(0, slash);
  char* end = nullptr;
  if (slash == std::string::npos) {
    *number = std::strtof(text.c_str(), &end);
    return !text.empty() && end == text.c_str() + text.size() && std::isfinite(*number);
  }
  const std::string below = text.substr(slash + 1);
  const double dividend = std::strtod(above.c_str(), &end);
  if (above.empty() || end != above.c_str() + above.size()) return false;
  const double divisor = std::strtod(below.c_str(), &end);
  if (below.empty() || end != below.c_str() + below.size()) return false;
  *number = static_cast<float>(dividend / divisor);
  return std::isfinite(*number);
}

std::string Trimmed(const std::string& text) {
  const char* const spaces = " \t\r\n";
  const std::size_t first = text.find_first_not_of(spaces);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

}  // namespace

std::vector<float> ParseNumbers(const std::string& name, const std::string& text) {
  std::vector<float> numbers;
  // A comma at the end would add no field.
  for (const std::string& field : corvane::SplitByChar(text + ",", ',')) {
    const std::string number = Trimmed(field);
    float value = 0;
    if (!ParseNumber(number, &value)) {
      throw Failure(std::string(name).append(": '").append(number).append("' is not a number"));
    }
    numbers.push_back(value);
  }
  return numbers;
}

double ParseWithin(const std::string& name, const std::string& text, double least, double most,
                   double unless) {
  if (text.empty()) return unless;
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (*end == '\0' && number >= least && number <= most) return number;
  char range[80];
  std::snprintf(range, sizeof(range), "' is not a number from %g to %g", least, most);
  throw Failure(name + ": '" + text + range);
}

Landmarks ParseLandmarks(const std::string& name, const std::string& text) {
  const std::vector<float> numbers = ParseNumbers(name, text);
  Landmarks landmarks = {};
  if (numbers.size() != landmarks.size()) {
    throw Failure(
        name + ": " + std::to_string(numbers.size()) +
        " numbers; five points are ten numbers: x,y of left eye, right eye, nose tip, left "
        "and right corner of the mouth");
  }
  for (std::size_t i = 0; i < landmarks.size(); ++i) landmarks[i] = numbers[i];
  return landmarks;
}

std::string NumberText(float value) {
  char text[32];
  for (int digits = 6; digits <= 9; ++digits) {
    std::snprintf(text, sizeof(text), "%.*g", digits, double{value});
    if (std::strtof(text, nullptr) == value) break;
  }
  return text;
}

std::string NumbersText(const float* values, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "" : ",") + NumberText(values[i]);
  return text;
}

}  // namespace corvane_tool
