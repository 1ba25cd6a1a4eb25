// Runs another program.
#ifndef CORVANE_TOOLS_SUPPORT_PROGRAM_H_
#define CORVANE_TOOLS_SUPPORT_PROGRAM_H_

#include <string>
#include <vector>

namespace corvane_tool {

// With this process's environment, standard files and terminal; found by PATH. Waits for it, and
// returns its exit status; where a signal ended it, says so and returns 128 and the signal's number
// as shells do. Throws Failure where it cannot be started.
int RunProgram(const std::vector<std::string>& command);

// Throws Failure where the variable cannot be set.
void SetEnvironment(const std::string& name, const std::string& value);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_PROGRAM_H_
