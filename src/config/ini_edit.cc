// Edits and the writer.
#include <cfloat>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "corvane/ini_file.h"
#include "src/config/ini_text.h"
#include "src/config/raw_file.h"

namespace corvane {
namespace {

// Where the writer's text goes: first nowhere, to learn its size, then into memory of that size.
class TextCounter {
 public:
  void Append(const char* text, std::size_t bytes) {
    if (bytes == 0) return;
    size_ += bytes;
    last_ = text[bytes - 1];
  }
  bool EndsLine() const { return last_ == '\n'; }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_ = 0;
  char last_ = '\0';
};

class TextWriter {
 public:
  explicit TextWriter(char* begin) : end_(begin) {}
  void Append(const char* text, std::size_t bytes) {
    std::memcpy(end_, text, bytes);
    end_ += bytes;
  }
  // Asked only behind a text that is not empty.
  bool EndsLine() const { return end_[-1] == '\n'; }

 private:
  char* end_;
};

template <typename Sink>
void Write(const std::string& text, Sink* sink) {
  sink->Append(text.data(), text.size());
}

template <typename Sink>
void WriteLineEnd(Sink* sink) {
  sink->Append("\n", 1);
}

template <typename Sink>
void WriteComment(const std::string& comment, Sink* sink) {
  if (comment.empty()) return;
  Write(comment, sink);
  if (!sink->EndsLine()) WriteLineEnd(sink);
}

template <typename Sink>
void WriteRightComment(const std::string& text, const std::string& delimiter, Sink* sink) {
  if (text.empty()) return;
  sink->Append(" ", 1);
  Write(delimiter, sink);
  Write(text, sink);
}

// The nameless section has no header line to carry its right comment, so that gets lines of its
// own; each begins with the delimiter, to load as a comment again.
template <typename Sink>
void WriteAsCommentLines(const std::string& text, const std::string& delimiter, Sink* sink) {
  Slice lines{text.data(), text.data() + text.size()};
  while (!lines.empty()) {
    const char* const line_end = Find(lines, '\n');
    Write(delimiter, sink);
    sink->Append(lines.begin, static_cast<std::size_t>(line_end - lines.begin));
    WriteLineEnd(sink);
    lines.begin = line_end == lines.end ? line_end : line_end + 1;
  }
}

template <typename Sink>
void WriteSection(const IniFileSection& section, const std::string& delimiter, Sink* sink) {
  WriteComment(section.comment, sink);
  if (section.name.empty()) {
    WriteAsCommentLines(section.rightComment, delimiter, sink);
  } else {
    sink->Append("[", 1);
    Write(section.name, sink);
    sink->Append("]", 1);
    WriteRightComment(section.rightComment, delimiter, sink);
    WriteLineEnd(sink);
  }
  for (const IniFileItem& item : section.items) {
    WriteComment(item.comment, sink);
    Write(item.key, sink);
    sink->Append("=", 1);
    Write(item.value, sink);
    WriteRightComment(item.rightComment, delimiter, sink);
    if (!sink->EndsLine()) WriteLineEnd(sink);
  }
}

}  // namespace

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
      sections.erase(it);  // section may be the name that goes with it: not looked at again
      return;
    }
  }
}

void IniFile::DeleteKey(const std::string& section, const std::string& key) {
  IniFileSection* const found = getMutableSection(section);
  const IniFileItem* const item = found != nullptr ? FindItem(*found, key) : nullptr;
  if (item != nullptr) found->items.erase(found->items.begin() + (item - found->items.data()));
}

int IniFile::SaveAs(const std::string& path) const {
  TextCounter counter;
  for (const auto& section : sections) WriteSection(*section, commentDelimiter, &counter);
  const std::unique_ptr<char[]> text(new char[counter.size()]);
  TextWriter writer(text.get());
  for (const auto& section : sections) WriteSection(*section, commentDelimiter, &writer);

  RawFile file = RawFile::ForWriting(path);
  if (file.IsOpen()) file.Write(text.get(), counter.size());
  return INI_OK;
}

int IniFile::Save() const { return SaveAs(filePath); }

}  // namespace corvane
