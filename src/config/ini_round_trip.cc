#include "src/config/ini_round_trip.h"

#include <algorithm>
#include <memory>

#include "src/config/ini_parser.h"
#include "src/config/ini_sections.h"

namespace corvane {
namespace {

Slice SliceOf(const std::string& text) { return {text.data(), text.data() + text.size()}; }

// The loaded comment is trimmed already.
bool IsSameComment(const std::string& loaded, std::string written) {
  if (!written.empty() && written.back() != '\n') written.push_back('\n');
  return loaded == CommentText(SliceOf(written));
}

bool IsSameRightComment(const std::string& loaded, const std::string& written) {
  return loaded == Trim(SliceOf(written)).str();
}

bool IsSameItem(const IniFileItem& loaded, const IniFileItem& written) {
  return loaded.key == written.key && loaded.value == written.value &&
         IsSameComment(loaded.comment, written.comment) &&
         IsSameRightComment(loaded.rightComment, written.rightComment);
}

bool IsSameSection(const std::unique_ptr<IniFileSection>& loaded,
                   const std::unique_ptr<IniFileSection>& written) {
  return loaded->name == written->name && IsSameComment(loaded->comment, written->comment) &&
         IsSameRightComment(loaded->rightComment, written->rightComment) &&
         loaded->items.size() == written->items.size() &&
         std::equal(loaded->items.begin(), loaded->items.end(), written->items.begin(), IsSameItem);
}

}  // namespace

bool LoadsBackAs(const std::string& text, const IniFile& document) {
  IniSections loaded;
  loaded.push_back(std::unique_ptr<IniFileSection>(new IniFileSection));
  IniParser parser(IniFileParts::Delimiter(document), &loaded);
  const char* rest = nullptr;
  if (parser.ParseLines(SliceOf(text), true, &rest) != INI_OK) return false;

  const IniSections& written = IniFileParts::Sections(document);
  const bool has_nameless = !written.empty() && written[0]->name.empty();
  if (!has_nameless) {
    if (!loaded[0]->items.empty()) return false;
    loaded.erase(loaded.begin());
  }
  return loaded.size() == written.size() &&
         std::equal(loaded.begin(), loaded.end(), written.begin(), IsSameSection);
}

}  // namespace corvane
