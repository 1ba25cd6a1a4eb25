// The pieces of text that an INI file is made of, and how they are found.
#ifndef CORVANE_SRC_CONFIG_INI_TEXT_H_
#define CORVANE_SRC_CONFIG_INI_TEXT_H_

#include <cctype>
#include <cstddef>
#include <cstring>
#include <string>

#include "corvane/ini_file.h"

namespace corvane {

// A piece of somebody else's text.
struct Slice {
  const char* begin;
  const char* end;

  bool empty() const { return begin == end; }
  std::size_t size() const { return static_cast<std::size_t>(end - begin); }
  std::string str() const { return std::string(begin, size()); }
};

inline bool IsSpace(char c) {
  const auto byte = static_cast<unsigned char>(c);
  // Every locale agrees on ASCII's visible characters and white space. Asking it only for the rest
  // saves most of the calls.
  if (byte > ' ' && byte < 0x7F) return false;
  if (byte == ' ' || (byte >= '\t' && byte <= '\r')) return true;
  return std::isspace(byte) != 0;
}

inline Slice Trim(Slice text) {
  while (text.begin != text.end && IsSpace(*text.begin)) ++text.begin;
  while (text.begin != text.end && IsSpace(text.end[-1])) --text.end;
  return text;
}

// The first c in text, or text.end.
inline const char* Find(Slice text, char c) {
  const void* found = std::memchr(text.begin, c, text.size());
  return found != nullptr ? static_cast<const char*>(found) : text.end;
}

// Byte by byte: prefixes are delimiters, for which a call of memcmp would take longer.
inline bool StartsWith(Slice text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (text.begin[i] != prefix[i]) return false;
  }
  return true;
}

// The first occurrence of separator (which must not be empty) in text, or text.end.
inline const char* Find(Slice text, const std::string& separator) {
  const char* at = Find(text, separator[0]);
  if (separator.size() == 1) return at;
  while (at != text.end && !StartsWith(Slice{at, text.end}, separator)) {
    at = Find(Slice{at + 1, text.end}, separator[0]);
  }
  return at;
}

// The first item of the section with the key, or null. Section may be const.
template <typename Section>
auto FindItem(Section& section, const std::string& key) -> decltype(section.items.data()) {
  for (auto& item : section.items) {
    if (item.key == key) return &item;
  }
  return nullptr;
}

// Finds the comment, or right comment, that the key names in a section (null: none): the
// section's own for the empty key, else that of the first item with the key. Section may be const.
template <typename Section, typename Text>
int FindComment(Section* section, const std::string& key, std::string IniFileSection::*of_section,
                std::string IniFileItem::*of_item, Text** comment) {
  *comment = nullptr;
  if (section == nullptr) return INI_ERR_SECTION_NOT_FOUND;
  if (key.empty()) {
    *comment = &(section->*of_section);
  } else {
    const auto item = FindItem(*section, key);
    if (item == nullptr) return INI_ERR_KEY_NOT_FOUND;
    *comment = &(item->*of_item);
  }
  return INI_OK;
}

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_INI_TEXT_H_
