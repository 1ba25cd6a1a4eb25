#include <gtest/gtest.h>

#include <cfloat>
#include <functional>
#include <limits>

#include "corvane/ini_file.h"
#include "tests/support/ini_documents.h"

namespace corvane {
namespace {

using corvane_test::Dump;
using corvane_test::TempFile;

const char kText[] = "#n\nn=1 # rn\n#s\n[s] # rs\n#k\nk=1 # rk\n#k2\nk=2\n[t]\n";
const char kDocument[] = "[](n|1|#n\n|rn)[s|#s\n|rs](k|1|#k\n|rk)(k|2|#k2\n)[t]";
const char kSaved[] = "#n\nn=1 #rn\n#s\n[s] #rs\n#k\nk=1 #rk\n#k2\nk=2\n[t]\n";

struct Edit {
  std::function<void(IniFile&)> edit;
  std::string document;
  std::string saved;
};

const Edit kEdits[] = {
    {[](IniFile&) {}, kDocument, kSaved},
    {[](IniFile& f) { f.release(); }, "", ""},
    // Only the first item with the key; its comment goes, its right comment stays.
    {[](IniFile& f) { f.SetIntValue("s", "k", -2147483647 - 1); },
     "[](n|1|#n\n|rn)[s|#s\n|rs](k|-2147483648||rk)(k|2|#k2\n)[t]",
     "#n\nn=1 #rn\n#s\n[s] #rs\nk=-2147483648 #rk\n#k2\nk=2\n[t]\n"},
    {[](IniFile& f) {
       f.DeleteSection("s");
       f.SetBoolValue("new", "b", true);
       f.SetBoolValue("t", "b", false);
     },
     "[](n|1|#n\n|rn)[t](b|false)[new](b|true)", "#n\nn=1 #rn\n[t]\nb=false\n[new]\nb=true\n"},
    {[](IniFile& f) {
       f.DeleteSection("");
       f.DeleteSection("none");
       f.DeleteKey("none", "k");
       f.DeleteKey("s", "none");
       f.DeleteKey("s", "k");
       f.SetStringValue("", "", "");
     },
     "[]()[s|#s\n|rs](k|2|#k2\n)[t]", "=\n#s\n[s] #rs\n#k2\nk=2\n[t]\n"},
    // Line breaks are added only where missing; nothing is refused or escaped.
    {[](IniFile& f) {
       f.release();
       f.SetStringValue("a]\n", "k=\n", "v#\n");
       f.SetStringValue("a]\n", "", "x");
       f.SetComment("a]\n", "", "no delimiter");
       f.SetComment("a]\n", "k=\n", "#two\n\n");
       f.SetRightComment("a]\n", "", "r\n");
       f.SetRightComment("a]\n", "k=\n", "q\n");
     },
     "[a]\n|no delimiter|r\n](k=\n|v#\n|#two\n\n|q\n)(|x)",
     "no delimiter\n[a]\n] #r\n\n#two\n\nk=\n=v#\n #q\n=x\n"},
    // The nameless section's right comment gets comment lines of its own.
    {[](IniFile& f) {
       f.SetCommentDelimiter("//");
       f.SetComment("", "", "// top");
       f.SetRightComment("", "", "one\n\ntwo");
       f.DeleteSection("s");
     },
     "[|// top|one\n\ntwo](n|1|#n\n|rn)[t]", "// top\n//one\n//\n//two\n#n\nn=1 //rn\n[t]\n"},
    // Arguments out of the document itself.
    {[](IniFile& f) {
       const IniFileSection* const s = f.getSection("s");
       f.SetStringValue(s->name, s->items[0].key, s->items[0].comment);
       f.SetComment(s->name, s->items[0].key, s->comment);
       f.SetRightComment(s->name, "", s->rightComment);
       for (int i = 0; i < 9; ++i) f.SetStringValue(s->name, s->items[1].value, s->items[1].key);
       f.SetStringValue(s->items[0].rightComment, s->items[0].rightComment, s->name);
       f.DeleteKey(s->name, s->items[1].key);
       f.DeleteSection(f.getSection("t")->name);
     },
     "[](n|1|#n\n|rn)[s|#s\n|rs](k|2|#k2\n)(2|k)[rk](rk|s)",
     "#n\nn=1 #rn\n#s\n[s] #rs\n#k2\nk=2\n2=k\n[rk]\nrk=s\n"},
};

TEST(IniEdit, DocumentsAndFiles) {
  const TempFile in("edit_in"), out("edit_out");
  in.Write(kText);
  for (const Edit& row : kEdits) {
    SCOPED_TRACE(testing::Message() << "row " << &row - kEdits);
    IniFile document;
    ASSERT_EQ(document.Load(in.path), INI_OK);
    row.edit(document);
    EXPECT_EQ(Dump(document), row.document);
    out.Write("longer than what is written, and all of it goes away: " + std::string(9999, '.'));
    EXPECT_EQ(document.SaveAs(out.path), INI_OK);
    EXPECT_EQ(out.Read(), row.saved);
    EXPECT_EQ(Dump(document), row.document);
  }
  EXPECT_EQ(IniFile().SaveAs(out.path + "/none/none"), INI_OK) << "failures are not reported";
  EXPECT_EQ(IniFile().Save(), INI_OK);
}

TEST(IniEdit, DoublesHaveSixDecimalsHoweverLong) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (double value : {0.5, -0.0, 1e-7, -1e55, 1e56, 123456789.0000005, DBL_MAX, -DBL_MAX, infinity,
                       std::numeric_limits<double>::quiet_NaN()}) {
    IniFile document;
    EXPECT_EQ(document.SetDoubleValue("s", "k", value), INI_OK);
    EXPECT_EQ(document.getSection("s")->items[0].value, std::to_string(value));
  }
}

}  // namespace
}  // namespace corvane
