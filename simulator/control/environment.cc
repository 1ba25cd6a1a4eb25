#include "simulator/control/environment.h"

#include <cstdlib>
#include <string_view>

#include "simulator/control/call_log.h"
#include "simulator/control/faults.h"
#include "simulator/interface/report.h"
#include "simulator/numbers/parse_number.h"

namespace rknn_sim {

namespace {

int threads_wanted = 1;
WantedEngine engine_wanted = WantedEngine::kAny;
String onnxruntime_wanted;  // empty where none is named

bool ParseThreads(std::string_view text, int* threads) {
  constexpr int kMaxThreads = 256;
  return ParseInteger(text, threads) && *threads >= 1 && *threads <= kMaxThreads;
}

bool ParseEngine(std::string_view text, WantedEngine* engine) {
  if (text == "opencv") *engine = WantedEngine::kOpenCv;
  if (text == "onnxruntime") *engine = WantedEngine::kOnnxRuntime;
  return text.empty() || text == "opencv" || text == "onnxruntime";
}

bool Read() {
  String why;
  const char* faults = std::getenv("CORVANE_SIM_FAULTS");
  if (faults != nullptr && !OrderFaults(faults, &TheScript(), &why)) {
    ReportMisuse("CORVANE_SIM_FAULTS", RKNN_ERR_PARAM_INVALID, why.c_str());
  }
  const char* path = std::getenv("CORVANE_SIM_TRACE");
  if (path != nullptr && *path != '\0' && !TheCallLog().Open(path, &why)) {
    ReportMisuse("CORVANE_SIM_TRACE", RKNN_ERR_PARAM_INVALID, why.c_str());
  }
  const char* threads = std::getenv("CORVANE_SIM_THREADS");
  int count = 1;
  if (threads != nullptr && !ParseThreads(threads, &count)) {
    Refuse(&why, "'%.60s' is not understood; wanted a number from 1 to 256", threads);
    ReportMisuse("CORVANE_SIM_THREADS", RKNN_ERR_PARAM_INVALID, why.c_str());
    count = 1;
  }
  threads_wanted = count;
  const char* path_of_onnxruntime = std::getenv("CORVANE_SIM_ONNXRUNTIME");
  if (path_of_onnxruntime != nullptr) onnxruntime_wanted = path_of_onnxruntime;
  if (!onnxruntime_wanted.empty()) engine_wanted = WantedEngine::kOnnxRuntime;
  const char* engine = std::getenv("CORVANE_SIM_ENGINE");
  if (engine != nullptr && !ParseEngine(engine, &engine_wanted)) {
    Refuse(&why, "'%.60s' is not understood; wanted opencv or onnxruntime", engine);
    ReportMisuse("CORVANE_SIM_ENGINE", RKNN_ERR_PARAM_INVALID, why.c_str());
  }
  return true;
}

}  // namespace

void ReadEnvironmentOnce() {
  static const bool is_read = Read();
  static_cast<void>(is_read);
}

int ThreadsWanted() {
  ReadEnvironmentOnce();
  return threads_wanted;
}

WantedEngine EngineWanted() {
  ReadEnvironmentOnce();
  return engine_wanted;
}

const char* OnnxRuntimeWanted() {
  ReadEnvironmentOnce();
  return onnxruntime_wanted.empty() ? nullptr : onnxruntime_wanted.c_str();
}

}  // namespace rknn_sim
