#include "simulator/interface/report.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "simulator/forever.h"

namespace rknn_sim {

namespace {

constexpr std::size_t kLinesKept = 1000;

struct Reports {
  std::mutex mutex;
  uint64_t count = 0;
  Vector<String> lines;
};

Forever<Reports> reports;

}  // namespace

void ReportMisuse(const char* where, int code, const char* text) {
  char line[640];
  std::snprintf(line, sizeof(line), "rknn simulator: %s: %s [ret=%d]", where, text, code);
  // Names and messages from model files must not make a second line or drive a terminal.
  for (char* character = line; *character != '\0'; ++character) {
    if (static_cast<uint8_t>(*character) < ' ' || *character == '\x7f') *character = '?';
  }
  std::fprintf(stderr, "%s\n", line);

  const std::lock_guard<std::mutex> lock(reports->mutex);
  ++reports->count;
  if (reports->lines.size() < kLinesKept) reports->lines.emplace_back(line);
}

bool Refuse(String* why, const char* format, ...) {
  char text[300];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  *why = text;
  return false;
}

uint64_t ReportedCount() {
  const std::lock_guard<std::mutex> lock(reports->mutex);
  return reports->count;
}

Vector<String> ReportedLines() {
  const std::lock_guard<std::mutex> lock(reports->mutex);
  return reports->lines;
}

void ForgetReports() {
  const std::lock_guard<std::mutex> lock(reports->mutex);
  reports->count = 0;
  reports->lines.clear();
}

}  // namespace rknn_sim
