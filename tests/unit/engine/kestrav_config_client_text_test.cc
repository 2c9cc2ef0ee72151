#include <gtest/gtest.h>

#include "kestrav/engine/kestrav_config.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

struct ClientText {
  const wchar_t* text;
  bool succeeds;
  bool selected;
  const wchar_t* control;
};

class ClientTexts : public testing::TestWithParam<ClientText> {};

TEST_P(ClientTexts, AreANumberAndAControlString) {
  const auto& [text, succeeds, is_selected, control_string] = GetParam();
  bool selected = true;
  String control = L"old";
  EXPECT_EQ(KestravConfig::ParseClientString(selected, control, text), succeeds);
  EXPECT_EQ(selected, is_selected);
  EXPECT_EQ(control, control_string);
}

INSTANTIATE_TEST_SUITE_P(
    Good, ClientTexts,
    testing::Values(ClientText{L"1,mode=3", true, true, L"mode=3"},
                    ClientText{L"0", true, false, L""}, ClientText{L"1,", true, true, L""},
                    ClientText{L"1", true, true, L""}, ClientText{L"0,x", true, false, L"x"},
                    ClientText{L"2,x", true, false, L"x"}, ClientText{L"255,x", true, false, L"x"},
                    ClientText{L"1,a,b", true, true, L"a,b"}, ClientText{L"1,,", true, true, L","},
                    ClientText{L"1, x ", true, true, L" x "}, ClientText{L"001", true, true, L""},
                    ClientText{L" \t1\t ,x", true, true, L"x"}, ClientText{L"+1", true, true, L""},
                    ClientText{L" +1 ", true, true, L""}, ClientText{L"-1", true, false, L""}));

INSTANTIATE_TEST_SUITE_P(
    Bad, ClientTexts,
    testing::Values(ClientText{nullptr, false, false, L""}, ClientText{L"", false, false, L""},
                    ClientText{L",x", false, false, L""}, ClientText{L"x", false, false, L""},
                    ClientText{L"x,1", false, false, L""}, ClientText{L"256", false, false, L""},
                    ClientText{L"256,x", false, false, L""}, ClientText{L"257", false, false, L""},
                    ClientText{L"1x", false, false, L""}, ClientText{L"1 1", false, false, L""},
                    ClientText{L"++1", false, false, L""}, ClientText{L"+ 1", false, false, L""},
                    ClientText{L"-", false, false, L""}, ClientText{L"1;x", false, false, L""},
                    ClientText{L"\n1", false, false, L""}, ClientText{L"0x1", false, false, L""},
                    ClientText{L"4294967297", false, false, L""}));

TEST(ClientText, AControlStringThatFindsNoMemoryFails) {
  const String text = L"1," + String(100, L'x');
  bool selected = true;
  String control;
  bool parsed = true;
  {
    const ShortMemory memory;
    parsed = KestravConfig::ParseClientString(selected, control, text.c_str());
  }
  EXPECT_FALSE(parsed);
  EXPECT_FALSE(selected);
  EXPECT_EQ(control, L"");
}

}  // namespace
}  // namespace kestrav::test
