#include "tools/bench/latency.h"

#include <algorithm>
#include <cstdio>

#include "tools/support/stopwatch.h"

namespace corvane_tool {

const char* const kPartNames[kPartCount] = {"prepare", "run", "fetch", "whole"};

namespace {

constexpr std::size_t kRounds = 3, kFewFrames = 20, kRoundFrames = 200;
constexpr double kRoundMilliseconds = 5000, kSteady = 0.05;

using Round = std::vector<FrameTimes>;

Round RunRound(const std::function<FrameTimes()>& frame) {
  Round round;
  const double end = SteadyMilliseconds() + kRoundMilliseconds;
  while (round.size() < kRoundFrames && (round.size() < kFewFrames || SteadyMilliseconds() < end)) {
    round.push_back(frame());
  }
  return round;
}

double TimeOf(const FrameTimes& frame, int part) {
  const double parts[] = {frame.prepare, frame.run, frame.fetch};
  return part < kWhole ? parts[part] : frame.prepare + frame.run + frame.fetch;
}

Times TimesOf(const std::vector<const Round*>& rounds, int part) {
  std::vector<double> times;
  for (const Round* round : rounds) {
    for (const FrameTimes& frame : *round) times.push_back(TimeOf(frame, part));
  }
  return Summarize(times);
}

bool AreNear(std::initializer_list<double> values) {
  return std::max(values) <= std::min(values) * (1 + kSteady);
}

bool IsSteady(const std::vector<Times>& rounds) {
  return AreNear({rounds[0].p50, rounds[1].p50, rounds[2].p50}) &&
         AreNear({rounds[0].p90, rounds[1].p90, rounds[2].p90});
}

}  // namespace

Latency MeasureLatency(const std::function<FrameTimes()>& frame, double seconds) {
  const double end = SteadyMilliseconds() + seconds * 1000;
  for (std::size_t i = 0; i < kFewFrames; ++i) frame();
  Latency latency;
  std::vector<Round> last;
  while (!latency.is_steady && (last.size() < kRounds || SteadyMilliseconds() < end)) {
    last.push_back(RunRound(frame));
    if (last.size() > kRounds) last.erase(last.begin());
    ++latency.rounds;
    if (last.size() < kRounds) continue;
    for (int part = 0; part < kPartCount; ++part) {
      latency.by_round[part].clear();
      for (const Round& round : last) latency.by_round[part].push_back(TimesOf({&round}, part));
    }
    latency.is_steady = IsSteady(latency.by_round[kWhole]);
  }
  for (const Round& round : last) latency.frames += round.size();
  for (int part = 0; part < kPartCount; ++part) {
    latency.times[part] = TimesOf({&last[0], &last[1], &last[2]}, part);
  }
  return latency;
}

void PrintLatency(const Latency& latency) {
  std::printf("%zu frames, %s\n", latency.frames,
              latency.is_steady
                  ? "steady: p50 and p90 of three rounds lie within 5 %"
                  : "NOT STEADY: p50 or p90 of the last three rounds differ by more than 5 %");
  std::printf("  %-10s %9s %9s %9s %9s\n", "ms", "p50", "p90", "p99", "max");
  for (int part = 0; part < kPartCount; ++part) {
    const Times& times = latency.times[part];
    std::printf("  %-10s %9.3f %9.3f %9.3f %9.3f\n", kPartNames[part], times.p50, times.p90,
                times.p99, times.max);
  }
}

Json ToJson(const Latency& latency) {
  const auto json = [](const Times& times) {
    return Json{{"p50", times.p50}, {"p90", times.p90}, {"p99", times.p99}, {"max", times.max}};
  };
  Json parts = Json::object();
  for (int part = 0; part < kPartCount; ++part) {
    Json one = json(latency.times[part]);
    one["rounds"] = Json::array();
    for (const Times& round : latency.by_round[part]) one["rounds"].push_back(json(round));
    parts[kPartNames[part]] = one;
  }
  return {{"is_steady", latency.is_steady},
          {"rounds", latency.rounds},
          {"frames", latency.frames},
          {"milliseconds", parts}};
}

}  // namespace corvane_tool
