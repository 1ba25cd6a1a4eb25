// Numbers in options and settings.
#ifndef CORVANE_TOOLS_SETTINGS_NUMBERS_H_
#define CORVANE_TOOLS_SETTINGS_NUMBERS_H_

#include <array>
#include <string>
#include <vector>

namespace corvane_tool {

using Landmarks =
    std::array<float, 10>;  // x, y of five points; the order is that of corvane/align.h

// Numbers between commas, all finite; "1/127.5" is a quotient. The library's own number getters
// would take "1x" for 1. name says in messages where the text comes from.
std::vector<float> ParseNumbers(const std::string& name, const std::string& text);
// unless: for an empty text. Throws Failure for what is no number or not in the range.
double ParseWithin(const std::string& name, const std::string& text, double least, double most,
                   double unless);
Landmarks ParseLandmarks(const std::string& name, const std::string& text);

// The shortest text that reads back as the same float.
std::string NumberText(float value);
std::string NumbersText(const float* values, std::size_t count);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SETTINGS_NUMBERS_H_
