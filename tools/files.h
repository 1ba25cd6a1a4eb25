// Whole files in, whole files out. Every failure is a Failure that names the file and the cause.
#ifndef CORVANE_TOOLS_FILES_H_
#define CORVANE_TOOLS_FILES_H_

#include <cstddef>
#include <cstdint>
#include <string>
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
  std::vector<std::string> inputs_;
  std::vector<std::string> outputs_;
};

// Makes the folder and those above it, where they are missing.
void MakeFolder(const std::string& path);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_FILES_H_
