#include <cstdlib>

#include "tools/commands.h"
#include "tools/doctor/checks.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {

std::chrono::milliseconds ReadLimit(const std::string& text) {
  if (text.empty()) return std::chrono::seconds(30);
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !(seconds >= 0.1 && seconds <= 3600)) {
    throw Failure("--limit: '" + text + "' is not a number of seconds from 0.1 to 3600");
  }
  return std::chrono::milliseconds(static_cast<int>(seconds * 1000));
}

}  // namespace

int Doctor(const DoctorOptions& options) {
  const std::chrono::milliseconds limit = ReadLimit(options.limit);
  FileNames({options.model}).AddOutput(options.json);
  const SystemFiles files(options.root);
  Findings findings;
  const Board board = CheckBoard(files, &findings);
  CheckMachine(files, &findings);
  CheckArithmetic(&findings);
  const RuntimeLibrary library = CheckLibrary(board, limit, &findings);
  if (!options.model.empty() && CheckModelFile(options.model, library, &findings)) {
    CheckRuns(options.model, library.is_simulator, limit, &findings);
  }
  if (!options.json.empty()) {
    const std::string text =
        findings.ToJson().dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    WriteFile(options.json, text.data(), text.size());
  }
  return static_cast<int>(findings.worst());
}

}  // namespace corvane_tool
