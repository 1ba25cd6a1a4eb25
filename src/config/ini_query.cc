// Queries and typed values.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <iterator>
#include <utility>

#include "corvane/ini_file.h"
#include "src/config/ini_text.h"

namespace corvane {
namespace {

// Sets *item to the first item with the key, or to null with the code that says why.
int LookUp(const IniFile& document, const std::string& section, const std::string& key,
           const IniFileItem** item) {
  *item = nullptr;
  const IniFileSection* const found = document.getSection(section);
  if (found == nullptr) return INI_ERR_SECTION_NOT_FOUND;
  *item = FindItem(*found, key);
  return *item != nullptr ? INI_OK : INI_ERR_KEY_NOT_FOUND;
}

// The byte taken as a wide character and cut back to a byte: outside ASCII this follows the
// process's locale.
unsigned char UpperByte(char c) {
  const std::wint_t wide = static_cast<unsigned char>(c);
  return static_cast<unsigned char>(std::towupper(wide));
}

bool EqualsIgnoreCase(const std::string& text, const char* word) {
  if (text.size() != std::strlen(word)) return false;
  return std::equal(text.begin(), text.end(), word,
                    [](char a, char b) { return UpperByte(a) == UpperByte(b); });
}

}  // namespace

int IniFile::GetStringValue(const std::string& section, const std::string& key,
                            std::string* value) const {
  const IniFileItem* item;
  const int code = LookUp(*this, section, key, &item);
  if (code == INI_OK) *value = item->value;
  return code;
}

void IniFile::GetStringValueOrDefault(const std::string& section, const std::string& key,
                                      std::string* value, const std::string& default_value) const {
  if (GetStringValue(section, key, value) != INI_OK) *value = default_value;
}

int IniFile::GetIntValue(const std::string& section, const std::string& key, int* value) const {
  const IniFileItem* item;
  const int code = LookUp(*this, section, key, &item);
  const long number = item != nullptr ? std::strtol(item->value.c_str(), nullptr, 10) : 0;
  *value = static_cast<int>(static_cast<uint32_t>(number));
  return code;
}

int IniFile::GetIntValueOrDefault(const std::string& section, const std::string& key, int* value,
                                  int default_value) const {
  const int code = GetIntValue(section, key, value);
  if (code != INI_OK) *value = default_value;
  return code;
}

int IniFile::GetDoubleValue(const std::string& section, const std::string& key,
                            double* value) const {
  const IniFileItem* item;
  const int code = LookUp(*this, section, key, &item);
  *value = item != nullptr ? std::strtod(item->value.c_str(), nullptr) : 0.0;
  return code;
}

int IniFile::GetDoubleValueOrDefault(const std::string& section, const std::string& key,
                                     double* value, double default_value) const {
  const int code = GetDoubleValue(section, key, value);
  if (code != INI_OK) *value = default_value;
  return code;
}

int IniFile::GetBoolValue(const std::string& section, const std::string& key, bool* value) const {
  const IniFileItem* item;
  const int code = LookUp(*this, section, key, &item);
  if (code != INI_OK) return code;
  if (EqualsIgnoreCase(item->value, "true") || EqualsIgnoreCase(item->value, "1")) {
    *value = true;
  } else if (EqualsIgnoreCase(item->value, "false") || EqualsIgnoreCase(item->value, "0")) {
    *value = false;
  }
  return INI_OK;
}

int IniFile::GetBoolValueOrDefault(const std::string& section, const std::string& key, bool* value,
                                   bool default_value) const {
  const int code = GetBoolValue(section, key, value);
  if (code != INI_OK) *value = default_value;
  return code;
}

int IniFile::GetValues(const std::string& section, const std::string& key,
                       std::vector<std::string>* values) const {
  // Emptied, but alive until the end: section and key may be among its strings.
  std::vector<std::string> previous;
  previous.swap(*values);

  const IniFileSection* const found = getSection(section);
  if (found == nullptr) return INI_ERR_SECTION_NOT_FOUND;
  std::vector<std::string> collected;
  for (const IniFileItem& item : found->items) {
    if (item.key == key) collected.push_back(item.value);
  }
  values->swap(collected);
  return values->empty() ? INI_ERR_KEY_NOT_FOUND : INI_OK;
}

int IniFile::GetSections(std::vector<std::string>* names) const {
  std::vector<std::string> own_names;  // aside, so that a failed copy leaves *names as it was
  own_names.reserve(sections.size());
  for (const auto& section : sections) own_names.push_back(section->name);
  names->insert(names->end(), std::make_move_iterator(own_names.begin()),
                std::make_move_iterator(own_names.end()));
  return static_cast<int>(names->size());
}

int IniFile::GetSectionNum() const { return static_cast<int>(sections.size()); }

bool IniFile::HasSection(const std::string& section) const {
  return getSection(section) != nullptr;
}

bool IniFile::HasKey(const std::string& section, const std::string& key) const {
  const IniFileItem* item;
  return LookUp(*this, section, key, &item) == INI_OK;
}

int IniFile::GetComment(const std::string& section, const std::string& key,
                        std::string* comment) const {
  const std::string* found;
  const int code = FindComment(getSection(section), key, &IniFileSection::comment,
                               &IniFileItem::comment, &found);
  if (code == INI_OK) *comment = *found;
  return code;
}

int IniFile::GetRightComment(const std::string& section, const std::string& key,
                             std::string* right_comment) const {
  const std::string* found;
  const int code = FindComment(getSection(section), key, &IniFileSection::rightComment,
                               &IniFileItem::rightComment, &found);
  if (code == INI_OK) *right_comment = *found;
  return code;
}

}  // namespace corvane
