#include <gtest/gtest.h>

#include <utility>

#include "corvane/ini_file.h"
#include "tests/support/ini_documents.h"

namespace corvane {
namespace {

using corvane_test::Dump;
using corvane_test::TempFile;

std::string operator""_s(const char* text, std::size_t size) { return std::string(text, size); }

TEST(IniLoad, KnownTexts) {
  const struct {
    std::string text;
    int code;
    std::string document;
    std::string delimiter = "#";
  } rows[] = {
      {"", INI_OK, "[]"},
      {"# only\n\n# comments\n", INI_OK, "[]"},
      {"a=1\nb=2", INI_OK, "[](a|1)(b|2)"},  // the last line needs no end
      {"a=1\r\n[s]\r\n\r\nb=2\r\n", INI_OK, "[](a|1)[s](b|2|\n)"},
      {" \t\v\f a \t=\t 1 2 \r\n", INI_OK, "[](a|1 2)"},
      {"=x\n=\n", INI_OK, "[](|x)()"},
      {"a=b=c\n", INI_OK, "[](a|b=c)"},
      {"a=1\na=2\n", INI_OK, "[](a|1)(a|2)"},
      {"# c\n\n  # d  \na=1\nb=2\n", INI_OK, "[](a|1|# c\n\n# d\n)(b|2)"},
      {"\n#s\n[ s t ] junk # r # q \n", INI_OK, "[][s t|\n#s\n|r # q]"},
      {"a=1 #\nb=2#x\n#", INI_OK, "[](a|1)(b|2||x)"},
      {"color=#ff0000\n", INI_OK, "[](color|||ff0000)"},  // a value ends at the delimiter
      {"[a]]b]\n", INI_OK, "[][a]"},
      {" [a] = 1\n", INI_OK, "[][a]"},
      {"=[a]\n", INI_OK, "[](|[a])"},
      {"x=\0y\0 \n"_s, INI_OK, "[](x|\0y\0)"_s},
      {"\xef\xbb\xbf"
       "a=\xe9\x85\xa0\n",
       INI_OK,
       "[](\xef\xbb\xbf"
       "a|\xe9\x85\xa0)"},
      {"\xef\xbb\xbf[a]\n", INI_ERR_NO_EQUALS_SIGN, "[]"},
      // What stood before a bad line stays; comments right above it do not.
      {"k=1\n[a]\nx=1\n#c\n[b\ny=2\n", INI_ERR_NO_CLOSING_BRACKET, "[](k|1)[a](x|1)"},
      {"[b#]\n", INI_ERR_NO_CLOSING_BRACKET, "[]"},
      {"[a]\nx=1\n[]\n", INI_ERR_EMPTY_SECTION_NAME, "[][a](x|1)"},
      {"[ ]\n", INI_ERR_DUPLICATE_SECTION, "[]"},
      {"[a]\nx=1\n[A]\n[ a ]\nz=1\n", INI_ERR_DUPLICATE_SECTION, "[][a](x|1)[A]"},
      {"a=1\n; b\n", INI_ERR_NO_EQUALS_SIGN, "[](a|1)"},
      {"a # = 1\n", INI_ERR_NO_EQUALS_SIGN, "[]"},
      {";b\nc=1;d;;e\n", INI_OK, "[](c|1|;b\n|d;;e)", ";"},
      {"a;b=1\n", INI_ERR_NO_EQUALS_SIGN, "[]", ";"},
      {"a=/ / b //c //d\n/=1\n//=\n", INI_OK, "[](a|/ / b||c //d)(/|1)", "//"},
      {"a=///b\n", INI_OK, "[](a|||/b)", "//"},
      {"anything\n[goes\n", INI_OK, "[]", ""},
      {"a=1\n", INI_ERR_NO_EQUALS_SIGN, "[]", "="},
      {"a\n", INI_ERR_NO_EQUALS_SIGN, "[]", "a delimiter longer than the line"},
  };
  const TempFile file("known");
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.text));
    file.Write(row.text);
    IniFile document;
    document.SetCommentDelimiter(row.delimiter);
    EXPECT_EQ(document.Load(file.path), row.code);
    EXPECT_EQ(Dump(document), row.document);
  }
}

// Files of every size around the reader's windows, with comments, lines and sections across them.
TEST(IniLoad, LinesAndCommentsOfAnyLength) {
  const TempFile file("long");
  for (int size : {1000, 16384, 16385, 40000, 262144, 700000, 5000000}) {
    const std::string word(static_cast<std::size_t>(size), 'x');
    std::string comment = "#" + word + "\n", items;
    for (int i = 0; i < size / 50; ++i) comment += "# c\n";
    for (int i = 0; i < size / 20; ++i) items += "(key" + std::to_string(i) + "|value)";
    const std::string expected = "[](" + word + "|" + word + ")[s|" + comment + "]" + items;
    std::string lines;
    for (char c : items)
      lines += c == '(' ? "" : c == ')' ? " \n" : c == '|' ? " =" : std::string(1, c);
    file.Write(word + "=" + word + "  \n" + comment + "[s]\n" + lines);
    IniFile document;
    EXPECT_EQ(document.Load(file.path), INI_OK) << size;
    EXPECT_TRUE(Dump(document) == expected) << size;
  }
}

