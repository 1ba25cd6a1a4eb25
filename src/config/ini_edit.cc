// Edits.
#include <cfloat>
#include <climits>
#include <cstdio>
#include <new>
#include <utility>

#include "corvane/ini_file.h"
#include "src/config/ini_text.h"

namespace corvane {
int IniFile::setValue(const std::string& section, const std::string& key, std::string text) {
  // Whatever can fail is done before the document changes.
  IniFileSection* const found = getMutableSection(section);
  IniFileItem* const present = found != nullptr ? FindItem(*found, key) : nullptr;
  if (present != nullptr) {
    present->value.swap(text);
    present->comment.clear();
    return INI_OK;
  }
  IniFileItem item;
  item.key = key;
  item.value.swap(text);
  if (found != nullptr) {
    found->items.push_back(std::move(item));
    return INI_OK;
  }
  std::unique_ptr<IniFileSection> created(new IniFileSection);
  created->name = section;
  created->items.push_back(std::move(item));
  sections.insert(section.empty() ? sections.begin() : sections.end(), std::move(created));
  return INI_OK;
}

int IniFile::SetStringValue(const std::string& section, const std::string& key,
                            const std::string& value) {
  return setValue(section, key, value);
}

int IniFile::SetIntValue(const std::string& section, const std::string& key, int value) {
  char text[16];
  std::snprintf(text, sizeof(text), "%d", value);
  return setValue(section, key, text);
}

int IniFile::SetDoubleValue(const std::string& section, const std::string& key, double value) {
  // Sign, digits, the locale's decimal point, six decimals, NUL.
  char text[1 + (DBL_MAX_10_EXP + 1) + MB_LEN_MAX + 6 + 1];
  if (std::snprintf(text, sizeof(text), "%f", value) < 0) throw std::bad_alloc();
  return setValue(section, key, text);
}

int IniFile::SetBoolValue(const std::string& section, const std::string& key, bool value) {
  return setValue(section, key, value ? "true" : "false");
}

int IniFile::SetComment(const std::string& section, const std::string& key,
                        const std::string& comment) {
  std::string* found;
  const int code = FindComment(getMutableSection(section), key, &IniFileSection::comment,
                               &IniFileItem::comment, &found);
  if (code == INI_OK) *found = comment;
  return code;
}

int IniFile::SetRightComment(const std::string& section, const std::string& key,
                             const std::string& right_comment) {
  std::string* found;
  const int code = FindComment(getMutableSection(section), key, &IniFileSection::rightComment,
                               &IniFileItem::rightComment, &found);
  if (code == INI_OK) *found = right_comment;
  return code;
}

void IniFile::SetCommentDelimiter(const std::string& delimiter) { commentDelimiter = delimiter; }

void IniFile::DeleteSection(const std::string& section) {
  for (auto it = sections.begin(); it != sections.end(); ++it) {
    if ((*it)->name == section) {
      sections.erase(it);  // `section` may alias the erased name; do not use it after this
      return;
    }
  }
}

void IniFile::DeleteKey(const std::string& section, const std::string& key) {
  IniFileSection* const found = getMutableSection(section);
  const IniFileItem* const item = found != nullptr ? FindItem(*found, key) : nullptr;
  if (item != nullptr) found->items.erase(found->items.begin() + (item - found->items.data()));
}

}  // namespace corvane
