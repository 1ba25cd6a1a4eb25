// INI files beside SimpleIni, and SplitByChar beside a string stream, in one run:
//
//   ini_bench --benchmark_enable_random_interleaving --benchmark_repetitions=9
//             --benchmark_report_aggregates_only
//
// Executed instructions, one pair of operations by its inclusive counts:
//
//   valgrind --tool=callgrind --callgrind-out-file=out ini_bench --benchmark_filter=Query
//   callgrind_annotate --inclusive=yes out | grep QueryWith
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "corvane/ini_file.h"
#include "corvane/util.h"
#ifdef CORVANE_BENCH_SIMPLEINI
#define SI_NO_CONVERSION   // bytes, as here
#define SI_IMPLEMENTATION  // compiled with the flags of this program
#include <SimpleIni.h>
#endif

namespace {

// Six sections with a comment each and five to ten keys: what a device's settings look like.
std::string TypicalText() {
  const char* const sections[] = {"camera", "detector", "recognition", "network", "display", "log"};
  const char* const keys[] = {"enabled", "width", "height", "threshold", "model_path",
                              "address", "gain",  "retry",  "interval",  "name"};
  const char* const values[] = {
      "true", "1280", "720", "0.62",      "/userdata/models/face_rec_v3.rknn", "192.168.1.20:8080",
      "1.5",  "3",    "250", "front door"};
  std::string text;
  for (int s = 0; s < 6; ++s) {
    text += "# settings of the " + std::string(sections[s]) + "\n[" + sections[s] + "]\n";
    for (int k = 0; k < (s % 2 == 0 ? 7 : 8); ++k) {
      text += std::string(keys[k]) + " = " + values[k] + "\n";
    }
    text += "\n";
  }
  return text;  // 63 lines
}

std::string ManyLines(int lines, int lines_per_section) {
  std::string text;
  for (int i = 0; i < lines; ++i) {
    const std::string n = std::to_string(i);
    text +=
        i % lines_per_section == 0 ? "[section" + n + "]\n" : "key" + n + " = value " + n + "\n";
  }
  return text;
}

// A file by its content, removed at exit.
const std::string& PathOf(const std::string& text) {
  struct Files {
    ~Files() {
      for (const auto& file : paths) unlink(file.second.c_str());
    }
    std::map<std::string, std::string> paths;
  };
  static Files files;
  std::string& path = files.paths[text];
  if (path.empty()) {
    // In memory: the libraries are to be compared, not disks.
    char name[] = "/dev/shm/corvane_ini_bench_XXXXXX";
    close(mkstemp(name));
    std::ofstream(name) << text;
    path = name;
  }
  return path;
}

const std::string kTypical = TypicalText();

struct Corvane {
  using Document = corvane::IniFile;
  static bool Load(Document* document, const std::string& path) {
    return document->Load(path) == corvane::INI_OK;
  }
  static void Save(const Document& document, const std::string& path) { document.SaveAs(path); }
};

// Ten typed values, of which one is missing.
__attribute__((noinline)) double QueryWithCorvane(const std::string& path) {
  corvane::IniFile document;
  document.Load(path);
  int width, height, retry, interval;
  double threshold, gain;
  bool enabled = false;
  std::string model, address, name;
  document.GetBoolValueOrDefault("camera", "enabled", &enabled, false);
  document.GetIntValueOrDefault("camera", "width", &width, 640);
  document.GetIntValueOrDefault("camera", "height", &height, 480);
  document.GetDoubleValueOrDefault("detector", "threshold", &threshold, 0.5);
  document.GetStringValueOrDefault("detector", "model_path", &model, "");
  document.GetStringValueOrDefault("network", "address", &address, "");
  document.GetIntValueOrDefault("network", "retry", &retry, 1);
  document.GetDoubleValueOrDefault("display", "gain", &gain, 1.0);
  document.GetIntValueOrDefault("log", "interval", &interval, 100);
  document.GetStringValueOrDefault("log", "address", &name, "");
  return enabled + width + height + threshold + gain + retry + interval +
         static_cast<double>(model.size() + address.size() + name.size());
}

#ifdef CORVANE_BENCH_SIMPLEINI
struct SimpleIni {
  using Document = CSimpleIniCaseA;
  static bool Load(Document* document, const std::string& path) {
    return document->LoadFile(path.c_str()) == SI_OK;
  }
  static void Save(const Document& document, const std::string& path) {
    document.SaveFile(path.c_str(), false);
  }
};

__attribute__((noinline)) double QueryWithSimpleIni(const std::string& path) {
  CSimpleIniCaseA document;
  document.LoadFile(path.c_str());
  const bool enabled = document.GetBoolValue("camera", "enabled", false);
  const long width = document.GetLongValue("camera", "width", 640);
  const long height = document.GetLongValue("camera", "height", 480);
  const double threshold = document.GetDoubleValue("detector", "threshold", 0.5);
  const std::string model = document.GetValue("detector", "model_path", "");
  const std::string address = document.GetValue("network", "address", "");
  const long retry = document.GetLongValue("network", "retry", 1);
  const double gain = document.GetDoubleValue("display", "gain", 1.0);
  const long interval = document.GetLongValue("log", "interval", 100);
  const std::string name = document.GetValue("log", "address", "");
  return enabled + width + height + threshold + gain + retry + interval +
         static_cast<double>(model.size() + address.size() + name.size());
}
#endif

template <typename Library>
void LoadAndFree(benchmark::State& state, const std::string& text) {
  const std::string& path = PathOf(text);
  for (auto _ : state) {
    typename Library::Document document;
    if (!Library::Load(&document, path)) state.SkipWithError("cannot load");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

template <typename Library>
void Save(benchmark::State& state) {
  typename Library::Document document;
  if (!Library::Load(&document, PathOf(kTypical))) state.SkipWithError("cannot load");
  const std::string path = "/dev/null";  // the rest is the same work of the kernel
  for (auto _ : state) Library::Save(document, path);
}

template <double (*Query)(const std::string&)>
void LoadAndTenQueries(benchmark::State& state) {
  const std::string& path = PathOf(kTypical);
  for (auto _ : state) benchmark::DoNotOptimize(Query(path));
}

template <typename Library>
void LoadTypical(benchmark::State& state) {
  LoadAndFree<Library>(state, kTypical);
}
template <typename Library>
void LoadLines(benchmark::State& state) {
  LoadAndFree<Library>(state, ManyLines(static_cast<int>(state.range(0)), 20));
}
template <typename Library>
void LoadSections(benchmark::State& state) {
  LoadAndFree<Library>(state, ManyLines(static_cast<int>(state.range(0)), 1));
}

BENCHMARK_TEMPLATE(LoadTypical, Corvane);
BENCHMARK_TEMPLATE(Save, Corvane);
BENCHMARK_TEMPLATE(LoadAndTenQueries, QueryWithCorvane)->Iterations(5000);
BENCHMARK_TEMPLATE(LoadLines, Corvane)->Arg(10000)->Arg(1000000);
BENCHMARK_TEMPLATE(LoadSections, Corvane)->Arg(20000)->Arg(100000);
#ifdef CORVANE_BENCH_SIMPLEINI
BENCHMARK_TEMPLATE(LoadTypical, SimpleIni);
BENCHMARK_TEMPLATE(Save, SimpleIni);
BENCHMARK_TEMPLATE(LoadAndTenQueries, QueryWithSimpleIni)->Iterations(5000);
BENCHMARK_TEMPLATE(LoadLines, SimpleIni)->Arg(10000)->Arg(1000000);
BENCHMARK_TEMPLATE(LoadSections, SimpleIni)->Arg(20000)->Arg(100000);
#endif

// The fields of one line: three, many short ones, few long ones, or none.
void Fields(benchmark::internal::Benchmark* bench) {
  bench->Args({3, 8})
      ->Args({40, 3})
      ->Args({40, 10000})
      ->Args({30, 300})
      ->Args({3, 1000})
      ->Args({1000, 1})
      ->Args({1000, 8})
      ->Args({100, 100})
      ->Args({3, 10000})
      ->Args({1, 1})
      ->Args({1, 100000});
}

std::string LineOf(const benchmark::State& state) {
  const std::string field(static_cast<std::size_t>(state.range(1)), 'x');
  std::string line = field;
  for (int64_t i = 1; i < state.range(0); ++i) line += ',' + field;
  return line;
}

void SplitByChar(benchmark::State& state) {
  const std::string line = LineOf(state);
  for (auto _ : state) benchmark::DoNotOptimize(corvane::SplitByChar(line, ','));
}

void SplitByStream(benchmark::State& state) {
  const std::string line = LineOf(state);
  for (auto _ : state) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, ',');) fields.push_back(field);
    benchmark::DoNotOptimize(fields);
  }
}
// The least that any way of splitting does: the fields' allocations and copies.
void SplitByOffsets(benchmark::State& state) {
  const std::string line = LineOf(state);
  const auto count = static_cast<std::size_t>(state.range(0));
  const auto length = static_cast<std::size_t>(state.range(1));
  for (auto _ : state) {
    std::vector<std::string> fields;
    fields.reserve(count);
    for (std::size_t i = 0; i < count; ++i) fields.emplace_back(&line[i * (length + 1)], length);
    benchmark::DoNotOptimize(fields);
  }
}
BENCHMARK(SplitByChar)->Apply(Fields);
BENCHMARK(SplitByOffsets)->Apply(Fields);
BENCHMARK(SplitByStream)->Apply(Fields);

}  // namespace

BENCHMARK_MAIN();
