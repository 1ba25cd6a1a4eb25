#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/interface/rknn_names.h"
#include "tools/doctor/checks.h"
#include "tools/results/run_summary.h"
#include "tools/runtime/context.h"
#include "tools/runtime/cures.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/rknn_names.h"
#include "tools/runtime/runtime_watch.h"
#include "tools/support/child_process.h"
#include "tools/support/failure.h"
#include "tools/support/resident_memory.h"
#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

using Tensors = std::vector<std::vector<float>>;

// Tells the parent process, in one line each, what this one is about to do and what it has found:
// the next call may be the last.
class Reporter {
 public:
  explicit Reporter(int file) : file_(file) {}

  void Begin(const std::string& step) { Write({{"step", step}}); }
  void Found(const char* level, const std::string& subject, const std::string& text,
             const std::string& cure = "") {
    Write({{"level", level}, {"subject", subject}, {"text", text}, {"cure", cure}});
  }

 private:
  void Write(const Json& json) {
    const std::string line = Text(json) + "\n";
    WriteAll(file_, line.data(), line.size());
  }

  int file_;
};

std::string Milliseconds(double ms) {
  char text[40];
  std::snprintf(text, sizeof(text), "%.2f ms", ms);
  return text;
}

std::string Seconds(std::chrono::milliseconds time) {
  char text[40];
  std::snprintf(text, sizeof(text), "%g s", static_cast<double>(time.count()) / 1000);
  return text;
}

// "1.7.5" of "librknn version 1.7.5 (12ab34 build: ...)"; empty without a number.
std::string VersionIn(const std::string& text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    std::size_t end = at;
    while (end < text.size() &&
           (std::isdigit(static_cast<unsigned char>(text[end])) != 0 || text[end] == '.'))
      ++end;
    std::string version = text.substr(at, end - at);
    if (std::count(version.begin(), version.end(), '.') >= 1 && version[0] != '.') return version;
    at = end;
  }
  return "";
}

void CheckVersions(const Context& context, bool is_simulator, Reporter* report) {
  rknn_sdk_version version = {};
  context.Query("RKNN_QUERY_SDK_VERSION", RKNN_QUERY_SDK_VERSION, &version);
  version.api_version[sizeof(version.api_version) - 1] = '\0';
  version.drv_version[sizeof(version.drv_version) - 1] = '\0';
  const std::string text =
      std::string("runtime ") + version.api_version + ", driver " + version.drv_version;
  const std::string api = VersionIn(version.api_version), driver = VersionIn(version.drv_version);
  const auto minor = [](const std::string& all) {
    return all.substr(0, all.find('.', all.find('.') + 1));
  };
  if (is_simulator || (api == driver && !api.empty())) {
    report->Found("ok", "versions", text);
  } else if (api.empty() || driver.empty()) {
    report->Found("look", "versions", text + ": without numbers",
                  "update runtime and driver together");
  } else {
    report->Found(minor(api) == minor(driver) ? "look" : "wrong", "versions",
                  text + ": they differ", "update runtime and driver together");
  }
}

// Whether they add up; if not, nothing else of them can be trusted.
bool CheckTensors(const char* role, const std::vector<rknn_tensor_attr>& attributes,
                  Reporter* report) {
  for (const rknn_tensor_attr& attribute : attributes) {
    const std::string text = std::string(role) + " " + std::to_string(attribute.index) + " '" +
                             TensorName(attribute) + "': " + TypeName(attribute.type) + " " +
                             FormatName(attribute.fmt) + " ";
    uint64_t elements = 1;
    const bool has_dims = attribute.n_dims <= RKNN_MAX_DIMS;
    for (uint32_t i = 0; has_dims && i < attribute.n_dims; ++i) elements *= attribute.dims[i];
    const uint64_t bytes = elements * rknn_sim::ElementBytes(rknn_sim::RawValue(attribute.type));
    if (has_dims && elements == attribute.n_elems && bytes == attribute.size) {
      report->Found("ok", "tensors", text + ShapeText(Shape(attribute)));
    } else {
      report->Found("wrong", "tensors",
                    text + std::to_string(attribute.n_dims) + " dims, " +
                        std::to_string(attribute.n_elems) + " elements, " +
                        std::to_string(attribute.size) + " bytes do not agree",
                    "the runtime has other records, or the model is damaged: compare checksums");
      return false;
    }
  }
  return true;
}

Tensors Zeros(const std::vector<rknn_tensor_attr>& inputs) {
  Tensors tensors;
  for (const rknn_tensor_attr& input : inputs) tensors.emplace_back(input.n_elems, 0.0f);
  return tensors;
}

Tensors Noise(const std::vector<rknn_tensor_attr>& inputs) {
  Tensors tensors = Zeros(inputs);
  std::minstd_rand random;
  for (std::vector<float>& tensor : tensors) {
    for (float& number : tensor) number = static_cast<float>((random() >> 8) & 255);
  }
  return tensors;
}

std::size_t CountDifferences(const Tensors& a, const Tensors& b) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    for (std::size_t k = 0; k < std::min(a[i].size(), b[i].size()); ++k) {
      count += a[i][k] == b[i][k] || (std::isnan(a[i][k]) && std::isnan(b[i][k])) ? 0 : 1;
    }
  }
  return count;
}

std::size_t CountValues(const Tensors& tensors, bool (*is_counted)(float)) {
  std::size_t count = 0;
  for (const auto& tensor : tensors)
    count += static_cast<std::size_t>(std::count_if(tensor.begin(), tensor.end(), is_counted));
  return count;
}

