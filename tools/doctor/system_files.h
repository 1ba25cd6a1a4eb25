// The kernel's files about the machine, below a root that need not be this machine's.
#ifndef CORVANE_TOOLS_DOCTOR_SYSTEM_FILES_H_
#define CORVANE_TOOLS_DOCTOR_SYSTEM_FILES_H_

#include <optional>
#include <string>
#include <vector>

namespace corvane_tool {

class SystemFiles {
 public:
  // root: empty for this machine.
  explicit SystemFiles(std::string root) : root_(std::move(root)) {}

  // Without the white space at its end; nothing where it cannot be read.
  std::optional<std::string> Read(const std::string& path) const;
  std::optional<long long> ReadNumber(const std::string& path) const;

  // The names in a folder, sorted; none where it is not there.
  std::vector<std::string> List(const std::string& path) const;

  bool Exists(const std::string& path) const;
  // Whether this user may read and write it.
  bool IsOpenToUs(const std::string& path) const;

 private:
  std::string root_;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_DOCTOR_SYSTEM_FILES_H_
