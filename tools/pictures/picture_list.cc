#include "tools/pictures/picture_list.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <system_error>

#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

namespace fs = std::filesystem;

bool IsPictureName(const fs::path& path) {
  std::string end = path.extension().string();
  std::transform(end.begin(), end.end(), end.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return end == ".png" || end == ".jpg" || end == ".jpeg";
}

void AddFolder(const std::string& folder, std::vector<std::string>* pictures) {
  std::vector<std::string> found;
  std::error_code error;
  fs::recursive_directory_iterator entries(folder, error);
  for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
    std::error_code ignored;  // a link to nowhere is no picture
    if (entries->is_regular_file(ignored) && IsPictureName(entries->path())) {
      found.push_back(entries->path().string());
    }
  }
  if (error) throw Failure(folder + ": " + error.message());
  if (found.empty()) throw Failure(folder + ": holds no .png, .jpg or .jpeg file");
  std::sort(found.begin(), found.end());
  pictures->insert(pictures->end(), found.begin(), found.end());
}

void AddPictureOrFolder(const std::string& name, std::vector<std::string>* pictures) {
  std::error_code ignored;
  if (fs::is_directory(name, ignored)) {
    AddFolder(name, pictures);
  } else {
    pictures->push_back(name);
  }
}

void AddLines(std::istream& lines, const fs::path& folder, std::vector<std::string>* pictures) {
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) AddPictureOrFolder((folder / line).string(), pictures);
  }
}

}  // namespace

std::vector<std::string> ExpandPictures(const std::vector<std::string>& arguments) {
  std::vector<std::string> pictures;
  for (const std::string& argument : arguments) {
    const bool is_list =
        argument.size() > 1 && (argument[0] == '@' || fs::path(argument).extension() == ".txt");
    if (argument == "-") {
      AddLines(std::cin, "", &pictures);
    } else if (is_list) {
      const std::string name = argument.substr(argument[0] == '@' ? 1 : 0);
      std::ifstream file(name);
      if (!file || fs::is_directory(name)) throw Failure(name + ": the list cannot be read");
      AddLines(file, fs::path(name).parent_path(), &pictures);
    } else {
      AddPictureOrFolder(argument, &pictures);
    }
  }
  if (pictures.empty()) throw Failure("no picture is named");
  return pictures;
}

namespace {

bool AreDistinct(const std::vector<std::string>& names) {
  return std::set<std::string>(names.begin(), names.end()).size() == names.size();
}

// The folder that all paths lie in or below.
fs::path SharedFolder(const std::vector<fs::path>& paths) {
  fs::path shared = paths[0].parent_path();
  for (const fs::path& path : paths) {
    const fs::path folder = path.parent_path();
    const auto end = std::mismatch(shared.begin(), shared.end(), folder.begin(), folder.end());
    fs::path common;
    for (auto part = shared.begin(); part != end.first; ++part) common /= *part;
    shared = common;
  }
  return shared;
}

}  // namespace

std::vector<std::string> ResultNames(const std::vector<std::string>& pictures) {
  std::vector<std::string> names;
  names.reserve(pictures.size());
  for (const std::string& picture : pictures) names.push_back(fs::path(picture).stem().string());
  if (AreDistinct(names)) return names;

  std::vector<fs::path> paths;
  paths.reserve(pictures.size());
  for (const std::string& picture : pictures) {
    paths.push_back(fs::absolute(picture).lexically_normal());
  }
  const fs::path shared = SharedFolder(paths);
  names.clear();
  for (const fs::path& path : paths) {
    names.push_back(path.lexically_relative(shared).replace_extension().string());
  }
  if (AreDistinct(names)) return names;
  names.clear();
  for (const fs::path& path : paths) names.push_back(path.lexically_relative(shared).string());
  std::set<std::string> seen;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (!seen.insert(names[i]).second) throw Failure(pictures[i] + ": is given twice");
  }
  return names;
}

}  // namespace corvane_tool
