// Any bytes as an INI file: load, edit, save, load again.
//
// The first byte picks the comment delimiter, the rest is the file. What must hold: whatever loads
// without a failure is saved and loaded back the same, texts that do not survive their own syntax
// apart; and saving what was loaded back gives the same bytes.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "corvane/ini_file.h"
#include "src/config/raw_file.h"

namespace {

const std::string& ScratchPath() {
  static const std::string path = [] {
    char name[] = "/tmp/corvane_ini_fuzz_XXXXXX";
    close(mkstemp(name));
    std::atexit([] { unlink(ScratchPath().c_str()); });
    return std::string(name);
  }();
  return path;
}

std::string Dump(const corvane::IniFile& document) {
  std::vector<std::string> names;
  document.GetSections(&names);
  std::string text;
  const auto add = [&](const std::string& part) {
    text += std::to_string(part.size()) + ":" + part;
  };
  for (const std::string& name : names) {
    const corvane::IniFileSection* const section = document.getSection(name);
    add(section->name);
    add(section->comment);
    add(section->rightComment);
    text += std::to_string(section->items.size());
    for (const corvane::IniFileItem& item : section->items) {
      add(item.key);
      add(item.value);
      add(item.comment);
      add(item.rightComment);
    }
  }
  return text;
}

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "ini_fuzz: %s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const char* const delimiters[] = {"#", ";", "//", "", "=", "[", "a", " ;"};
  const std::string delimiter = delimiters[data[0] % 8];
  const char* const text = reinterpret_cast<const char*>(data + 1);
  {
    corvane::RawFile file = corvane::RawFile::ForWriting(ScratchPath());
    file.Write(text, size - 1);
  }
  corvane::IniFile document;
  document.SetCommentDelimiter(delimiter);
  document.Load(ScratchPath());

  // Loaded texts hold no line breaks, white space around them or delimiter, so they load back;
  // where the delimiter is part of the syntax itself they may not.
  const bool plain = delimiter == "#" || delimiter == ";" || delimiter == "//";
  const std::string before = Dump(document);
  document.Save();
  const int code = document.Load(ScratchPath());
  if (plain) {
    Require(code == corvane::INI_OK, "a saved file does not load");
    Require(Dump(document) == before, "a saved file loads differently");
  }

  // Edits with the file's own texts, passed as references into the document.
  std::vector<std::string> names;
  document.GetSections(&names);
  for (const std::string& name : names) {
    corvane::IniFileSection* const section = document.getMutableSection(name);
    if (section->items.empty()) continue;
    const auto& items = section->items;
    bool flag = false;
    int number = 0;
    double real = 0;
    document.GetBoolValue(section->name, items[0].key, &flag);
    document.GetIntValue(section->name, items[0].key, &number);
    document.GetDoubleValue(section->name, items[0].key, &real);
    document.SetRightComment(section->name, items[0].key, items[0].value);
    document.SetStringValue(section->name, items[0].value, items[0].comment);
    document.SetDoubleValue(section->name, items[0].key, real);
    document.DeleteKey(section->name, items.back().key);
  }
  if (!names.empty()) document.DeleteSection(document.getSection(names.back())->name);
  document.Save();
  document.Load(ScratchPath());
  return 0;
}
