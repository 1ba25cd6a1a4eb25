// One temporary file for the whole run of a fuzz target: what takes a path reads its input there.
#ifndef CORVANE_FUZZ_SCRATCH_FILE_H_
#define CORVANE_FUZZ_SCRATCH_FILE_H_

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/byte_reader.h"

namespace corvane_fuzz {

class ScratchFile {
 public:
  ScratchFile() {
    const int descriptor = mkstemp(&path_[0]);
    Require(descriptor >= 0, "no temporary file can be made");
    close(descriptor);
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() { unlink(path_.c_str()); }

  const std::string& path() const { return path_; }
  void Write(const std::string& bytes) const {
    std::ofstream file(path_, std::ios::binary);
    file << bytes;
    Require(static_cast<bool>(file.flush()), "the temporary file cannot be written");
  }
  std::string Read() const {
    std::ifstream file(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

 private:
  std::string path_ = "/tmp/corvane_fuzz_XXXXXX";
};

}  // namespace corvane_fuzz

#endif  // CORVANE_FUZZ_SCRATCH_FILE_H_
