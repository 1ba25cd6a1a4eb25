#include "environment.h"

#include <cstdlib>

#include "call_log.h"
#include "faults.h"
#include "report.h"

namespace rknn_sim {

namespace {

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
  return true;
}

}  // namespace

void ReadEnvironmentOnce() {
  static const bool is_read = Read();
  static_cast<void>(is_read);
}

}  // namespace rknn_sim
