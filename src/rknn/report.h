// The backend's diagnostic lines.
#ifndef CORVANE_SRC_RKNN_REPORT_H_
#define CORVANE_SRC_RKNN_REPORT_H_

#include <cstdio>

namespace corvane {

// Writes one line to stdout or stderr at once. On stderr it is a single write, so lines of parallel
// threads do not mix. A line that cannot be written is lost: a closed pipe raises no SIGPIPE.
void WriteLine(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace corvane

// A line of the forward operation on standard error. The path is part of the line's format: it is
// the same in every source file.
#define CORVANE_TEXT_OF(number) #number
#define CORVANE_LINE_TEXT(number) CORVANE_TEXT_OF(number)
#define CORVANE_REPORT(...) \
  ::corvane::WriteLine(stderr, "[src/rknn/rknn(" CORVANE_LINE_TEXT(__LINE__) ")] " __VA_ARGS__)

#endif  // CORVANE_SRC_RKNN_REPORT_H_
