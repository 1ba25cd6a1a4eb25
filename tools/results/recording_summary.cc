#include "tools/results/recording_summary.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "recorder/recording.h"
#include "tools/results/run_summary.h"
#include "tools/runtime/rknn_names.h"

namespace corvane_tool {

namespace rec = corvane_recording;

namespace {

struct FunctionSummary {
  std::vector<double> milliseconds;
  std::map<int, std::size_t> codes;  // how often each error
};

void PrintHeader(const std::string& path, const rec::FileHeader& header) {
  const std::time_t began = static_cast<std::time_t>(header.began_us / 1000000);
  std::tm utc = {};
  char text[40] = "";
  if (gmtime_r(&began, &utc) != nullptr) {
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &utc);
  }
  std::printf("%s\n  recorded      %s on %s\n", path.c_str(), text,
              header.is_arm64 != 0 ? "AArch64" : "x86-64");
  if (header.every > 1) std::printf("  bytes         kept of 1 frame in %u\n", header.every);
}

void PrintFunctions(const std::vector<rec::RecordedCall>& calls) {
  std::map<uint32_t, FunctionSummary> functions;
  for (const rec::RecordedCall& call : calls) {
    FunctionSummary& function = functions[call.header.function];
    function.milliseconds.push_back(static_cast<double>(call.header.took_ns) / 1e6);
    if (call.header.ret != 0) ++function.codes[call.header.ret];
  }
  std::printf("  %-22s %8s %10s %10s %10s %10s\n", "function", "calls", "p50 ms", "p90 ms",
              "p99 ms", "max ms");
  for (const auto& [function, summary] : functions) {
    const Times times = Summarize(summary.milliseconds);
    std::printf("  %-22s %8zu %10.3f %10.3f %10.3f %10.3f\n", rec::NameOf(function),
                summary.milliseconds.size(), times.p50, times.p90, times.p99, times.max);
  }
  for (const auto& [function, summary] : functions) {
    for (const auto& [code, count] : summary.codes) {
      std::printf("  %s returned %s %zu times\n", rec::NameOf(function), CodeName(code).c_str(),
                  count);
    }
  }
}

void PrintModels(const std::vector<rec::RecordedCall>& calls) {
  std::map<std::pair<uint32_t, uint64_t>, std::size_t> contexts;  // by size and hash
  for (const rec::RecordedCall& call : calls) {
    if (call.header.function != rec::kInit || call.items.empty()) continue;
    ++contexts[{call.items[0].header.size, call.items[0].header.hash}];
  }
  for (const auto& [model, count] : contexts) {
    std::printf("  model         %u bytes, hash %016llx, rknn_init %zu times\n", model.first,
                static_cast<unsigned long long>(model.second), count);
  }
}

}  // namespace

bool PrintIfRecording(const std::string& path) {
  rec::Recording recording;
  std::string why;
  if (!recording.Read(path, &why)) return false;
  const std::vector<rec::RecordedCall>& calls = recording.calls();
  PrintHeader(path, recording.header());
  std::set<uint32_t> threads;
  uint64_t last_ns = 0;
  for (const rec::RecordedCall& call : calls) {
    threads.insert(call.header.thread);
    last_ns = std::max(last_ns, call.header.at_ns + call.header.took_ns);
  }
  std::printf("  calls         %zu from %zu threads in %.3f s\n", calls.size(), threads.size(),
              static_cast<double>(last_ns) / 1e9);
  PrintModels(calls);
  PrintFunctions(calls);
  if (!recording.end().empty()) std::printf("  end           %s\n", recording.end().c_str());
  return true;
}

}  // namespace corvane_tool
