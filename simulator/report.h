// The one way a misuse is told: a line on standard error, kept for tests.
#ifndef CORVANE_SIMULATOR_REPORT_H_
#define CORVANE_SIMULATOR_REPORT_H_

#include <cstdarg>
#include <cstdint>

#include "malloc_allocator.h"

namespace rknn_sim {

// Writes "rknn simulator: WHERE: TEXT [ret=CODE]\n" in one call and returns code.
int ReportMisuse(const char* where, int code, const char* format, std::va_list arguments);

uint64_t ReportedCount();
Vector<String> ReportedLines();
void ForgetReports();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_REPORT_H_
