// What has changed since an earlier bench, beyond the noise of both.
#ifndef CORVANE_TOOLS_BENCH_CHANGE_H_
#define CORVANE_TOOLS_BENCH_CHANGE_H_

#include <string>

#include "tools/results/json.h"

namespace corvane_tool {

// What --json has written. Throws Failure for another file.
Json ReadBench(const std::string& path);

// Prints the p50 and p90 of each part of a frame, then and now. A change is what differs by 5 % and
// 10 microseconds or more, and by more than the rounds of either bench do among themselves: the
// slowest round of the one is faster than the fastest of the other. path names the earlier one in
// messages. Returns whether anything has become slower. Throws Failure for a file that is no bench.
bool PrintChanges(const std::string& path, const Json& then, const Json& now);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_BENCH_CHANGE_H_
