// Small utilities: splitting a string, a wall clock in milliseconds, the library's version.
//
// All three may be called from any number of threads at once; they share nothing.
#ifndef CORVANE_UTIL_H_
#define CORVANE_UTIL_H_

#include <string>
#include <vector>

#include "corvane/export.h"

namespace corvane {

// Cuts text into fields at every separator, the way repeated std::getline calls would:
//
//   "a,b,c" -> {"a", "b", "c"}    "a,,b" -> {"a", "", "b"}    ",a" -> {"", "a"}
//   "a,"    -> {"a"}              ","    -> {""}              ""   -> {}
//
// A trailing separator therefore adds no empty last field. Fields are bytes, neither trimmed nor
// interpreted; text and separator may hold any byte, NUL included.
// Throws std::bad_alloc (nothing leaks) when memory runs out.
CORVANE_EXPORT std::vector<std::string> SplitByChar(const std::string& text, char separator);

// The wall clock: milliseconds since 1970-01-01 00:00:00 UTC, with microseconds in the fraction.
// It follows the system's time and jumps when that is set, so it does not suit measuring durations.
CORVANE_EXPORT double get_current_time();

// "0.6.6.dev": the version of the library that was loaded (not of the headers compiled against).
CORVANE_EXPORT std::string version();

}  // namespace corvane

#endif  // CORVANE_UTIL_H_
