// The document itself: its life, and finding its sections.
#include <utility>

#include "corvane/ini_file.h"
#include "src/config/ini_sections.h"

namespace corvane {

IniFile::IniFile() : commentDelimiter("#") {}

IniFile::~IniFile() = default;

IniFile::IniFile(IniFile&& other) noexcept : commentDelimiter("#") {
  sections.swap(other.sections);
  filePath.swap(other.filePath);
  commentDelimiter.swap(other.commentDelimiter);
}

IniFile& IniFile::operator=(IniFile&& other) noexcept {
  IniFile taken(std::move(other));  // first, so that assigning a document to itself keeps it
  sections.swap(taken.sections);
  filePath.swap(taken.filePath);
  commentDelimiter.swap(taken.commentDelimiter);
  return *this;
}

void IniFile::release() {
  filePath.clear();
  sections.clear();
}

const IniFileSection* IniFile::getSection(const std::string& name) const {
  return FindSection(sections, name);
}

IniFileSection* IniFile::getMutableSection(const std::string& name) {
  return FindSection(sections, name);
}

}  // namespace corvane
