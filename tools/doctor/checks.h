// What the doctor looks at. Each function adds its findings.
#ifndef CORVANE_TOOLS_DOCTOR_CHECKS_H_
#define CORVANE_TOOLS_DOCTOR_CHECKS_H_

#include <chrono>
#include <string>

#include "tools/doctor/findings.h"
#include "tools/doctor/system_files.h"

namespace corvane_tool {

// Boards of the runtime's generation, by the device tree.
enum class Board { kNone, kRk1808, kRk3399Pro, kUnknown };

// The board, and what its NPU needs: device node, helper process.
Board CheckBoard(const SystemFiles& files, Findings* findings);

// Cores, clocks, temperature, memory.
void CheckMachine(const SystemFiles& files, Findings* findings);

// Whether this CPU computes what every other does, and in which floating-point mode.
void CheckArithmetic(Findings* findings);

struct RuntimeLibrary {
  bool is_usable = false;  // can be called without a crash
  bool is_simulator = false;
};
// The librknn_api.so that the loader takes. No function of it is called.
RuntimeLibrary CheckLibrary(Board board, std::chrono::milliseconds limit, Findings* findings);

// Whether there is something to run on this runtime.
bool CheckModelFile(const std::string& path, const RuntimeLibrary& library, Findings* findings);

// Loads and runs the model in a process of its own. limit: for each step.
void CheckRuns(const std::string& path, bool is_simulator, std::chrono::milliseconds limit,
               Findings* findings);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_DOCTOR_CHECKS_H_
