#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "corvane/ini_file.h"
#include "tests/support/ini_documents.h"

namespace corvane {
namespace {

using corvane_test::TempFile;
using testing::ElementsAre;

TEST(IniQuery, ValuesAsNumbersAndFlags) {
  const struct {
    const char* text;
    int as_int;
    double as_double;
    char as_bool;  // T, F, or - for left alone
  } rows[] = {
      {"", 0, 0, '-'},
      {"0", 0, 0, 'F'},
      {"1", 1, 1, 'T'},
      {"-17", -17, -17, '-'},
      {"+5 apples", 5, 5, '-'},
      {"\v\t 08.75x", 8, 8.75, '-'},
      {"yes", 0, 0, '-'},
      {"0x10", 0, 16, '-'},
      {"-.5", 0, -0.5, '-'},
      {"2147483648", -2147483647 - 1, 2147483648.0, '-'},
      {"4294967297", 1, 4294967297.0, '-'},  // the low 32 bits
      {"9223372036854775807", -1, 9223372036854775808.0, '-'},
      {"99999999999999999999", -1, 1e20, '-'},
      {"-99999999999999999999", 0, -1e20, '-'},
      {"true", 0, 0, 'T'},
      {"TrUe", 0, 0, 'T'},
      {"FALSE", 0, 0, 'F'},
      {"truey", 0, 0, '-'},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    IniFile document;
    document.SetStringValue("s", "k", row.text);
    int number = 5;
    double real = 5;
    EXPECT_EQ(document.GetIntValue("s", "k", &number), INI_OK);
    EXPECT_EQ(number, row.as_int);
    EXPECT_EQ(document.GetIntValueOrDefault("s", "k", &number, 7), INI_OK);
    EXPECT_EQ(number, row.as_int) << "a default is for missing keys only";
    EXPECT_EQ(document.GetDoubleValueOrDefault("s", "k", &real, 7), INI_OK);
    EXPECT_EQ(real, row.as_double);
    for (bool before : {false, true}) {
      bool flag = before;
      EXPECT_EQ(document.GetBoolValueOrDefault("s", "k", &flag, !before), INI_OK);
      EXPECT_EQ(flag, row.as_bool == '-' ? before : row.as_bool == 'T');
    }
  }
}

TEST(IniQuery, WhatIsMissing) {
  IniFile document;
  document.SetStringValue("s", "k", "v");
  const struct {
    std::string section, key;
    int code;
  } rows[] = {{"s", "K", INI_ERR_KEY_NOT_FOUND},
              {"s", "k ", INI_ERR_KEY_NOT_FOUND},
              {"S", "k", INI_ERR_SECTION_NOT_FOUND},
              {"", "k", INI_ERR_SECTION_NOT_FOUND}};
  for (const auto& [section, key, code] : rows) {
    SCOPED_TRACE(section + "." + key);
    std::string text = "old";
    std::vector<std::string> values = {"old"};
    int number = 5;
    double real = 5;
    bool flag = true;
    EXPECT_EQ(document.GetStringValue(section, key, &text), code);
    EXPECT_EQ(document.GetComment(section, key, &text), code);
    EXPECT_EQ(document.GetRightComment(section, key, &text), code);
    EXPECT_EQ(document.GetIntValue(section, key, &number), code);
    EXPECT_EQ(document.GetDoubleValue(section, key, &real), code);
    EXPECT_EQ(document.GetBoolValue(section, key, &flag), code);
    EXPECT_EQ(document.GetValues(section, key, &values), code);
    EXPECT_FALSE(document.HasKey(section, key));
    EXPECT_EQ(std::make_tuple(text, number, real, flag), std::make_tuple("old", 0, 0.0, true));
    EXPECT_THAT(values, ElementsAre());

    document.GetStringValueOrDefault(section, key, &text, "default");
    EXPECT_EQ(document.GetIntValueOrDefault(section, key, &number, -7), code);
    EXPECT_EQ(document.GetDoubleValueOrDefault(section, key, &real, 0.25), code);
    EXPECT_EQ(document.GetBoolValueOrDefault(section, key, &flag, false), code);
    EXPECT_EQ(std::make_tuple(text, number, real, flag),
              std::make_tuple("default", -7, .25, false));
  }
}

TEST(IniQuery, ListsAndComments) {
  const TempFile file("lists");
  file.Write("\n#n\nk=1\n#a\n[a] # ra\n#k\nk=1 # rk\nx=\n#k2\nk=2\nk=3\n=e # re\n[b]\n");
  IniFile document;
  EXPECT_FALSE(document.HasSection(""));
  ASSERT_EQ(document.Load(file.path), INI_OK);
  std::vector<std::string> names, values = {"old"};
  EXPECT_EQ(document.GetSections(&names), 3);
  EXPECT_EQ(document.GetSections(&names), 6);
  EXPECT_THAT(names, ElementsAre("", "a", "b", "", "a", "b"));
  EXPECT_EQ(document.GetSectionNum(), 3);
  EXPECT_TRUE(document.HasSection(""));
  EXPECT_TRUE(document.HasKey("a", ""));
  EXPECT_EQ(document.GetValues("a", "k", &values), INI_OK);
  EXPECT_THAT(values, ElementsAre("1", "2", "3"));
  std::string above, right;
  EXPECT_EQ(document.GetComment("a", "k", &above), INI_OK);
  EXPECT_EQ(document.GetRightComment("a", "k", &right), INI_OK);
  EXPECT_EQ(above + right, "#k\nrk") << "the first item's";
  EXPECT_EQ(document.GetComment("a", "", &above), INI_OK);
  EXPECT_EQ(document.GetRightComment("a", "", &right), INI_OK);
  EXPECT_EQ(above + right, "#a\nra") << "the section's, though there is an item with an empty key";
  EXPECT_EQ(document.GetComment("", "", &above), INI_OK);
  EXPECT_EQ(above, "");
}

TEST(IniQuery, ArgumentsMayBeTheOutParameter) {
  IniFile document;
  document.SetStringValue("s", "k", "v");
  std::vector<std::string> values = {"s", "k"};
  EXPECT_EQ(document.GetValues(values[0], values[1], &values), INI_OK);
  EXPECT_THAT(values, ElementsAre("v"));
  std::string text = "k";
  EXPECT_EQ(document.GetStringValue("s", text, &text), INI_OK);
  EXPECT_EQ(text, "v");
  document.GetStringValueOrDefault("s", "none", &text, text);
  EXPECT_EQ(text, "v");
  std::string* const own = &document.getMutableSection("s")->items[0].value;
  EXPECT_EQ(document.GetStringValue("s", "k", own), INI_OK);
  EXPECT_EQ(document.GetRightComment("s", "k", own), INI_OK);
  EXPECT_EQ(*own, "");
}

}  // namespace
}  // namespace corvane
