// Reports misuses: one line on standard error each, kept for tests.
#ifndef CORVANE_SIMULATOR_INTERFACE_REPORT_H_
#define CORVANE_SIMULATOR_INTERFACE_REPORT_H_

#include <cstdint>

#include "malloc_allocator.h"

namespace rknn_sim {

// Writes "rknn simulator: WHERE: TEXT [ret=CODE]\n" in one call.
void ReportMisuse(const char* where, int code, const char* text);

// Stores a reason of up to 299 bytes in *why and returns false.
__attribute__((format(printf, 2, 3))) bool Refuse(String* why, const char* format, ...);

uint64_t ReportedCount();
Vector<String> ReportedLines();
void ForgetReports();

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_INTERFACE_REPORT_H_
