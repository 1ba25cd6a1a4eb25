// Random files, delimiters and edits, against a model written another way: streams and whole
// strings, no windows and no slices.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "tests/support/ini_documents.h"

namespace corvane {
namespace {

using corvane_test::Dump;

std::string Strip(const std::string& text) {
  const char* const spaces = " \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(spaces);
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

struct Model {
  std::vector<IniFileSection> sections;
  std::string delimiter;

  auto Section(const std::string& name) {
    return std::find_if(sections.begin(), sections.end(), [&](auto& s) { return s.name == name; });
  }
  static auto Item(IniFileSection& section, const std::string& key) {
    auto& items = section.items;
    return std::find_if(items.begin(), items.end(), [&](auto& item) { return item.key == key; });
  }

  int Load(const std::string& text) {
    sections.assign(1, {});
    std::istringstream lines(text);
    std::string comment;
    for (std::string line; std::getline(lines, line);) {
      line = Strip(line);
      if (line.empty() || line.find(delimiter) == 0) {
        comment += line + "\n";
        continue;
      }
      const std::size_t mark = std::min(line.find(delimiter), line.size());
      const std::string content = Strip(line.substr(0, mark));
      const std::string right =
          mark < line.size() ? Strip(line.substr(mark + delimiter.size())) : "";
      if (content[0] == '[') {
        const std::size_t close = content.find(']');
        if (close == std::string::npos) return INI_ERR_NO_CLOSING_BRACKET;
        if (close == 1) return INI_ERR_EMPTY_SECTION_NAME;
        const std::string name = Strip(content.substr(1, close - 1));
        if (Section(name) != sections.end()) return INI_ERR_DUPLICATE_SECTION;
        sections.push_back({name, comment, right, {}});
      } else {
        const std::size_t equals = content.find('=');
        if (equals == std::string::npos) return INI_ERR_NO_EQUALS_SIGN;
        sections.back().items.push_back(
            {Strip(content.substr(0, equals)), Strip(content.substr(equals + 1)), comment, right});
      }
      comment.clear();
    }
    return INI_OK;
  }

  void Set(const std::string& name, const std::string& key, const std::string& value) {
    if (Section(name) == sections.end()) {
      sections.insert(name.empty() ? sections.begin() : sections.end(), {name, "", "", {}});
    }
    const auto section = Section(name);
    const auto item = Item(*section, key);
    if (item == section->items.end()) {
      section->items.push_back({key, value, "", ""});
    } else {
      *item = {key, value, "", item->rightComment};
    }
  }

  int SetComment(bool right, const std::string& name, const std::string& key,
                 const std::string& text) {
    const auto section = Section(name);
    if (section == sections.end()) return INI_ERR_SECTION_NOT_FOUND;
    const auto item = Item(*section, key);
    if (!key.empty() && item == section->items.end()) return INI_ERR_KEY_NOT_FOUND;
    (key.empty() ? right ? section->rightComment : section->comment
     : right     ? item->rightComment
                 : item->comment) = text;
    return INI_OK;
  }

  void Delete(const std::string& name, const std::string* key) {
    const auto section = Section(name);
    if (section == sections.end()) return;
    if (key == nullptr) {
      sections.erase(section);
    } else if (Item(*section, *key) != section->items.end()) {
      section->items.erase(Item(*section, *key));
    }
  }

  std::string Saved() const {
    std::ostringstream out;
    const auto closed = [](const std::string& text) {
      return text + (text.empty() || text.back() == '\n' ? "" : "\n");
    };
    const auto behind = [this](const std::string& right) {
      return right.empty() ? "" : " " + delimiter + right;
    };
    for (const IniFileSection& section : sections) {
      out << closed(section.comment);
      std::istringstream lines(section.name.empty() ? section.rightComment : "");
      for (std::string line; std::getline(lines, line);) out << delimiter << line << '\n';
      if (!section.name.empty()) {
        out << '[' << section.name << ']' << behind(section.rightComment) << '\n';
      }
      for (const IniFileItem& item : section.items) {
        out << closed(item.comment)
            << closed(item.key + "=" + item.value + behind(item.rightComment));
      }
    }
    return out.str();
  }

  std::string Dumped() const {
    std::string text;
    for (const IniFileSection& section : sections) text += Dump(section);
    return text;
  }
};

TEST(IniModel, AgreesOnRandomFilesAndEdits) {
  using Strings = std::vector<std::string>;
  const Strings words = {
      "a",  "b", "=", "[", "]",  "[a]", "\n",    "\n", "\n",     "\r\n", " ",
      "\t", "#", ";", "/", "//", "a=1", "b = 2", "x",  "\n#c\n", "\xe9", std::string(1, '\0')};
  const Strings delimiters = {"#", "#", "#", ";", "//", "=", "[", "]", " ;", "", "a"};
  const corvane_test::TempFile file("model");
  int codes[6] = {};
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto pick = [&](const Strings& from) { return from[random() % from.size()]; };
    const auto phrase = [&](unsigned most) {
      std::string text;
      for (unsigned n = random() % (most + 1); n > 0; --n) text += pick(words);
      return text;
    };
    IniFile document;
    Model model;
    document.SetCommentDelimiter(model.delimiter = pick(delimiters));
    std::string text;
    for (unsigned n = random() % 12; n > 0; --n) {  // mostly sound lines, or all end at the first
      const unsigned kind = random() % 16;
      text += kind == 0 ? phrase(4)
              : kind < 4
                  ? "[" + (random() % 3 ? pick({"s", " t", "u"}) : phrase(2)) + "]" + pick(words)
              : kind < 6 ? model.delimiter + phrase(2)
                         : pick({"a", "b", "  ", "k/", ""}) + "=" + phrase(3);
      text += "\n";
    }
    file.Write(text);
    const int code = model.Load(text);
    ++codes[code];
    ASSERT_EQ(document.Load(file.path), code) << testing::PrintToString(text);
    ASSERT_EQ(Dump(document), model.Dumped()) << testing::PrintToString(text);

    for (unsigned edits = random() % 8; edits > 0; --edits) {
      const std::string name = pick({"", "a", "s", "t"}), key = pick({"", "a", "b", "k/"}),
                        value = phrase(2);
      const unsigned kind = random() % 12;
      if (kind < 5) {
        document.SetStringValue(name, key, value);
        model.Set(name, key, value);
      } else if (kind < 7) {
        document.DeleteKey(name, key);
        model.Delete(name, &key);
      } else if (kind < 8) {
        document.DeleteSection(name);
        model.Delete(name, nullptr);
      } else if (kind < 10) {
        ASSERT_EQ(document.SetComment(name, key, value), model.SetComment(false, name, key, value));
      } else {
        ASSERT_EQ(document.SetRightComment(name, key, value),
                  model.SetComment(true, name, key, value));
      }
    }
    ASSERT_EQ(Dump(document), model.Dumped());
    document.Save();
    const std::string saved = model.Saved();
    ASSERT_EQ(file.Read(), saved);
    ASSERT_EQ(document.Load(file.path), model.Load(saved));
    ASSERT_EQ(Dump(document), model.Dumped());
  }
  for (int code : {0, 2, 3, 4, 5}) EXPECT_GT(codes[code], 5) << "hardly tried: " << code;
}

}  // namespace
}  // namespace corvane
