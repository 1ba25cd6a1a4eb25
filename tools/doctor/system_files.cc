#include "tools/doctor/system_files.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

namespace corvane_tool {

std::optional<std::string> SystemFiles::Read(const std::string& path) const {
  std::ifstream file(root_ + path, std::ios::binary);
  std::ostringstream all;
  if (!file || !(all << file.rdbuf())) return std::nullopt;
  std::string text = all.str();
  text.erase(text.find_last_not_of(" \t\n") + 1);
  return text;
}

std::optional<long long> SystemFiles::ReadNumber(const std::string& path) const {
  const std::optional<std::string> text = Read(path);
  if (!text || text->empty()) return std::nullopt;
  char* end = nullptr;
  const long long number = std::strtoll(text->c_str(), &end, 10);
  return *end == '\0' ? std::optional<long long>(number) : std::nullopt;
}

std::vector<std::string> SystemFiles::List(const std::string& path) const {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir((root_ + path).c_str()), &closedir);
  if (folder == nullptr) return names;
  while (const dirent* entry = readdir(folder.get())) names.emplace_back(entry->d_name);
  std::sort(names.begin(), names.end());
  return names;
}

bool SystemFiles::Exists(const std::string& path) const {
  return access((root_ + path).c_str(), F_OK) == 0;
}

bool SystemFiles::IsOpenToUs(const std::string& path) const {
  return access((root_ + path).c_str(), R_OK | W_OK) == 0;
}

}  // namespace corvane_tool
