// Tells whether a call has left a file open.
#ifndef CORVANE_TESTS_SUPPORT_DESCRIPTOR_PROBE_H_
#define CORVANE_TESTS_SUPPORT_DESCRIPTOR_PROBE_H_

#include <dirent.h>

namespace corvane_test {

// How many descriptors this process has open. A call that leaks one makes it grow.
inline int OpenDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  if (folder == nullptr) return -1;
  int count = -1;  // the folder's own
  while (const dirent* entry = readdir(folder)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(folder);
  return count;
}

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_DESCRIPTOR_PROBE_H_
