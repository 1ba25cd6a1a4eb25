// A private file of this process's own.
#ifndef CORVANE_TOOLS_SUPPORT_TEMPORARY_FILE_H_
#define CORVANE_TOOLS_SUPPORT_TEMPORARY_FILE_H_

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tools/support/failure.h"

namespace corvane_tool {

// Empty at first, and removed with the object. Throws Failure where it cannot be made.
class TemporaryFile {
 public:
  TemporaryFile() : path_((std::filesystem::temp_directory_path() / "corvane.XXXXXX").string()) {
    const int descriptor = mkstemp(&path_[0]);
    if (descriptor < 0) throw Failure(path_ + ": cannot be made");
    close(descriptor);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_TEMPORARY_FILE_H_
