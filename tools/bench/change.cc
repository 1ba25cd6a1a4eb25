#include "tools/bench/change.h"

#include <algorithm>
#include <cstdio>

#include "tools/bench/latency.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {

constexpr const char* kPercentiles[] = {"p50", "p90"};

struct Range {
  double value, lowest, highest;
};

Range Read(const Json& bench, const char* part, const char* percentile) {
  const Json& times = bench.at("latency").at("milliseconds").at(part);
  Range range = {times.at(percentile).get<double>(), 1e30, 0};
  for (const Json& round : times.at("rounds")) {
    range.lowest = std::min(range.lowest, round.at(percentile).get<double>());
    range.highest = std::max(range.highest, round.at(percentile).get<double>());
  }
  return range;
}

}  // namespace

Json ReadBench(const std::string& path) {
  Json bench = Json::parse(ReadFile(path), nullptr, false);
  try {
    for (const char* part : kPartNames) {
      for (const char* percentile : kPercentiles) Read(bench, part, percentile);
    }
  } catch (const Json::exception&) {
    throw Failure(path + ": is not what corvane bench --json writes");
  }
  return bench;
}

bool PrintChanges(const std::string& path, const Json& then, const Json& now) {
  constexpr double kLeast = 0.05, kLeastMilliseconds = 0.01;
  bool is_slower = false;
  std::printf("compared with %s\n  %-14s %9s %9s\n", path.c_str(), "ms", "then", "now");
  for (const char* part : kPartNames) {
    for (const char* percentile : kPercentiles) {
      const Range old = Read(then, part, percentile), fresh = Read(now, part, percentile);
      const double least = std::max(old.value * kLeast, kLeastMilliseconds);
      const bool slower = fresh.value >= old.value + least && fresh.lowest > old.highest;
      const bool faster = fresh.value <= old.value - least && fresh.highest < old.lowest;
      is_slower |= slower;
      std::printf("  %-10s %s %9.3f %9.3f  %s\n", part, percentile, old.value, fresh.value,
                  slower   ? "SLOWER"
                  : faster ? "faster"
                           : "within the noise");
    }
  }
  return is_slower;
}

}  // namespace corvane_tool