TEST(IniLoad, SeesDuplicatesAmongManySections) {
  const TempFile file("many");
  std::string text;
  for (int i = 0; i < 300; ++i) text += "[s" + std::to_string(i) + "]\na=1\n";
  for (int again : {0, 31, 32, 250, 299}) {
    file.Write(text + "[s" + std::to_string(again) + "]\n[new]\n");
    IniFile document;
    EXPECT_EQ(document.Load(file.path), INI_ERR_DUPLICATE_SECTION) << again;
    EXPECT_EQ(document.GetSectionNum(), 301);
  }
  file.Write(text + "[ ]");
  EXPECT_EQ(IniFile().Load(file.path), INI_ERR_DUPLICATE_SECTION);

  // The first duplicate, wherever it comes.
  std::string few;
  for (int i = 0; i < 40; ++i) {
    few += "[s" + std::to_string(i) + "]\n";
    file.Write(few + "[s0]");
    EXPECT_EQ(IniFile().Load(file.path), INI_ERR_DUPLICATE_SECTION) << i;
  }
  // Different names with the same hash (in GCC's library).
  const std::string one = "cz1o79bbso24zvzn", other = "coakkirr{?GX^FtO";
  file.Write(text + "[" + one + "]\n[" + other + "]\n");
  EXPECT_EQ(IniFile().Load(file.path), INI_OK);
  file.Write(text + "[" + one + "]\n[" + other + "]\n[" + one + "]\n");
  EXPECT_EQ(IniFile().Load(file.path), INI_ERR_DUPLICATE_SECTION);
}

TEST(IniLoad, FilesThatAreNoPlainFiles) {
  IniFile document;
  EXPECT_EQ(document.Load(testing::TempDir()), INI_OK) << "a directory opens, reads nothing";
  EXPECT_EQ(Dump(document), "[]");
  EXPECT_EQ(document.Load("/proc/self/stat"), INI_ERR_NO_EQUALS_SIGN) << "its size is said to be 0";
  EXPECT_EQ(Dump(document), "[]");
}

TEST(IniLoad, ReplacesTheDocumentAlsoWhenItCannotOpen) {
  const TempFile first("first"), missing("missing");
  first.Write("a=1\n[s]\n");
  IniFile document;
  document.SetCommentDelimiter(";");
  ASSERT_EQ(document.Load(first.path), INI_OK);
  ASSERT_EQ(document.Load(first.path), INI_OK);
  EXPECT_EQ(Dump(document), "[](a|1)[s]");
  EXPECT_EQ(document.Load(missing.path), INI_ERR_OPEN_FILE);
  EXPECT_EQ(Dump(document), "");
  document.SetStringValue("s", "k", "v");
  document.SetRightComment("s", "", "still the set delimiter");
  EXPECT_EQ(document.Save(), INI_OK) << "the path is remembered";
  EXPECT_EQ(missing.Read(), "[s] ;still the set delimiter\nk=v\n");

  document.release();
  EXPECT_EQ(document.GetSectionNum(), 0);
  document.SetStringValue("", "k", "v");
  EXPECT_EQ(document.Save(), INI_OK) << "to nowhere";
  EXPECT_EQ(missing.Read(), "[s] ;still the set delimiter\nk=v\n");
}

TEST(IniLoad, TakesAPathFromTheDocumentItself) {
  const TempFile file("own");
  file.Write("[" + file.path + "]\na=1\n");
  IniFile document;
  ASSERT_EQ(document.Load(file.path), INI_OK);
  ASSERT_EQ(document.Load(document.getSection(file.path)->name), INI_OK);
  EXPECT_EQ(Dump(document), "[][" + file.path + "](a|1)");
}

TEST(IniFile, CanBeMovedAndThenUsedAgain) {
  const TempFile file("move");
  file.Write("a=1 ; r\n");
  IniFile first;
  first.SetCommentDelimiter(";");
  ASSERT_EQ(first.Load(file.path), INI_OK);
  const IniFileSection* const section = first.getSection("");
  IniFile second(std::move(first));
  EXPECT_EQ(second.getSection(""), section) << "sections stay where they are";
  file.Write("gone");
  second.Save();
  EXPECT_EQ(file.Read(), "a=1 ;r\n") << "path and delimiter went along";
  EXPECT_EQ(first.GetSectionNum(), 0);
  ASSERT_EQ(first.Load(file.path), INI_OK) << "as if new";
  EXPECT_EQ(Dump(first), "[](a|1 ;r)");
  IniFile& same = second;
  second = std::move(same);
  EXPECT_EQ(Dump(second), "[](a|1||r)");
  first = std::move(second);
  EXPECT_EQ(Dump(first), "[](a|1||r)");
  EXPECT_EQ(Dump(second), "");
}

}  // namespace
}  // namespace corvane
