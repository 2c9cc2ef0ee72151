#include <gmock/gmock.h>

#include <string>

#include "config_file.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

using testing::IsEmpty;

// The text before, and after the entry "a" in section "S" was set to 2.
struct Change {
  const char* before;
  const char* after;
};

class ConfigFileChange : public ConfigFileTest, public testing::WithParamInterface<Change> {};

TEST_P(ConfigFileChange, TouchesNothingElse) {
  LoadText(GetParam().before);
  ASSERT_TRUE(Set(L"a", L"2"));
  EXPECT_EQ(Value(L"a"), L"2");
  EXPECT_EQ(SavedText(), GetParam().after);
  ASSERT_TRUE(store_.Load(Wide(file_)));
  EXPECT_EQ(Value(L"a"), L"2");
}

INSTANTIATE_TEST_SUITE_P(
    OfAValue, ConfigFileChange,
    testing::Values(Change{"# top\n\n[S]\n ; in\nb=1\na = 1\n\n# tail\n",
                           "# top\n\n[S]\n ; in\nb=1\na = 2\n\n# tail\n"},
                    Change{"[S]\r\na = 1\r\nb = 1\r\n", "[S]\r\na = 2\r\nb = 1\r\n"},
                    Change{"[S]\r\na = 1\n", "[S]\r\na = 2\n"}, Change{"[S]\na = 1", "[S]\na = 2"},
                    Change{"\xEF\xBB\xBF[S]\na = 1\n", "\xEF\xBB\xBF[S]\na = 2\n"},
                    Change{"[S]\n\t\"a\"\t=\t1 \t\n", "[S]\n\t\"a\"\t=\t2 \t\n"},
                    Change{"[S]\na=\n", "[S]\na=2\n"}, Change{"[S]\na = \"1\"\n", "[S]\na = 2\n"},
                    Change{"[S]\na = \"open\n", "[S]\na = 2\n"},
                    Change{"[S]\na = \xFF\n", "[S]\na = 2\n"},
                    Change{"\xFFnoise\nx = 1\n[]\nq\n[S]\na = 1\n[T]\na = 1\n",
                           "\xFFnoise\nx = 1\n[]\nq\n[S]\na = 2\n[T]\na = 1\n"}));

INSTANTIATE_TEST_SUITE_P(
    OfASection, ConfigFileChange,
    testing::Values(
        Change{"[S]\n", "[S]\na = 2\n"}, Change{"[S]", "[S]\na = 2"},
        Change{"[S]\n# about S\n\n# about T\n[T]\n", "[S]\n# about S\na = 2\n\n# about T\n[T]\n"},
        Change{"[S]\nb = 1\n# about T\n[T]\nb = 1\n", "[S]\nb = 1\na = 2\n# about T\n[T]\nb = 1\n"},
        Change{"[S]\nb = 1\n\n\n", "[S]\nb = 1\na = 2\n\n\n"},
        Change{"[S]\nb = 1\nnoise\n\n[T]\n", "[S]\nb = 1\nnoise\na = 2\n\n[T]\n"},
        Change{"[S]\nb = 1\nb = 2\n[T]\n", "[S]\nb = 1\nb = 2\na = 2\n[T]\n"},
        Change{"[S]\nb = 1\n[]\nc = 1\n", "[S]\nb = 1\na = 2\n[]\nc = 1\n"},
        Change{"[S]\nb = 1\nnoise\n[\nc\n", "[S]\nb = 1\nnoise\na = 2\n[\nc\n"},
        Change{"[S]\r\nb = 1\r\n[T]\r\n", "[S]\r\nb = 1\r\na = 2\r\n[T]\r\n"},
        Change{"[S]\r\nb = 1", "[S]\r\nb = 1\r\na = 2"}));

INSTANTIATE_TEST_SUITE_P(
    OfAFile, ConfigFileChange,
    testing::Values(Change{"", "[S]\n# About it\na = 2\n"},
                    Change{"\xEF\xBB\xBF", "\xEF\xBB\xBF[S]\n# About it\na = 2\n"},
                    Change{"[T]\nb = 1\n", "[T]\nb = 1\n\n[S]\n# About it\na = 2\n"},
                    Change{"[T]\nb = 1\n\n", "[T]\nb = 1\n\n[S]\n# About it\na = 2\n"},
                    Change{"\n", "\n[S]\n# About it\na = 2\n"},
                    Change{"[T]\nb = 1", "[T]\nb = 1\n\n[S]\n# About it\na = 2"},
                    Change{"[T]\r\nb = 1\r\n",
                           "[T]\r\nb = 1\r\n\r\n[S]\r\n# About it\r\na = 2\r\n"},
                    Change{"noise", "noise\n\n[S]\n# About it\na = 2"}));

