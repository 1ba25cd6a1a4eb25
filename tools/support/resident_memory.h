#ifndef CORVANE_TOOLS_SUPPORT_RESIDENT_MEMORY_H_
#define CORVANE_TOOLS_SUPPORT_RESIDENT_MEMORY_H_

#include <unistd.h>

#include <fstream>

namespace corvane_tool {

// What this process has in memory, in kB; 0 where /proc is not there.
inline long ResidentKilobytes() {
  std::ifstream file("/proc/self/statm");
  long pages = 0, resident = 0;
  file >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_RESIDENT_MEMORY_H_
