// A temporary file of a test.
#ifndef CORVANE_TESTS_SUPPORT_TEMP_FILE_H_
#define CORVANE_TESTS_SUPPORT_TEMP_FILE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace corvane_test {

// A name that no file has, in the folder for temporary files.
inline std::string UnusedPath() {
  std::string path = testing::TempDir() + "corvane_XXXXXX";
  const int descriptor = mkstemp(&path[0]);
  EXPECT_GE(descriptor, 0) << path;
  close(descriptor);
  unlink(path.c_str());
  return path;
}

// A path of its own for one file, which is removed at the end. Without bytes there is no file yet.
class TempFile {
 public:
  TempFile() : path_(UnusedPath()) {}
  explicit TempFile(const std::string& bytes) : TempFile() { Write(bytes); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile() { unlink(path_.c_str()); }

  const std::string& path() const { return path_; }
  void Write(const std::string& bytes) const {
    std::ofstream file(path_, std::ios::binary);
    file << bytes;
    EXPECT_TRUE(file.flush()) << path_;
  }
  std::string Read() const {
    std::ifstream file(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

 private:
  std::string path_;
};

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_TEMP_FILE_H_
