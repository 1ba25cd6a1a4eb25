// How many frames a second several backends give.
#ifndef CORVANE_TOOLS_BENCH_PARALLEL_H_
#define CORVANE_TOOLS_BENCH_PARALLEL_H_

#include <functional>
#include <string>
#include <vector>

#include "tools/results/json.h"
#include "tools/results/run_summary.h"

namespace corvane_tool {

struct Throughput {
  std::string name;  // "2 backends"
  std::size_t frames = 0;
  double frames_per_second = 0;
  Times milliseconds;  // of a frame, with waiting for its turn
};

// seconds: as MeasureLatency has it; this takes a tenth, at most two.
//
// A thread for each of the first `count` frame functions, each on its own.
Throughput MeasureParallel(const std::vector<std::function<void()>>& frames, std::size_t count,
                           double seconds);

// Two take turns: one prepares its frame while the other runs, and results come in order.
Throughput MeasureTurns(const std::vector<std::function<void()>>& frames, double seconds);

void PrintThroughput(const std::vector<Throughput>& rows);
Json ToJson(const std::vector<Throughput>& rows);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_BENCH_PARALLEL_H_