class ConfigFileSurvival : public ConfigFileTest {};

TEST_F(ConfigFileSurvival, SeveralNewEntriesStandInTheOrderInWhichTheyCame) {
  LoadText("[S]\nz = 1\n\n[T]\nz = 1");
  for (const wchar_t* group : {L"S", L"T", L"U"}) {
    ASSERT_TRUE(Set(L"b", L"1", group));
    ASSERT_TRUE(Set(L"a", L"2", group));
    ASSERT_TRUE(Set(L"b", L"300", group));
  }
  ASSERT_TRUE(Set(L"c", L"1", L"T"));
  EXPECT_EQ(SavedText(),
            "[S]\nz = 1\nb = 300\na = 2\n\n[T]\nz = 1\nb = 300\na = 2\nc = 1\n\n"
            "[U]\n# About it\nb = 300\na = 2");
}

TEST_F(ConfigFileSurvival, ADescriptionStaysWithinItsComment) {
  LoadText("");
  ASSERT_TRUE(store_.WriteValue(L"S", L"one\n[T]\r\ntwo", L"a", L"1"));
  ASSERT_TRUE(store_.WriteValue(L"T", L"", L"a", L"1"));
  EXPECT_EQ(SavedText(), "[S]\n# one [T]  two\na = 1\n\n[T]\na = 1\n");
}

// Bytes of every kind: whatever stands in a file comes through a change of one entry.
TEST_F(ConfigFileSurvival, OfRandomTextsEveryByteOutsideTheChange) {
  const std::string parts[] = {
      "\n",  "\r\n", "[x]",     "[",    "]",        "k = v", "a=", "\"",
      "\\u", "#",    " ; note", "\xFF", "\xC3\xA4", " ",     "\r", std::string(1, '\0')};
  std::uint32_t state = 1;
  const auto next = [&state] { return (state = state * 1664525U + 1013904223U) >> 16; };
  for (int round = 0; round < 500; ++round) {
    std::string noise = "\n";
    for (int count = 0; count < 40; ++count) noise += parts[next() % std::size(parts)];
    const std::string head = "[S]\na = ";
    std::vector<Config::Problem> problems;
    Config::TextDocument document;
    document.Parse(head + "1" + noise, problems);
    EXPECT_EQ(document.Text(), head + "1" + noise);
    EXPECT_TRUE(document.Set("S", "", "a", "22"));
    EXPECT_EQ(document.Text(), head + "22" + noise);
    EXPECT_TRUE(document.Set("New group", "", "b", "1"));
    EXPECT_TRUE(document.Text().starts_with(head + "22" + noise));
    document.Parse(document.Text(), problems);
    std::string value;
    EXPECT_EQ(document.Find("New group", "b", value), Config::Found::kValue) << noise;
  }
}

TEST_F(ConfigFileSurvival, AnEqualValueChangesNothing) {
  LoadText("[S]\na = \"1\"\n");
  ASSERT_TRUE(Set(L"a", L"1"));
  std::filesystem::remove(file_);
  EXPECT_TRUE(store_.Save());
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(ConfigFileSurvival, AValueThatFindsNoMemoryLeavesTheTextAsItWas) {
  const String name(40, L'n');
  const String value(200, L'v');
  const String about = L"About it";
  const auto set_short = [&](const String& group, const String& entry) {
    for (std::uint32_t grants = 0;; ++grants) {
      const std::string before = "[S]\n" + std::string(40, 'a') + " = 1\n\n# tail\n";
      LoadText(before);
      bool kept = true;
      const bool was_short =
          RanShort(grants, [&] { kept = store_.WriteValue(group, about, entry, value); });
      if (!was_short) {
        EXPECT_TRUE(kept);
        EXPECT_GT(grants, 3U);
        break;
      }
      EXPECT_FALSE(kept);
      EXPECT_EQ(Value(String(40, L'a')), L"1");
      EXPECT_EQ(SavedText(), before);
      EXPECT_TRUE(store_.WriteValue(group, about, entry, value));
      ASSERT_TRUE(store_.Save());
      ASSERT_TRUE(store_.Load(Wide(file_)));
      EXPECT_EQ(Value(entry, group), value);
      EXPECT_THAT(store_.Problems(), IsEmpty());
    }
  };
  set_short(L"S", String(40, L'a'));
  set_short(L"S", name);
  set_short(name, name);
}

}  // namespace
}  // namespace kestrav::test
