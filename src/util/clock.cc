#include <sys/time.h>

#include <cmath>

#include "corvane/util.h"

namespace corvane {

double get_current_time() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  // The sum is rounded once: the fraction keeps every bit that a double has left at this magnitude.
  return std::fma(static_cast<double>(now.tv_sec), 1000.0,
                  static_cast<double>(now.tv_usec) * 0.001);
}

}  // namespace corvane
