#include "src/config/ini_writer.h"

#include <cstddef>

#include "src/config/ini_sections.h"
#include "src/config/ini_text.h"
#include "src/config/raw_file.h"

namespace corvane {
namespace {

void EndLine(std::string* text) {
  if (text->back() != '\n') text->push_back('\n');
}

void WriteComment(const std::string& comment, std::string* text) {
  if (comment.empty()) return;
  text->append(comment);
  EndLine(text);
}

void WriteRightComment(const std::string& comment, const std::string& delimiter,
                       std::string* text) {
  if (comment.empty()) return;
  text->push_back(' ');
  text->append(delimiter).append(comment);
}

// The nameless section has no header line for its right comment, which becomes comment lines.
void WriteAsCommentLines(const std::string& comment, const std::string& delimiter,
                         std::string* text) {
  Slice lines{comment.data(), comment.data() + comment.size()};
  while (!lines.empty()) {
    const char* const line_end = Find(lines, '\n');
    text->append(delimiter).append(lines.begin, line_end).push_back('\n');
    lines.begin = line_end == lines.end ? line_end : line_end + 1;
  }
}

void WriteSection(const IniFileSection& section, const std::string& delimiter, std::string* text) {
  WriteComment(section.comment, text);
  if (section.name.empty()) {
    WriteAsCommentLines(section.rightComment, delimiter, text);
  } else {
    text->push_back('[');
    text->append(section.name).push_back(']');
    WriteRightComment(section.rightComment, delimiter, text);
    text->push_back('\n');
  }
  for (const IniFileItem& item : section.items) {
    WriteComment(item.comment, text);
    text->append(item.key).push_back('=');
    text->append(item.value);
    WriteRightComment(item.rightComment, delimiter, text);
    EndLine(text);
  }
}

// At least the section's bytes, unless its right comment becomes many lines.
std::size_t EstimatedBytes(const IniFileSection& section, std::size_t delimiter_bytes) {
  std::size_t bytes = section.name.size() + section.comment.size() + section.rightComment.size() +
                      delimiter_bytes + 5;
  for (const IniFileItem& item : section.items) {
    bytes += item.key.size() + item.value.size() + item.comment.size() + item.rightComment.size() +
             delimiter_bytes + 4;
  }
  return bytes;
}

}  // namespace

std::string IniText(const IniFile& document) {
  const IniSections& sections = IniFileParts::Sections(document);
  const std::string& delimiter = IniFileParts::Delimiter(document);
  std::size_t bytes = 0;
  for (const auto& section : sections) bytes += EstimatedBytes(*section, delimiter.size());
  std::string text;
  text.reserve(bytes);
  for (const auto& section : sections) WriteSection(*section, delimiter, &text);
  return text;
}

int IniFile::SaveAs(const std::string& path) const {
  const std::string text = IniText(*this);
  RawFile file = RawFile::ForWriting(path);
  if (file.IsOpen()) file.Write(text.data(), text.size());
  return INI_OK;
}

int IniFile::Save() const { return SaveAs(filePath); }

}  // namespace corvane
