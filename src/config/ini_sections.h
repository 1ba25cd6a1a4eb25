// What a document consists of, for the files of this folder.
#ifndef CORVANE_SRC_CONFIG_INI_SECTIONS_H_
#define CORVANE_SRC_CONFIG_INI_SECTIONS_H_

#include <memory>
#include <string>
#include <vector>

#include "corvane/ini_file.h"

namespace corvane {

using IniSections = std::vector<std::unique_ptr<IniFileSection>>;

// The section with the name, or null.
inline IniFileSection* FindSection(const IniSections& sections, const std::string& name) {
  for (const auto& section : sections) {
    if (section->name == name) return section.get();
  }
  return nullptr;
}

// IniFile's private parts.
struct IniFileParts {
  static const IniSections& Sections(const IniFile& document) { return document.sections; }
  static const std::string& Delimiter(const IniFile& document) { return document.commentDelimiter; }
};

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_INI_SECTIONS_H_
