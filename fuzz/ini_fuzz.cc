// Any bytes as an INI file: load, query, edit, save, load again.
//
// Bytes: the comment delimiter; what fills the file before the text, and how much of it (the
// windows in which the parser reads are 16 KiB and 256 KiB); the text. What must hold: the document
// is the one that a reader of single lines builds; saved and loaded it is the same again, where
// the delimiter is not part of the syntax; SaveIniFile writes the bytes that SaveAs writes.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "corvane/ini_file.h"
#include "corvane/ini_save.h"
#include "fuzz/byte_reader.h"
#include "fuzz/scratch_file.h"

namespace {

using corvane::IniFile;
using corvane::IniFileItem;
using corvane::IniFileSection;
using corvane_fuzz::Require;

// count pieces of a valid file.
std::string Filling(int kind, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    if (kind == 0) text += "  # comment " + number + "\n\n";
    if (kind == 1) text += "key" + number + " = value # right\n";
    if (kind == 2) text += "[section" + number + "]\nkey=" + number + "\n";
    if (kind == 3) text += "one long line ";
  }
  return text;
}

std::string Trimmed(const std::string& text) {
  const char* const spaces = " \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(spaces);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

bool HasSection(const std::vector<IniFileSection>& sections, const std::string& name) {
  for (const IniFileSection& section : sections) {
    if (section.name == name) return true;
  }
  return false;
}

// The rules of ini_file.h, line by line.
int ReadByTheRules(const std::string& text, const std::string& delimiter,
                   std::vector<IniFileSection>* sections) {
  sections->assign(1, IniFileSection());
  std::istringstream lines(text);
  std::string comment;
  for (std::string raw; std::getline(lines, raw);) {
    const std::string line = Trimmed(raw);
    if (line.empty() || line.compare(0, delimiter.size(), delimiter) == 0) {
      comment += line + "\n";
      continue;
    }
    const std::size_t end = line.find(delimiter);
    const std::string content = Trimmed(line.substr(0, end));
    const std::string right =
        end == std::string::npos ? "" : Trimmed(line.substr(end + delimiter.size()));
    if (content[0] == '[') {
      const std::size_t bracket = content.find(']');
      if (bracket == std::string::npos) return corvane::INI_ERR_NO_CLOSING_BRACKET;
      if (bracket == 1) return corvane::INI_ERR_EMPTY_SECTION_NAME;
      const std::string name = Trimmed(content.substr(1, bracket - 1));
      if (HasSection(*sections, name)) return corvane::INI_ERR_DUPLICATE_SECTION;
      sections->push_back(IniFileSection{name, comment, right, {}});
    } else {
      const std::size_t equals_sign = content.find('=');
      if (equals_sign == std::string::npos) return corvane::INI_ERR_NO_EQUALS_SIGN;
      sections->back().items.push_back(IniFileItem{Trimmed(content.substr(0, equals_sign)),
                                                   Trimmed(content.substr(equals_sign + 1)),
                                                   comment, right});
    }
    comment.clear();
  }
  return corvane::INI_OK;
}

std::vector<IniFileSection> SectionsOf(const IniFile& document) {
  std::vector<std::string> names;
  document.GetSections(&names);
  std::vector<IniFileSection> sections;
  for (const std::string& name : names) sections.push_back(*document.getSection(name));
  return sections;
}

std::string Dump(const std::vector<IniFileSection>& sections) {
  std::string text;
  const auto add = [&](const std::string& part) {
    text += std::to_string(part.size()) + ":" + part;
  };
  for (const IniFileSection& section : sections) {
    add(section.name);
    add(section.comment);
    add(section.rightComment);
    add(std::to_string(section.items.size()));
    for (const IniFileItem& item : section.items) {
      add(item.key);
      add(item.value);
      add(item.comment);
      add(item.rightComment);
    }
  }
  return text;
}

void Query(const IniFile& document) {
  std::vector<std::string> names;
  document.GetSections(&names);
  for (std::size_t at = 0; at < names.size() && at < 16; ++at) {
    const IniFileSection& section = *document.getSection(names[at]);
    Require(document.HasSection(section.name), "a section is not found");
    for (std::size_t i = 0; i < section.items.size() && i < 8; ++i) {
      const std::string& key = section.items[i].key;
      std::vector<std::string> wanted, values;
      for (const IniFileItem& item : section.items) {
        if (item.key == key) wanted.push_back(item.value);
      }
      document.GetValues(section.name, key, &values);
      Require(values == wanted, "GetValues misses a value");
      values.assign(1, key);
      document.GetValues(section.name, values[0], &values);  // an argument inside the result
      Require(values == wanted, "GetValues loses an argument that it replaces");
      std::string value, comment;
      document.GetStringValueOrDefault(section.name, key, &value, "default");
      Require(value == wanted[0], "GetStringValueOrDefault is not the first value");
      bool flag = false;
      int number = 0;
      double real = 0;
      document.GetBoolValueOrDefault(section.name, key, &flag, true);
      document.GetIntValueOrDefault(section.name, key, &number, 1);
      document.GetDoubleValueOrDefault(section.name, key, &real, 1);
      document.GetComment(section.name, key, &comment);
      document.GetRightComment(section.name, key, &comment);
      Require(document.HasKey(section.name, key), "a key is not found");
    }
  }
}

// Edits with the file's own texts, passed as references into the document.
void Edit(IniFile* document) {
  std::vector<std::string> names;
  document->GetSections(&names);
  for (std::size_t i = 0; i < names.size() && i < 16; ++i) {
    IniFileSection* const section = document->getMutableSection(names[i]);
    if (section->items.empty()) continue;
    const auto& items = section->items;
    document->SetComment(section->name, items[0].key, items[0].rightComment);
    document->SetRightComment(section->name, items[0].key, items[0].value);
    document->SetStringValue(section->name, items[0].value, items[0].comment);
    document->SetStringValue(items[0].value, items[0].key, section->name);
    document->SetDoubleValue(section->name, items[0].key, 0.5);
    document->SetIntValue(section->name, items.back().key, -7);
    document->SetBoolValue(section->name, items[0].key, true);
    std::string value;
    document->GetStringValue(section->name, items[0].key, &value);
    Require(value == "true", "a value that was set is not there");
    document->DeleteKey(section->name, items.back().key);
  }
  if (!names.empty()) {
    document->DeleteSection(document->getSection(names.back())->name);
    Require(!document->HasSection(names.back()), "a deleted section is still there");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const corvane_fuzz::ScratchFile file;
  const char* const delimiters[] = {"#", ";", "//", "", "=", "[", "a", " ;"};
  corvane_fuzz::ByteReader bytes(data, size);
  const std::string delimiter = delimiters[bytes.Take<uint8_t>() % 8];
  const auto kind = bytes.Take<uint8_t>();
  int most_pieces = 1024;
  if (kind & 16) most_pieces = 16384;    // beyond the second window; slow, so not always
  if (kind % 4 == 2) most_pieces = 256;  // sections are searched one by one
  const int count = bytes.Take<uint16_t>() % most_pieces;
  const std::string text = Filling(kind % 4, count) + bytes.TakeText();

  file.Write(text);
  IniFile loaded;
  loaded.SetCommentDelimiter(delimiter);
  const int code = loaded.Load(file.path());
  std::vector<IniFileSection> wanted;
  Require(ReadByTheRules(text, delimiter, &wanted) == code, "Load returns another code");
  Require(Dump(SectionsOf(loaded)) == Dump(wanted), "Load reads another document");

  IniFile document(std::move(loaded));
  Require(loaded.GetSectionNum() == 0, "a document that was moved from is not empty");
  Query(document);
  document.Save();
  // Loaded texts hold no line breaks, white space around them or delimiter, so they load back;
  // where the delimiter is part of the syntax itself they may not.
  if (delimiter == "#" || delimiter == ";" || delimiter == "//") {
    IniFile again;
    again.SetCommentDelimiter(delimiter);
    Require(again.Load(file.path()) == corvane::INI_OK, "a saved file does not load");
    Require(Dump(SectionsOf(again)) == Dump(wanted), "a saved file loads differently");
  }
  Edit(&document);
  document.Save();
  if (kind >= 0xE0) {  // seldom, because it waits for the disk
    const std::string saved = file.Read();
    if (corvane::SaveIniFile(document, file.path()) == corvane::INI_SAVE_OK) {
      Require(file.Read() == saved, "SaveIniFile writes other bytes than SaveAs");
    }
  }
  document.release();
  Require(document.GetSectionNum() == 0, "a released document is not empty");
  return 0;
}