void CheckAnswers(Context* context, const std::vector<rknn_tensor_attr>& inputs, Reporter* report) {
  const auto run = [&](Tensors tensors) { return context->Run(tensors.data(), tensors.size()); };
  report->Begin("a run on zeros");
  const Tensors dark = run(Zeros(inputs));
  report->Begin("a run on noise");
  const Tensors first = run(Noise(inputs)), second = run(Noise(inputs));
  const std::size_t all = CountValues(first, [](float) { return true; });
  const std::string of_all = " of " + std::to_string(all) + " values";
  const std::size_t changed = CountDifferences(first, second);
  const std::size_t bad = CountValues(first, [](float value) { return !std::isfinite(value); });
  if (changed > 0) {
    report->Found("wrong", "answers",
                  "the same input gave other outputs: " + std::to_string(changed) + of_all,
                  "update the driver; an unstable supply or clock of the NPU does this, too");
  } else if (bad > 0) {
    report->Found("look", "answers", "NaN or infinite on noise: " + std::to_string(bad) + of_all,
                  "the model overflows: look at its quantisation and at its normalisation");
  } else if (all > 0 && CountDifferences(first, dark) == 0) {
    report->Found(
        "look", "answers", "noise and zeros give the same outputs",
        "the input does not reach the model: look at its type and format by corvane info");
  } else {
    report->Found("ok", "answers",
                  "the same input gives the same outputs, " + std::to_string(all) + " values");
  }
}

void CheckManyRuns(Context* context, const std::vector<rknn_tensor_attr>& inputs,
                   Reporter* report) {
  constexpr int kFirst = 20, kAll = 120;
  constexpr double kLongEnough = 20000;  // milliseconds
  Tensors tensors = Noise(inputs);
  std::vector<double> times;
  long before = 0;
  double spent = 0;
  int runs = 0;
  for (; runs < kAll && (runs < 3 || spent < kLongEnough); ++runs) {
    report->Begin("run " + std::to_string(runs + 1) + " of many");
    if (runs == kFirst) before = ResidentKilobytes();
    const double begin = SteadyMilliseconds();
    context->Run(tensors.data(), tensors.size());
    times.push_back(SteadyMilliseconds() - begin);
    spent += times.back();
  }
  const Times summary = Summarize(times);
  report->Found("ok", "time",
                std::to_string(runs) + " runs: p50 " + Milliseconds(summary.p50) + ", p99 " +
                    Milliseconds(summary.p99) + ", longest " + Milliseconds(summary.max));
  if (runs <= kFirst) return;
  const long growth = ResidentKilobytes() - before;
  if (growth >= 1024) {
    report->Found("look", "memory",
                  "grows by " + std::to_string(growth / (runs - kFirst)) + " kB a run",
                  "the runtime leaks: update it, or start the program anew from time to time");
  } else {
    report->Found("ok", "memory",
                  "does not grow from run to run; " + std::to_string(ResidentKilobytes() / 1024) +
                      " MB in use");
  }
}

void Try(const std::string& path, bool is_simulator, Reporter* report) {
  const std::vector<uint8_t> model = ReadModelFile(path).model;
  report->Begin("rknn_init");
  const double begin = SteadyMilliseconds();
  Context context(path, model);
  report->Found("ok", "load", "in " + Milliseconds(SteadyMilliseconds() - begin));
  report->Begin("rknn_query");
  CheckVersions(context, is_simulator, report);
  const std::vector<rknn_tensor_attr> inputs = context.Inputs();
  if (!CheckTensors("input", inputs, report)) return;
  if (!CheckTensors("output", context.Outputs(), report)) return;
  CheckAnswers(&context, inputs, report);
  CheckManyRuns(&context, inputs, report);
  report->Begin("rknn_destroy");
}

void TryAndReport(const std::string& path, bool is_simulator, int file) {
  Reporter report(file);
  try {
    Try(path, is_simulator, &report);
  } catch (const Failure& failure) {
    report.Found("wrong", "runs", failure.what(), CureOf(WatchedRuntime().failed_code));
  }
}

}  // namespace

void CheckRuns(const std::string& path, bool is_simulator, std::chrono::milliseconds limit,
               Findings* findings) {
  const ChildAnswer child =
      RunInChild([&](int file) { TryAndReport(path, is_simulator, file); }, limit);
  std::istringstream lines(std::string(child.bytes.begin(), child.bytes.end()));
  std::string step = "the process";
  for (std::string line; std::getline(lines, line);) {
    const Json json = Json::parse(line, nullptr, false);
    if (json.is_discarded()) continue;
    step = json.value("step", step);
    const std::string level = json.value("level", "");
    const std::string subject = json.value("subject", ""), text = json.value("text", ""),
                      cure = json.value("cure", "");
    if (level == "ok") findings->Ok(subject, text);
    if (level == "look") findings->Look(subject, text, cure);
    if (level == "wrong") findings->Wrong(subject, text, cure);
  }
  if (child.is_late) {
    findings->Wrong("runs", step + " has not ended in " + Seconds(limit),
                    "the NPU or its driver hangs: restart the vendor's service, or the board");
  } else if (!child.end.empty()) {
    findings->Wrong(
        "runs", step + " ended the process: " + child.end,
        "the runtime crashes: update it, and look at the model by corvane info on a PC");
  }
}

}  // namespace corvane_tool
