// How long a frame takes, once the times have settled.
#ifndef CORVANE_TOOLS_BENCH_LATENCY_H_
#define CORVANE_TOOLS_BENCH_LATENCY_H_

#include <functional>
#include <vector>

#include "tools/results/json.h"
#include "tools/results/run_summary.h"
#include "tools/runtime/model_runner.h"

namespace corvane_tool {

// The parts of a frame, and all of it.
enum Part { kPrepare, kRun, kFetch, kWhole, kPartCount };
extern const char* const kPartNames[kPartCount];

struct Latency {
  // Three rounds in a row whose p50 and p90 of the whole frame lie within 5 % of one another.
  bool is_steady = false;
  int rounds = 0;          // measured in all
  std::size_t frames = 0;  // in the last three, of which the times are
  Times times[kPartCount];
  std::vector<Times> by_round[kPartCount];  // of the last three
};

// Runs rounds of frames until they are steady or the time is over, at least three. A round has 200
// frames, or as many of at least 20 as fit into five seconds. The first 20 frames are left out.
Latency MeasureLatency(const std::function<FrameTimes()>& frame, double seconds);

void PrintLatency(const Latency& latency);
Json ToJson(const Latency& latency);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_BENCH_LATENCY_H_
