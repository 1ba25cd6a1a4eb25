#include "tools/commands.h"
#include "tools/doctor/checks.h"
#include "tools/settings/numbers.h"
#include "tools/support/files.h"

namespace corvane_tool {

int Doctor(const DoctorOptions& options) {
  const std::chrono::milliseconds limit(
      static_cast<int>(1000 * ParseWithin("--limit", options.limit, 0.1, 3600, 30)));
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
