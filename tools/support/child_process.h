// Runs a piece of this program in a process of its own, which may crash or hang.
#ifndef CORVANE_TOOLS_SUPPORT_CHILD_PROCESS_H_
#define CORVANE_TOOLS_SUPPORT_CHILD_PROCESS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane_tool {

struct ChildAnswer {
  std::vector<uint8_t> bytes;  // what it wrote, until it ended or was late
  bool is_late = false;        // it was silent for too long and has been killed
  std::string end;             // how it ended otherwise than well: "signal 11", "status 3"
};

// body(file) runs in a forked child and writes to the file; an exception ends the child with status
// 1. silence: how long the child may write nothing; zero: for ever. Throws Failure where no process
// can be made.
ChildAnswer RunInChild(const std::function<void(int file)>& body,
                       std::chrono::milliseconds silence);

// All of it, in spite of signals. A reader that has gone is no error.
void WriteAll(int file, const void* bytes, std::size_t count);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_CHILD_PROCESS_H_
