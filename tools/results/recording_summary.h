// Sums up a recording of the runtime's calls.
#ifndef CORVANE_TOOLS_RESULTS_RECORDING_SUMMARY_H_
#define CORVANE_TOOLS_RESULTS_RECORDING_SUMMARY_H_

#include <string>

namespace corvane_tool {

// Prints it; false where the file is no recording. Every byte is read and checked.
bool PrintIfRecording(const std::string& path);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_RECORDING_SUMMARY_H_
