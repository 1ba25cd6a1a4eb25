// Turns the lines of an INI text into sections and items.
#ifndef CORVANE_SRC_CONFIG_INI_PARSER_H_
#define CORVANE_SRC_CONFIG_INI_PARSER_H_

#include <cstddef>
#include <string>

#include "src/config/ini_sections.h"
#include "src/config/ini_text.h"
#include "src/config/name_set.h"

namespace corvane {

// The text of a block of whole lines, all comments or blank, each trimmed.
std::string CommentText(Slice lines);

// Takes a text in windows, one after the other.
class IniParser {
 public:
  // Appends to *sections. Its last section gets the items in front of the first header.
  IniParser(const std::string& delimiter, IniSections* sections)
      : delimiter_(delimiter), sections_(*sections) {}

  // Parses the lines that end in the window, or all of it if it is the last one. The next window
  // must begin with the text from *rest on: comment lines whose owner is still to come, and an
  // incomplete line. Returns an IniResult; after a failure the parser is of no further use.
  int ParseLines(Slice window, bool is_last, const char** rest);

 private:
  // An item as slices of the window. Converts implicitly, so that emplace_back() builds the item's
  // strings in place.
  struct ItemLine {
    Slice key, value, comment_lines, right_comment;
    operator IniFileItem() const {
      return IniFileItem{key.str(), value.str(), CommentText(comment_lines), right_comment.str()};
    }
  };
  int ParseSectionHeader(Slice content, Slice comment_lines, Slice right_comment);
  int AddItemLine(Slice content, Slice comment_lines, Slice right_comment);
  void StoreItems();
  // `name` must be that of a section that is about to be added, and keep its address.
  bool NameIsTaken(const std::string& name);

  const std::string& delimiter_;
  IniSections& sections_;
  // The sections' names, once there are too many to compare a new one with each.
  NameSet names_;

  // Items wait here until their number is known, so that a section's items are allocated at once.
  static constexpr std::size_t kBatchedItems = 64;
  ItemLine waiting_[kBatchedItems];
  std::size_t waiting_count_ = 0;
};

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_INI_PARSER_H_
