#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>

#include "kestrav/host/text/integer.h"
#include "kestrav/host/text/string.h"

namespace kestrav {
namespace {

using namespace std::string_literals;

std::optional<std::uint32_t> Read(std::wstring_view text, std::uint32_t max = 0xFFFFFFFF) {
  std::uint32_t value = 123456;
  if (Text::ReadUnsigned(text, value, max)) return value;
  EXPECT_EQ(value, 123456U) << "a failed reading changes nothing";
  return std::nullopt;
}

TEST(IntegerReader, ReadsDecimalNumbersOf32Bits) {
  EXPECT_EQ(Read(L"0"), 0U);
  EXPECT_EQ(Read(L"42"), 42U);
  EXPECT_EQ(Read(L"000000000000000000000042"), 42U);
  EXPECT_EQ(Read(L"4294967295"), 4294967295U);
}

TEST(IntegerReader, AcceptsBlanksAndTabsAroundTheNumberAndOneSign) {
  EXPECT_EQ(Read(L" 42"), 42U);
  EXPECT_EQ(Read(L"42\t"), 42U);
  EXPECT_EQ(Read(L" \t +42 \t"), 42U);
  EXPECT_EQ(Read(L"+0"), 0U);
}

TEST(IntegerReader, NegatesModulo32Bits) {
  EXPECT_EQ(Read(L"-1"), 4294967295U);
  EXPECT_EQ(Read(L"-0"), 0U);
  EXPECT_EQ(Read(L"-4294967295"), 1U);
}

TEST(IntegerReader, RefusesNumbersAboveTheLargest) {
  EXPECT_EQ(Read(L"4294967296"), std::nullopt);
  EXPECT_EQ(Read(L"-4294967296"), std::nullopt);
  EXPECT_EQ(Read(L"18446744073709551616"), std::nullopt);
  EXPECT_EQ(Read(std::wstring(100'000, L'9')), std::nullopt);
  EXPECT_EQ(Read(L"65535", 65535), 65535U);
  EXPECT_EQ(Read(L"65536", 65535), std::nullopt);
  EXPECT_EQ(Read(L"0", 0), 0U);
  EXPECT_EQ(Read(L"1", 0), std::nullopt);
}

TEST(IntegerReader, RefusesAnythingElse) {
  for (const wchar_t* text :
       {L"",    L" ",   L"+",   L"-",      L"- ",     L"x",     L"4x",  L"x4",
        L"4 2", L"+-4", L"++4", L"+ 4",    L"4-",     L"0x10",  L"1e3", L"4.0",
        L"4,0", L"4\n", L"\r4", L"\x0663", L"\xFF14", L"\x00B2"}) {
    EXPECT_EQ(Read(text), std::nullopt) << Text::ToUtf8(text);
  }
  EXPECT_EQ(Read(std::wstring_view(L"4\0", 2)), std::nullopt);
}

struct Encoding {
  String text;
  std::string utf8;
};

void PrintTo(const Encoding& row, std::ostream* out) { *out << testing::PrintToString(row.utf8); }

class Utf8 : public testing::TestWithParam<Encoding> {};

TEST_P(Utf8, GoesBothWays) {
  EXPECT_EQ(Text::ToUtf8(GetParam().text), GetParam().utf8);
  EXPECT_EQ(Text::FromUtf8(GetParam().utf8), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, Utf8,
    testing::Values(Encoding{L"", ""}, Encoding{L"GPS 1", "GPS 1"}, Encoding{L"\x7F", "\x7F"},
                    Encoding{L"\x80", "\xC2\x80"}, Encoding{L"\x00E4", "\xC3\xA4"},
                    Encoding{L"\x07FF", "\xDF\xBF"}, Encoding{L"\x0800", "\xE0\xA0\x80"},
                    Encoding{L"\x4E2D", "\xE4\xB8\xAD"}, Encoding{L"\xD7FF", "\xED\x9F\xBF"},
                    Encoding{L"\xE000", "\xEE\x80\x80"}, Encoding{L"\xFFFF", "\xEF\xBF\xBF"},
                    Encoding{L"\x10000", "\xF0\x90\x80\x80"},
                    Encoding{L"\x1F600", "\xF0\x9F\x98\x80"},
                    Encoding{L"\x10FFFF", "\xF4\x8F\xBF\xBF"},
                    Encoding{String(L"a\0b", 3), "a\0b"s},
                    Encoding{L"a\x00E4\x4E2D\x1F600z", "a\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80z"}));

TEST(Utf8, EveryCodePointOfTheFirst65536AndEvery61stBeyondComesBack) {
  String all;
  for (wchar_t c = 0; c <= 0x10FFFF; c += c < 0x10000 ? 1 : 61) {
    if (c < 0xD800 || c > 0xDFFF) all += c;
  }
  EXPECT_TRUE(Text::FromUtf8(Text::ToUtf8(all)) == all);
}

TEST(Utf8, AValueThatIsNoCodePointBecomesTheReplacement) {
  for (const std::uint32_t value :
       {0xD800U, 0xDBFFU, 0xDFFFU, 0x110000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    EXPECT_EQ(Text::ToUtf8(String(1, static_cast<wchar_t>(value))), "\xEF\xBF\xBD") << value;
  }
}

struct Invalid {
  std::string utf8;
  String text;
};

void PrintTo(const Invalid& row, std::ostream* out) { *out << testing::PrintToString(row.utf8); }

class InvalidUtf8 : public testing::TestWithParam<Invalid> {};

TEST_P(InvalidUtf8, HasAReplacementForEachByteThatFitsNowhere) {
  EXPECT_EQ(Text::FromUtf8(GetParam().utf8), GetParam().text);
}

const String kBad = L"\xFFFD";

INSTANTIATE_TEST_SUITE_P(
    Sequences, InvalidUtf8,
    testing::Values(Invalid{"\x80", kBad},                                   // nothing led it
                    Invalid{"a\xBFz", L"a" + kBad + L"z"},                   //
                    Invalid{"\xC3", kBad},                                   // cut short
                    Invalid{"\xE4\xB8", kBad + kBad},                        //
                    Invalid{"\xF0\x9F\x98", kBad + kBad + kBad},             //
                    Invalid{"\xC3z", kBad + L"z"},                           // broken off
                    Invalid{"\xE4\xB8z", kBad + kBad + L"z"},                //
                    Invalid{"\xC3\xC3\xA4", kBad + L"\x00E4"},               //
                    Invalid{"\xC0\x80", kBad + kBad},                        // longer than needed
                    Invalid{"\xC1\xBF", kBad + kBad},                        //
                    Invalid{"\xE0\x9F\xBF", kBad + kBad + kBad},             //
                    Invalid{"\xF0\x8F\xBF\xBF", kBad + kBad + kBad + kBad},  //
                    Invalid{"\xED\xA0\x80", kBad + kBad + kBad},             // a surrogate
                    Invalid{"\xED\xBF\xBF", kBad + kBad + kBad},             //
                    Invalid{"\xF4\x90\x80\x80", kBad + kBad + kBad + kBad},  // above U+10FFFF
                    Invalid{"\xF5\x80\x80\x80", kBad + kBad + kBad + kBad},  //
                    Invalid{"\xFE\xFF", kBad + kBad}));

}  // namespace
}  // namespace kestrav
