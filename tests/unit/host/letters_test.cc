#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "kestrav/host/text/string.h"

namespace kestrav {
namespace {

TEST(Letters, AreAsManyOnEachPageAsUnicode14Counts) {
  // Upper and lower case letters per 256 code points, counted by another implementation of Unicode.
  const std::map<int, int> expected = {
      {0x00, 115}, {0x01, 247}, {0x02, 175}, {0x03, 127}, {0x04, 248}, {0x05, 127}, {0x10, 86},
      {0x13, 92},  {0x1C, 55},  {0x1D, 91},  {0x1E, 256}, {0x1F, 191}, {0x21, 44},  {0x2C, 233},
      {0x2D, 40},  {0xA6, 74},  {0xA7, 175}, {0xAB, 132}, {0xFB, 12},  {0xFF, 52}};
  std::map<int, int> found;
  for (wchar_t c = 0; c <= 0xFFFF; ++c) {
    if (Text::IsLetter(c)) ++found[c >> 8];
  }
  EXPECT_EQ(found, expected);
}

TEST(Letters, OfAsciiAreThe52OfTheAlphabet) {
  for (wchar_t c = 0; c < 0x80; ++c) {
    EXPECT_EQ(Text::IsLetter(c), (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'))
        << static_cast<int>(c);
  }
}

TEST(Letters, AreUpperAndLowerCaseInAnyScript) {
  for (const wchar_t c :
       std::wstring(L"\x00B5\x00C4\x00DF\x00FF\x0130\x0131\x03A9\x03C9\x0416\x044F"
                    L"\x0531\x10A0\x10D0\x13A0\x1E9E\x2126\x2C00\xA7F6\xAB70"
                    L"\xFB06\xFF21\xFF5A")) {
    EXPECT_TRUE(Text::IsLetter(c)) << std::hex << static_cast<int>(c);
  }
}

TEST(Letters, AreNotTitleCaseModifiersCaselessLettersDigitsMarksOrSymbols) {
  for (const wchar_t c :
       std::wstring(L"\x01C5\x1F88\x02B0\x1D2C\xA770\x00AA\x01BB\x05D0\x0627\x3042"
                    L"\x4E2D\xAC00\x0660\x0300\x2160\x24B6\x00D7\x00F7\x0378"
                    L"\xD800\xDFFF\xE000\xFFFD\xFFFF")) {
    EXPECT_FALSE(Text::IsLetter(c)) << std::hex << static_cast<int>(c);
  }
}

TEST(Letters, AboveTheFirst65536CodePointsGoByTheLow16Bits) {
  for (wchar_t c = 0; c <= 0xFFFF; ++c) {
    const bool letter = Text::IsLetter(c);
    for (const wchar_t page : {0x1'0000, 0x10'0000}) {
      ASSERT_EQ(Text::IsLetter(page + c), letter) << std::hex << static_cast<int>(page + c);
    }
  }
}

}  // namespace
}  // namespace kestrav
