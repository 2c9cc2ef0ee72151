#include <gtest/gtest.h>

#include <string>

#include "kestrav/host/config/entry.h"
#include "support/short_memory.h"

namespace kestrav::Config {
namespace {

struct Word {
  const wchar_t* text;
  bool value;
};

BoolEntry Switch(bool preset = false) { return {L"Name", L"", preset, false, true, preset}; }

TEST(ConfigEntry, IsStoredUnderItsKeyOrElseItsName) {
  EXPECT_EQ(BoolEntry(L"Name", L"KEY", false, false, true, false).StoredName(), L"KEY");
  EXPECT_EQ(StringEntry(L"Name", L"", 4, L"").StoredName(), L"Name");
  EXPECT_EQ(BoolEntry(L"Name", L"KEY", false, false, true, false).Name(), L"Name");
}

TEST(BoolEntry, ReadsWordsAndDigitsInAnyCase) {
  for (const auto& [text, value] :
       {Word{L"true", true}, Word{L"TRUE", true}, Word{L"Yes", true}, Word{L"oN", true},
        Word{L"1", true}, Word{L"false", false}, Word{L"False", false}, Word{L"no", false},
        Word{L"OFF", false}, Word{L"0", false}}) {
    BoolEntry entry = {L"Name", L"", !value, false, true, !value};
    EXPECT_TRUE(entry.Load(text)) << Text::ToUtf8(text);
    EXPECT_EQ(entry.Value(), value) << Text::ToUtf8(text);
  }
}

TEST(BoolEntry, RefusesAnythingElseAndKeepsItsValue) {
  for (const wchar_t* text : {L"", L"2", L"truee", L"tru", L" true", L"yes\n", L"ja", L"on off"}) {
    BoolEntry entry = Switch(true);
    EXPECT_FALSE(entry.Load(text)) << Text::ToUtf8(text);
    EXPECT_TRUE(entry.Value()) << Text::ToUtf8(text);
    EXPECT_TRUE(entry.IsKept()) << Text::ToUtf8(text);
  }
}

TEST(BoolEntry, RefusesAValueBeyondItsLimits) {
  BoolEntry never = {L"Name", L"", false, false, false, false};
  EXPECT_FALSE(never.SetValue(true));
  EXPECT_FALSE(never.Load(L"true"));
  EXPECT_FALSE(never.Value());
  BoolEntry always = {L"Name", L"", true, true, true, true};
  EXPECT_FALSE(always.SetValue(false));
  EXPECT_TRUE(always.Value());
}

TEST(BoolEntry, WritesTrueAndFalseAndGoesBackToItsDefault) {
  BoolEntry entry = Switch(true);
  EXPECT_EQ(entry.ToText(), L"true");
  ASSERT_TRUE(entry.SetValue(false));
  EXPECT_EQ(entry.ToText(), L"false");
  entry.Reset();
  EXPECT_TRUE(entry.Value());
}

TEST(StringEntry, TakesAsManyCharactersAsItMay) {
  StringEntry entry(L"Name", L"", 256, L"");
  const String longest(256, L'\u00E4');
  EXPECT_TRUE(entry.SetValue(longest));
  EXPECT_FALSE(entry.SetValue(longest + L"a"));
  EXPECT_FALSE(entry.Load(longest + L"a"));
  EXPECT_EQ(entry.Value(), longest);
  EXPECT_EQ(entry.ToText(), longest);
}

TEST(StringEntry, CutsOffAnInitialValueThatIsTooLong) {
  EXPECT_EQ(StringEntry(L"Name", L"", 3, L"abcdef").Value(), L"abc");
}

TEST(StringEntry, HasNoDefaultToGoBackTo) {
  StringEntry entry(L"Name", L"", 8, L"0");
  ASSERT_TRUE(entry.SetValue(L"1"));
  entry.Reset();
  EXPECT_EQ(entry.Value(), L"1");
}

TEST(ConfigEntry, KeepsARefusedValueUntilItsOwnIsChanged) {
  StringEntry entry(L"Name", L"", 2, L"0");
  EXPECT_FALSE(entry.IsKept());
  EXPECT_FALSE(entry.Load(L"long"));
  EXPECT_TRUE(entry.IsKept());
  EXPECT_TRUE(entry.SetValue(L"0"));
  EXPECT_TRUE(entry.IsKept());
  EXPECT_TRUE(entry.SetValue(L"1"));
  EXPECT_FALSE(entry.IsKept());
}

TEST(ConfigEntry, ALaterGoodValueEndsTheKeeping) {
  BoolEntry entry = Switch();
  EXPECT_FALSE(entry.Load(L"maybe"));
  EXPECT_TRUE(entry.Load(L"false"));
  EXPECT_FALSE(entry.IsKept());
}

TEST(ConfigEntry, KeepsAStoredValueThatFoundNoMemory) {
  const String text(64, L'x');
  StringEntry entry(L"Name", L"", 256, L"0");
  bool threw = false;
  {
    const test::ShortMemory memory;
    try {
      static_cast<void>(entry.Load(text));
    } catch (const std::bad_alloc&) {
      threw = true;
    }
  }
  EXPECT_TRUE(threw);
  EXPECT_TRUE(entry.IsKept());
  EXPECT_EQ(entry.Value(), L"0");
}

}  // namespace
}  // namespace kestrav::Config
