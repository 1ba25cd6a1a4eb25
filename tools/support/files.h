// Whole files in, whole files out. Every failure is a Failure that names the file and the cause.
#ifndef CORVANE_TOOLS_SUPPORT_FILES_H_
#define CORVANE_TOOLS_SUPPORT_FILES_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace corvane_tool {

std::vector<uint8_t> ReadFile(const std::string& path);

// Replaces the file when all of it has been written: a failure leaves the old one.
void WriteFile(const std::string& path, const void* bytes, std::size_t count);

// The files that a command reads and writes, so that no output replaces one of them.
class FileNames {
 public:
  // Empty names are left out.
  explicit FileNames(const std::vector<std::string>& inputs);
  // Fails if the output is one of the inputs or an earlier output, also by another path or a link.
  void AddOutput(const std::string& output);

 private:
  // Null for a file that was not there yet, which is added; else whether it is an input.
  const bool* FindOrAdd(const std::string& path, bool is_input);

  std::map<std::string, bool> spellings_;  // whether it is an input, by the path without links
  std::map<std::pair<uint64_t, uint64_t>, bool> files_;  // the same, by device and inode
};

// A file that grows line by line and that others may read meanwhile.
class LineFile {
 public:
  // Replaces the file's content, if there is one. Throws Failure.
  explicit LineFile(std::string path);
  LineFile(const LineFile&) = delete;
  LineFile& operator=(const LineFile&) = delete;
  ~LineFile();

  // The line is in the file when the call returns. Throws Failure.
  void Append(const std::string& line);

 private:
  std::string path_;
  int descriptor_;
};

// Makes the folder and those above it, where they are missing.
void MakeFolder(const std::string& path);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_FILES_H_
