// Every allocation of every operation fails once: the caller sees it, nothing leaks, and the
// document is what the header says.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "corvane/ini_file.h"
#include "tests/support/allocation_faults.h"
#include "tests/support/ini_documents.h"

namespace corvane {
namespace {

using corvane_test::Dump;
using corvane_test::FailEachAllocation;
using corvane_test::TempFile;

using Strings = std::vector<std::string>;

const std::string kLong(60, 'x');  // past the small-string buffer

int LowestFreeDescriptor() {
  const int descriptor = dup(0);
  close(descriptor);
  return descriptor;
}

TEST(IniMemory, LoadKeepsWhatItHadRead) {
  // More sections than are scanned for a name, a section longer than a batch, more text than the
  // first window.
  std::string text = "# " + kLong + "\n" + kLong + " = " + kLong + " # " + kLong + "\n";
  for (int i = 0; i < 40; ++i) {
    text += "# " + kLong + "\n[" + kLong + std::to_string(i) + "] # " + kLong + "\nk=v\n";
  }
  for (int i = 0; i < 150; ++i) text += "k=" + kLong + kLong + "\n";
  const TempFile file("memory");
  file.Write(text);
  IniFile whole;
  ASSERT_EQ(whole.Load(file.path), INI_OK);
  const std::string expected = Dump(whole);
  const int descriptor = LowestFreeDescriptor();
  std::size_t longest = 0;
  const auto load = [&] {
    IniFile document;
    try {
      document.Load(file.path);
    } catch (const std::bad_alloc&) {
      const std::string part = Dump(document);
      EXPECT_EQ(expected.compare(0, part.size(), part), 0) << part;
      longest = std::max(longest, part.size());
      throw;
    }
  };
  const long steps = FailEachAllocation(load, [&](long nth, bool threw, long leaked) {
    ASSERT_TRUE(threw) << nth;
    ASSERT_EQ(leaked, 0) << nth;
    ASSERT_EQ(LowestFreeDescriptor(), descriptor) << nth;
  });
  EXPECT_GT(steps, 300);
  EXPECT_GT(longest, expected.size() / 2) << "what was read stays";
}

TEST(IniMemory, TheOthersChangeNothing) {
  const TempFile file("memory_edit");
  IniFile document;
  document.SetStringValue("s", "k", "v");
  document.SetStringValue("s", "k2", kLong);
  document.SetComment("s", "k2", "#" + kLong);
  Strings list;
  std::string text;
  const struct {
    const char* name;
    long least_steps;
    std::function<void()> action;
  } rows[] = {
      {"set", 1, [&] { document.SetStringValue("s", "k", kLong + "2"); }},
      {"set new key", 3, [&] { document.SetStringValue("s", kLong, kLong); }},
      {"set new section", 5, [&] { document.SetStringValue(kLong, kLong, kLong); }},
      {"set new nameless", 4, [&] { document.SetStringValue("", kLong, kLong); }},
      {"comment", 1, [&] { document.SetComment("s", "k", kLong); }},
      {"right comment", 1, [&] { document.SetRightComment("s", "", kLong); }},
      {"delimiter", 1, [&] { document.SetCommentDelimiter(kLong); }},
      {"get", 1, [&] { document.GetStringValue("s", "k2", &text); }},
      {"get comment", 1, [&] { std::string().swap(text), document.GetComment("s", "k2", &text); }},
      {"get default", 1,
       [&] { std::string().swap(text), document.GetStringValueOrDefault("s", "", &text, kLong); }},
      {"get sections", 3, [&] { document.GetSections(&list); }},
      {"get values", 2, [&] { document.GetValues("s", "k2", &list); }},
      {"save", 1, [&] { document.SaveAs(file.path); }},
  };
  file.Write("untouched");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string before = Dump(document), text_before = text;
    Strings list_before = list;
    const long steps = FailEachAllocation(row.action, [&](long nth, bool threw, long leaked) {
      ASSERT_TRUE(threw) << nth;
      EXPECT_LE(leaked, 0) << nth;  // less where an out-parameter gave up what it held
      EXPECT_EQ(Dump(document), before);
      EXPECT_EQ(file.Read(), "untouched");
      EXPECT_EQ(list, row.name == std::string("get values") ? Strings() : list_before);
    });
    EXPECT_GE(steps, row.least_steps);
  }
  EXPECT_EQ(list, Strings{kLong});
}

}  // namespace
}  // namespace corvane
