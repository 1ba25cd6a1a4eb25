// The document and Load.
#include "corvane/ini_file.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "src/config/ini_text.h"
#include "src/config/raw_file.h"

namespace corvane {
namespace {

using Sections = std::vector<std::unique_ptr<IniFileSection>>;

// Most files fit the first window, which costs no allocation.
constexpr std::size_t kStackWindowBytes = 16 * 1024;
constexpr std::size_t kHeapWindowBytes = 256 * 1024;

// Up to here comparing a new name with all others is faster than keeping a set of them.
constexpr std::size_t kScannedSections = 32;

constexpr std::size_t kBatchedItems = 64;

IniFileSection* FindSection(const Sections& sections, const std::string& name) {
  for (const auto& section : sections) {
    if (section->name == name) return section.get();
  }
  return nullptr;
}

// The text of a block of whole lines, all comments or blank, each trimmed.
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

// A set of names that live elsewhere: a table with linear probing, at most half full.
class NameSet {
 public:
  bool empty() const { return count_ == 0; }

  // False if an equal name is there already.
  bool Insert(const std::string& name) {
    if (2 * (count_ + 1) > slots_.size()) Grow();
    const std::size_t hash = std::hash<std::string>()(name);
    Slot* const slot = Find(hash, name);
    if (slot->name != nullptr) return false;
    *slot = Slot{hash, &name};
    ++count_;
    return true;
  }

 private:
  struct Slot {
    std::size_t hash;
    const std::string* name;  // null: free
  };

  // The slot with an equal name, or the free one where it belongs.
  Slot* Find(std::size_t hash, const std::string& name) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
      Slot& slot = slots_[at];
      if (slot.name == nullptr || (slot.hash == hash && *slot.name == name)) return &slot;
    }
  }

  void Grow() {
    std::vector<Slot> smaller(slots_.empty() ? 128 : 2 * slots_.size());
    smaller.swap(slots_);
    for (const Slot& slot : smaller) {
      if (slot.name != nullptr) *Find(slot.hash, *slot.name) = slot;
    }
  }

  std::vector<Slot> slots_;  // a power of two of them
  std::size_t count_ = 0;
};

// Builds the sections of a file from windows of its text, one after the other.
class Parser {
 public:
  // sections must hold the current section as its last.
  Parser(const std::string& delimiter, Sections* sections)
      : delimiter_(delimiter), sections_(*sections) {}

  // Parses the lines that end in the window, or up to its end if it is the last. Lines from *rest
  // on must be in front of the next window: a comment block whose owner is still to come, and a
  // line that is not complete.
  int ParseLines(Slice window, bool is_last, const char** rest);

 private:
  struct ItemLine {
    Slice key, value, comment_lines, right_comment;

    // A conversion, because that lets emplace_back() make the item's strings where they stay.
    operator IniFileItem() const {
      return IniFileItem{key.str(), value.str(), CommentText(comment_lines), right_comment.str()};
    }
  };

  int ParseSectionHeader(Slice content, Slice comment_lines, Slice right_comment);
  int AddItemLine(Slice content, Slice comment_lines, Slice right_comment);
  void StoreItems();
  // name must be that of a section that is about to be added, and stay where it is.
  bool NameIsTaken(const std::string& name);

  const std::string& delimiter_;
  Sections& sections_;
  NameSet names_;

  // Items of the current section wait here as slices of the window until their number is known, so
  // that they get one allocation of the right size.
  ItemLine waiting_[kBatchedItems];
  std::size_t waiting_count_ = 0;
};

int Parser::ParseLines(Slice window, bool is_last, const char** rest) {
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

int Parser::ParseSectionHeader(Slice content, Slice comment_lines, Slice right_comment) {
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

int Parser::AddItemLine(Slice content, Slice comment_lines, Slice right_comment) {
  const char* const equals_sign = Find(content, '=');
  if (equals_sign == content.end) return INI_ERR_NO_EQUALS_SIGN;
  if (waiting_count_ == kBatchedItems) StoreItems();
  waiting_[waiting_count_++] =
      ItemLine{Trim(Slice{content.begin, equals_sign}), Trim(Slice{equals_sign + 1, content.end}),
               comment_lines, right_comment};
  return INI_OK;
}

void Parser::StoreItems() {
  std::vector<IniFileItem>& items = sections_.back()->items;
  const std::size_t needed = items.size() + waiting_count_;
  if (needed > items.capacity()) {
    items.reserve(items.empty() ? needed : std::max(needed, 2 * items.capacity()));
  }
  for (std::size_t i = 0; i < waiting_count_; ++i) items.emplace_back(waiting_[i]);
  waiting_count_ = 0;
}

bool Parser::NameIsTaken(const std::string& name) {
  if (sections_.size() < kScannedSections) return FindSection(sections_, name) != nullptr;
  if (names_.empty()) {
    for (const auto& section : sections_) names_.Insert(section->name);
  }
  return !names_.Insert(name);
}

}  // namespace

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

int IniFile::Load(const std::string& path) {
  std::string new_path(path);  // path may be in what release() frees
  release();
  filePath.swap(new_path);
  RawFile file = RawFile::ForReading(filePath);
  if (!file.IsOpen()) return INI_ERR_OPEN_FILE;
  sections.reserve(8);
  sections.push_back(std::unique_ptr<IniFileSection>(new IniFileSection));

  Parser parser(commentDelimiter, &sections);
  char stack_window[kStackWindowBytes];
  std::unique_ptr<char[]> heap_window;
  char* window = stack_window;
  std::size_t capacity = kStackWindowBytes;
  std::size_t filled = 0;
  for (;;) {
    filled += file.Read(window + filled, capacity - filled);
    const bool is_last = filled < capacity;
    const char* rest = window;
    const int code = parser.ParseLines(Slice{window, window + filled}, is_last, &rest);
    if (code != INI_OK || is_last) return code;
    // What stays is parsed again, so it must not be most of the window.
    const auto kept = static_cast<std::size_t>(window + filled - rest);
    if (capacity < kHeapWindowBytes || kept > capacity / 2) {
      capacity = std::max(kHeapWindowBytes, 2 * capacity);
      std::unique_ptr<char[]> grown(new char[capacity]);
      std::memcpy(grown.get(), rest, kept);
      heap_window.swap(grown);
      window = heap_window.get();
    } else {
      std::memmove(window, rest, kept);
    }
    filled = kept;
  }
}

}  // namespace corvane
