#include "src/config/ini_parser.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace corvane {
namespace {

// With fewer sections, comparing a new name with all others is faster than keeping a set.
constexpr std::size_t kScannedSections = 32;

}  // namespace

constexpr std::size_t IniParser::kBatchedItems;

std::string CommentText(Slice lines) {
  if (lines.empty()) return std::string();  // as with most items
  std::string text(lines.begin, lines.end);
  // In place, as most blocks are the same trimmed.
  char* out = &text[0];
  Slice rest{out, out + text.size()};
  while (!rest.empty()) {
    const char* const line_end = Find(rest, '\n');
    const Slice line = Trim(Slice{rest.begin, line_end});
    if (line.begin != out) std::memmove(out, line.begin, line.size());
    out += line.size();
    *out++ = '\n';
    rest.begin = line_end + 1;
  }
  text.resize(static_cast<std::size_t>(out - text.data()));
  return text;
}

int IniParser::ParseLines(Slice window, bool is_last, const char** rest) {
  const char* comment_begin = window.begin;
  const char* line_begin = window.begin;
  int code = INI_OK;
  while (line_begin != window.end) {
    const char* const line_end = Find(Slice{line_begin, window.end}, '\n');
    if (line_end == window.end && !is_last) break;
    const char* const next_line = line_end == window.end ? line_end : line_end + 1;
    const Slice line = Trim(Slice{line_begin, line_end});
    if (!line.empty() && !StartsWith(line, delimiter_)) {
      const Slice comment_lines{comment_begin, line_begin};
      Slice content = line, right_comment{line.end, line.end};
      const char* const delimiter = Find(line, delimiter_);
      if (delimiter != line.end) {
        content = Trim(Slice{line.begin, delimiter});
        right_comment = Trim(Slice{delimiter + delimiter_.size(), line.end});
      }
      code = *content.begin == '[' ? ParseSectionHeader(content, comment_lines, right_comment)
                                   : AddItemLine(content, comment_lines, right_comment);
      if (code != INI_OK) break;
      comment_begin = next_line;
    }
    line_begin = next_line;
  }
  StoreItems();
  *rest = comment_begin;
  return code;
}

int IniParser::ParseSectionHeader(Slice content, Slice comment_lines, Slice right_comment) {
  const char* const bracket = Find(content, ']');
  if (bracket == content.end) return INI_ERR_NO_CLOSING_BRACKET;
  if (bracket == content.begin + 1) return INI_ERR_EMPTY_SECTION_NAME;
  const Slice name = Trim(Slice{content.begin + 1, bracket});
  std::unique_ptr<IniFileSection> section(
      new IniFileSection{name.str(), CommentText(comment_lines), right_comment.str(), {}});
  if (NameIsTaken(section->name)) return INI_ERR_DUPLICATE_SECTION;
  StoreItems();
  sections_.push_back(std::move(section));
  return INI_OK;
}

int IniParser::AddItemLine(Slice content, Slice comment_lines, Slice right_comment) {
  const char* const equals_sign = Find(content, '=');
  if (equals_sign == content.end) return INI_ERR_NO_EQUALS_SIGN;
  if (waiting_count_ == kBatchedItems) StoreItems();
  waiting_[waiting_count_++] =
      ItemLine{Trim(Slice{content.begin, equals_sign}), Trim(Slice{equals_sign + 1, content.end}),
               comment_lines, right_comment};
  return INI_OK;
}

void IniParser::StoreItems() {
  std::vector<IniFileItem>& items = sections_.back()->items;
  const std::size_t needed = items.size() + waiting_count_;
  if (needed > items.capacity()) {
    items.reserve(items.empty() ? needed : std::max(needed, 2 * items.capacity()));
  }
  for (std::size_t i = 0; i < waiting_count_; ++i) items.emplace_back(waiting_[i]);
  waiting_count_ = 0;
}

bool IniParser::NameIsTaken(const std::string& name) {
  if (sections_.size() < kScannedSections) return FindSection(sections_, name) != nullptr;
  if (names_.empty()) {
    for (const auto& section : sections_) names_.Insert(section->name);
  }
  return !names_.Insert(name);
}

}  // namespace corvane
