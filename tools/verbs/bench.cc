#include <atomic>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "tools/bench/change.h"
#include "tools/bench/latency.h"
#include "tools/bench/parallel.h"
#include "tools/commands.h"
#include "tools/doctor/system_files.h"
#include "tools/settings/numbers.h"
#include "tools/support/child_process.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"
#include "tools/support/quiet_stdout.h"
#include "tools/support/resident_memory.h"
#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

// Tells the parent process that frames still come, and what was measured at the end.
class Pulse {
 public:
  explicit Pulse(int file) : file_(file) {}

  void Beat() {
    constexpr double kEach = 100;  // milliseconds
    const double now = SteadyMilliseconds();
    if (now - last_.load(std::memory_order_relaxed) < kEach) return;
    last_.store(now, std::memory_order_relaxed);
    WriteAll(file_, "\n", 1);
  }
  void End(const Json& result) {
    const std::string text = Text(result);
    WriteAll(file_, text.data(), text.size());
  }

 private:
  const int file_;
  std::atomic<double> last_{0};
};

ModelRunner LoadQuietly(const RunSettings& settings) {
  const QuietStdout quiet;
  return ModelRunner(settings);
}

// A backend with its frame.
class Lane {
 public:
  Lane(const RunSettings& settings, Pulse* pulse)
      : settings_(settings), runner_(LoadQuietly(settings)), pulse_(pulse) {
    const auto [width, height] = runner_.input();
    pixels_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                   static_cast<std::size_t>(settings.channels()));
    std::minstd_rand random;
    for (uint8_t& pixel : pixels_) pixel = static_cast<uint8_t>(random() >> 8);
  }

  FrameTimes RunFrame() {
    const auto [width, height] = runner_.input();
    const FrameTimes times =
        runner_.Forward(settings_.model, pixels_.data(), width, height, &outputs_);
    pulse_->Beat();
    return times;
  }

 private:
  const RunSettings& settings_;
  ModelRunner runner_;
  Pulse* const pulse_;
  std::vector<uint8_t> pixels_;
  std::vector<corvane::OutputTensor> outputs_;
};

Json MachineState() {
  const SystemFiles files("");
  Json state = {{"megahertz", Json::array()}, {"celsius", Json::array()}};
  for (const std::string& policy : files.List("/sys/devices/system/cpu/cpufreq")) {
    const auto now =
        files.ReadNumber("/sys/devices/system/cpu/cpufreq/" + policy + "/scaling_cur_freq");
    if (now) state["megahertz"].push_back(*now / 1000);
  }
  for (const std::string& zone : files.List("/sys/class/thermal")) {
    const auto now = files.ReadNumber("/sys/class/thermal/" + zone + "/temp");
    if (now) state["celsius"].push_back(*now / 1000);
  }
  return state;
}

Json Measure(const RunSettings& settings, int parallel, double seconds, Pulse* pulse) {
  Json result = {{"model", settings.model},
                 {"kind", settings.input_type_name},
                 {"pixel_type", settings.pixel_type_name},
                 {"before", MachineState()}};
  std::vector<std::unique_ptr<Lane>> lanes;
  lanes.push_back(std::make_unique<Lane>(settings, pulse));
  const Latency latency = MeasureLatency([&] { return lanes[0]->RunFrame(); }, seconds);
  std::printf("%s, kind %s: ", settings.model.c_str(), settings.input_type_name.c_str());
  PrintLatency(latency);
  result["latency"] = ToJson(latency);

  const long before = ResidentKilobytes();
  constexpr int kFrames = 1000;
  for (int i = 0; i < kFrames; ++i) lanes[0]->RunFrame();
  const long after = ResidentKilobytes();
  std::printf("memory: %ld kB, after %d frames %ld kB\n", before, kFrames, after);
  result["memory_kb"] = {before, after};

  std::vector<std::function<void()>> frames;
  while (lanes.size() < static_cast<std::size_t>(std::max(parallel, 2))) {
    lanes.push_back(std::make_unique<Lane>(settings, pulse));
  }
  frames.reserve(lanes.size());
  for (const auto& lane : lanes) frames.emplace_back([&lane] { lane->RunFrame(); });
  std::vector<Throughput> rows;
  for (int count = 1; count <= parallel; ++count) {
    rows.push_back(MeasureParallel(frames, static_cast<std::size_t>(count), seconds));
  }
  rows.push_back(MeasureTurns(frames, seconds));
  PrintThroughput(rows);
  result["throughput"] = ToJson(rows);
  result["after"] = MachineState();
  std::printf("clocks and temperatures (MHz, degrees Celsius): before %s, after %s\n",
              Text(result["before"]).c_str(), Text(result["after"]).c_str());
  std::fflush(stdout);
  return result;
}

}  // namespace

int Bench(const BenchOptions& options) {
  const double seconds = ParseWithin("--seconds", options.seconds, 0.1, 3600, 60);
  const int parallel = static_cast<int>(ParseWithin("--parallel", options.parallel, 1, 64, 2));
  SettingsOptions wanted = options.settings;
  if (wanted.config.empty()) {
    if (wanted.kind.empty()) wanted.kind = "float32";
    if (wanted.pixel_type.empty()) wanted.pixel_type = "RGB";
  }
  const double limit = ParseWithin("--limit", options.limit, 0.1, 3600, 30);
  const RunSettings settings = ReadSettings(wanted, {});
  FileNames({settings.model, options.compare}).AddOutput(options.json);
  Json then;
  if (!options.compare.empty()) then = ReadBench(options.compare);
  const ChildAnswer child = RunInChild(
      [&](int file) {
        Pulse pulse(file);
        try {
          pulse.End(Measure(settings, parallel, seconds, &pulse));
        } catch (const Failure& failure) {
          pulse.End({{"failure", failure.what()}});
        }
      },
      std::chrono::milliseconds(static_cast<int>(1000 * limit)));
  if (child.is_late) {
    throw Failure(settings.model + ": no frame has ended for " +
                  NumberText(static_cast<float>(limit)) + " s: the NPU or its driver hangs");
  }
  if (!child.end.empty()) throw Failure(settings.model + ": ended the process: " + child.end);
  const Json result = Json::parse(child.bytes);
  if (result.contains("failure")) throw Failure(result.at("failure").get<std::string>());
  if (!options.json.empty()) {
    const std::string text = result.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    WriteFile(options.json, text.data(), text.size());
  }
  if (options.compare.empty()) return 0;
  return PrintChanges(options.compare, then, result) ? kDiffers : 0;
}

}  // namespace corvane_tool
