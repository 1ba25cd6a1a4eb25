#include "simulator/control/environment.h"

#include <cstdlib>
#include <string_view>

#include "simulator/control/call_log.h"
#include "simulator/control/faults.h"
#include "simulator/interface/report.h"
#include "simulator/models/parse_number.h"

namespace rknn_sim {

namespace {

int threads_wanted = 1;

bool ParseThreads(std::string_view text, int* threads) {
  constexpr int kMaxThreads = 256;
  return ParseInteger(text, threads) && *threads >= 1 && *threads <= kMaxThreads;
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

}  // namespace rknn_sim
