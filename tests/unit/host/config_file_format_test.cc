#include <gmock/gmock.h>

#include <string>

#include "config_file.h"

namespace kestrav::test {
namespace {

using Config::Found;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ConfigFileFormat : public ConfigFileTest {};

TEST_F(ConfigFileFormat, HasSectionsEntriesCommentsAndBlankLines) {
  LoadText(
      "# a comment\n; another\n\n[Kestrav-Settings]\nLogging = true\n\tGPS=1,mode=3  \n"
      "  [ Other ]  \nLogging =\tfalse # not a comment\n");
  EXPECT_EQ(Value(L"Logging", L"Kestrav-Settings"), L"true");
  EXPECT_EQ(Value(L"GPS", L"Kestrav-Settings"), L"1,mode=3");
  EXPECT_EQ(Value(L"Logging", L"Other"), L"false # not a comment");
  EXPECT_EQ(Value(L"GPS", L"Other"), std::nullopt);
  EXPECT_EQ(Value(L"logging", L"Other"), std::nullopt);
  EXPECT_THAT(store_.Problems(), IsEmpty());
}

struct Written {
  const char* line;
  const wchar_t* name;
  const wchar_t* value;
};

class ReadableLines : public ConfigFileTest, public testing::WithParamInterface<Written> {};

TEST_P(ReadableLines, AreReadAsTheyAreMeant) {
  const auto& [line, name, value] = GetParam();
  for (const char* end : {"", "\n", "\r\n"}) {
    LoadText(std::string("[S]\n") + line + end);
    EXPECT_EQ(Value(name), value) << line;
    EXPECT_THAT(store_.Problems(), IsEmpty()) << line;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, ReadableLines,
    testing::Values(
        Written{"a=", L"a", L""}, Written{"a = \"\"", L"a", L""}, Written{"a=b=c", L"a", L"b=c"},
        Written{"a b = c d", L"a b", L"c d"}, Written{"a = say \"x\"", L"a", L"say \"x\""},
        Written{"a = C:\\new", L"a", L"C:\\new"}, Written{"\"\" = x", L"", L"x"},
        Written{"\"a=b\"= x", L"a=b", L"x"}, Written{"\"[a]\" = x", L"[a]", L"x"},
        Written{"\"#a\"=x", L"#a", L"x"}, Written{"\" a \" = \"\tb \"", L" a ", L"\tb "},
        Written{R"(a = "\"\\\n\r\t\u0001\u00e4\u20AC")", L"a", L"\"\\\n\r\t\u0001\u00e4\u20AC"},
        Written{"\xC3\xA4 = \xF0\x9F\x98\x80", L"\u00e4", L"\U0001F600"}));

class UnreadableValues : public ConfigFileTest, public testing::WithParamInterface<const char*> {};

TEST_P(UnreadableValues, AreReportedAndKept) {
  const std::string text = std::string("[S]\na = ") + GetParam() + "\nb = 2\n";
  LoadText(text);
  EXPECT_EQ(FindValue(L"a"), Found::kUnreadable);
  EXPECT_EQ(Value(L"b"), L"2");
  EXPECT_THAT(ProblemLines(), ElementsAre(2));
  EXPECT_THAT(ProblemTexts(), HasSubstr("\"a\""));
  ASSERT_TRUE(Set(L"b", L"3"));
  EXPECT_EQ(SavedText(), std::string("[S]\na = ") + GetParam() + "\nb = 3\n");
}

INSTANTIATE_TEST_SUITE_P(All, UnreadableValues,
                         testing::Values("\"", "\"open", "\"a\" b", "\"a\"\"", R"("\x")", R"("\")",
                                         R"("\u12")", R"("\u12g4")", R"("\ud800")", "\xFF",
                                         "\"\xC3\"", "\xED\xA0\x80"));

class UnreadableLines : public ConfigFileTest, public testing::WithParamInterface<const char*> {};

TEST_P(UnreadableLines, AreReportedAndKept) {
  const std::string start = std::string("[S]\n") + GetParam();
  LoadText(start + "\na = 2");
  EXPECT_EQ(Value(L"a"), L"2");
  EXPECT_THAT(ProblemLines(), ElementsAre(2));
  ASSERT_TRUE(Set(L"a", L"3"));
  EXPECT_EQ(SavedText(), start + "\na = 3");
}

INSTANTIATE_TEST_SUITE_P(All, UnreadableLines,
                         testing::Values("text", "= x", "\"a", "\"a = 1", "\"a\" b = 1",
                                         "\xFF\xFE = 1", "\xC3", "\"\\q\" = 1"));

TEST_F(ConfigFileFormat, ReportsASectionWithoutANameAndUsesNothingOfIt) {
  LoadText("[S]\na = 1\n[]\na = 2\nb = 2\n[S\nc = 2\n[\"S]\n[S] x\nd = 2\n[\xFF]\n[S]\ne = 1\n");
  EXPECT_EQ(Value(L"a"), L"1");
  EXPECT_EQ(FindValue(L"b"), Found::kNothing);
  EXPECT_EQ(FindValue(L"c"), Found::kNothing);
  EXPECT_EQ(FindValue(L"d"), Found::kNothing);
  EXPECT_EQ(Value(L"e"), L"1");
  EXPECT_THAT(ProblemLines(), ElementsAre(3, 6, 8, 9, 11));
}

TEST_F(ConfigFileFormat, ReportsEntriesBeforeAnySection) {
  LoadText("a = 1\n[S]\nb = 1\n");
  EXPECT_EQ(FindValue(L"a"), Found::kNothing);
  EXPECT_EQ(Value(L"b"), L"1");
  EXPECT_THAT(ProblemLines(), ElementsAre(1));
  EXPECT_THAT(ProblemTexts(), HasSubstr("before any section"));
}

TEST_F(ConfigFileFormat, OfDuplicateEntriesCountsTheFirst) {
  LoadText("[S]\na = 1\na = 2\n[T]\na = 4\n[S]\n\"a\" = 3\n");
  EXPECT_EQ(Value(L"a"), L"1");
  EXPECT_EQ(Value(L"a", L"T"), L"4");
  EXPECT_THAT(ProblemLines(), ElementsAre(3, 7));
  EXPECT_THAT(ProblemTexts(), HasSubstr("line 2 counts"));
  ASSERT_TRUE(Set(L"a", L"5"));
  EXPECT_EQ(SavedText(), "[S]\na = 5\na = 2\n[T]\na = 4\n[S]\n\"a\" = 3\n");
}

TEST_F(ConfigFileFormat, ASectionThatComesAgainGoesOn) {
  LoadText("[S]\na = 1\n[T]\nb = 1\n[S]\nc = 1\n");
  EXPECT_EQ(Value(L"a"), L"1");
  EXPECT_EQ(Value(L"c"), L"1");
  ASSERT_TRUE(Set(L"d", L"1"));
  EXPECT_EQ(SavedText(), "[S]\na = 1\n[T]\nb = 1\n[S]\nc = 1\nd = 1\n");
}

TEST_F(ConfigFileFormat, ReportsAValueThatItsEntryRefusesOnce) {
  LoadText("[S]\na = 1\nb = maybe\n");
  store_.ReportRefused(L"S", L"b");
  store_.ReportRefused(L"S", L"b");
  EXPECT_THAT(ProblemLines(), ElementsAre(3));
  EXPECT_THAT(ProblemTexts(), HasSubstr("\"b\""));
}

TEST_F(ConfigFileFormat, ShowsNamesShortAndWithoutControlCharacters) {
  LoadText("[S]\n\"\\n\\u001b\"=\"\n" + std::string(5000, 'n') + "=\"\n");
  EXPECT_THAT(ProblemTexts(), HasSubstr(R"("\n\u001b")"));
  EXPECT_THAT(ProblemTexts(), HasSubstr("\"" + std::string(60, 'n') + "...\""));
}

// Every character and every pair of the delicate ones, at the start, in the middle and at the end.
TEST_F(ConfigFileFormat, ReadsBackWhateverItWrites) {
  std::vector<String> texts = {L"", L"\U0001F600", String(300, L'x')};
  const String delicate = L"a \t\"\\=[]#;,\r\n\x0001\x007F\x0085\x2028\xFEFF\xFFFD";
  for (wchar_t c = 0; c < 0x180; ++c) texts.push_back({c});
  for (const wchar_t a : delicate) {
    for (const wchar_t b : delicate) {
      texts.push_back({a, b});
      texts.push_back({a, L'x', b});
    }
  }
  LoadText("");
  for (const String& text : texts) {
    ASSERT_TRUE(Set(text, text, L"S"));
    ASSERT_TRUE(Set(L"a", text, L"T" + text));
  }
  ASSERT_TRUE(store_.Save());
  ASSERT_TRUE(store_.Load(Wide(file_)));
  EXPECT_THAT(store_.Problems(), IsEmpty());
  for (const String& text : texts) {
    EXPECT_EQ(Value(text), text) << Text::ToUtf8(text);
    EXPECT_EQ(Value(L"a", L"T" + text), text) << Text::ToUtf8(text);
  }
}

TEST_F(ConfigFileFormat, WritesPlainWhereThatIsClear) {
  LoadText("");
  ASSERT_TRUE(Set(L"GPS", L"1,mode=3;x#y[2]"));
  ASSERT_TRUE(Set(L"a=b", L" x"));
  ASSERT_TRUE(Set(L"empty", L""));
  ASSERT_TRUE(Set(L"quote", L"\"x\" \\"));
  ASSERT_TRUE(Set(L"path", L"C:\\new \"x\""));
  EXPECT_EQ(SavedText(),
            "[S]\n# About it\nGPS = 1,mode=3;x#y[2]\n\"a=b\" = \" x\"\nempty = \"\"\n"
            "quote = \"\\\"x\\\" \\\\\"\npath = C:\\new \"x\"\n");
}

TEST_F(ConfigFileFormat, RefusesWhatIsNoCodePoint) {
  LoadText("[S]\na = 1\n\xEF\xBF\xBD = 1\n");
  const String bad(1, static_cast<wchar_t>(0xD800));
  EXPECT_FALSE(Set(L"a", bad));
  EXPECT_FALSE(Set(bad, L"1"));
  EXPECT_FALSE(Set(L"a", L"1", bad));
  EXPECT_EQ(FindValue(bad), Found::kNothing);
  EXPECT_EQ(Value(L"a"), L"1");
}

}  // namespace
}  // namespace kestrav::test
