// Files for the INI tests, and a document as one string.
#ifndef CORVANE_TESTS_SUPPORT_INI_DOCUMENTS_H_
#define CORVANE_TESTS_SUPPORT_INI_DOCUMENTS_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "corvane/ini_file.h"

namespace corvane_test {

inline std::string TempPath(const std::string& name) {
  return testing::TempDir() + "corvane_ini_" + std::to_string(getpid()) + "_" + name;
}

// A path for one file that is removed at the end.
struct TempFile {
  explicit TempFile(const std::string& name) : path(TempPath(name)) {}
  ~TempFile() { unlink(path.c_str()); }
  void Write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
  std::string Read() const {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  const std::string path;
};

// a|b||d: the texts, without empty ones at the end.
inline std::string Join(const std::vector<std::string>& texts) {
  std::string joined;
  std::size_t used = texts.size();
  while (used > 1 && texts[used - 1].empty()) --used;
  for (std::size_t i = 0; i < used; ++i) joined += (i > 0 ? "|" : "") + texts[i];
  return joined;
}

inline std::string Dump(const corvane::IniFileItem& item) {
  return "(" + Join({item.key, item.value, item.comment, item.rightComment}) + ")";
}

// [name|comment|right comment](key|value|comment|right comment)...
inline std::string Dump(const corvane::IniFileSection& section) {
  std::string text = "[" + Join({section.name, section.comment, section.rightComment}) + "]";
  for (const corvane::IniFileItem& item : section.items) text += Dump(item);
  return text;
}

inline std::string Dump(const corvane::IniFile& document) {
  std::vector<std::string> names;
  document.GetSections(&names);
  std::string text;
  for (const std::string& name : names) text += Dump(*document.getSection(name));
  return text;
}

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_INI_DOCUMENTS_H_
