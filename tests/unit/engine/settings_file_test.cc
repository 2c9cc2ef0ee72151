#include "kestrav/engine/settings_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/short_memory.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

using Clients = std::map<String, bool>;

// Every client but Gamma is on before the file is read.
Clients KnownClients() {
  return {{L"Alpha", true},
          {L"Beta", true},
          {L"Gamma", false},
          {L"GPS", true},
          {L"A", true},
          {L"1", true},
          {L" Beta", true},
          {L"Beta\r", true},
          {L"binary:Alpha", true},
          {L"\U0001F697\u00E4", true}};
}

struct Read {
  bool result = false;
  std::vector<String> on;

  friend bool operator==(const Read&, const Read&) = default;
};

Read ReadInto(Clients clients, const std::string& content) {
  const TempDir dir;
  WriteFile(dir / "settings", content);
  const Clients before = clients;
  Read read;
  read.result = ReadSettingsFile(clients, Wide(dir / "settings").c_str());
  EXPECT_EQ(clients.size(), before.size());
  for (const auto& [name, on] : clients) {
    EXPECT_TRUE(before.contains(name));
    if (on) read.on.push_back(name);
  }
  EXPECT_EQ(FileContent(dir / "settings"), content);
  return read;
}

struct ListCase {
  const char* name;
  std::string content;
  std::vector<String> on;
};

class SettingsFile : public testing::TestWithParam<ListCase> {};

TEST_P(SettingsFile, SwitchesOnWhatItListsAndTheOthersOff) {
  EXPECT_EQ(ReadInto(KnownClients(), GetParam().content),
            (Read{!GetParam().on.empty(), GetParam().on}));
}

const std::string kMegabyte(1'000'000, 'x');

const ListCase kLists[] = {
    {"Two", "binary:Alpha,Beta\n", {L"Alpha", L"Beta"}},
    {"One", "binary:Gamma\n", {L"Gamma"}},
    {"TheSameTwice", "binary:Beta,Beta\n", {L"Beta"}},
    {"InAnyOrder", "binary:Gamma,Alpha\n", {L"Alpha", L"Gamma"}},
    {"WithoutALineEnd", "binary:Alpha,Beta", {L"Alpha", L"Beta"}},
    {"WithCarriageReturns", "first\r\nbinary:Alpha,Beta\r\nlast\r\n", {L"Alpha", L"Beta"}},
    {"WithACarriageReturnOfItsOwn", "binary:Beta\r\r\n", {L"Beta\r"}},
    {"BehindAByteOrderMark",
     "\xEF\xBB\xBF"
     "binary:Alpha\n",
     {L"Alpha"}},
    {"BehindOtherLines", "# text\n\n binary:Beta\nxbinary:Beta\nbinary:Alpha\n", {L"Alpha"}},
    {"OfTheFirstLineOnly", "binary:Alpha\nbinary:Beta\n", {L"Alpha"}},
    {"OfTheFirstLineOnlyEvenIfEmpty", "binary:\nbinary:Beta\n", {}},
    {"OfUnknownClients", "binary:Delta,Alphabet,Alph\n", {}},
    {"OfUnknownClientsToo", "binary:Delta,Alpha\n", {L"Alpha"}},
    {"WithABlankInFront", "binary: Alpha\n", {}},
    {"WithABlankBehind", "binary:Alpha ,Gamma\n", {L"Gamma"}},
    {"WithANameThatHasABlank", "binary:Alpha, Beta\n", {L" Beta", L"Alpha"}},
    {"WithEmptyEntries", "binary:,Alpha,,Beta,\n", {L"Alpha", L"Beta"}},
    {"OfNothing", "binary:\n", {}},
    {"OfCommas", "binary:,\n", {}},
    {"OfManyCommas", "binary:" + std::string(10'000, ',') + "Beta", {L"Beta"}},
    {"WithTheCaseOfTheNames", "binary:alpha,BETA,Gamma\n", {L"Gamma"}},
    {"InAnyScript", "binary:\xF0\x9F\x9A\x97\xC3\xA4\n", {L"\U0001F697\u00E4"}},
    {"WithoutThePrefixOnce", "binary:binary:Alpha\n", {L"binary:Alpha"}},
    {"WithCharactersOfThePrefix", "binary:Alphabinary:\n", {}},
    {"BehindALongLine", kMegabyte + "\nbinary:Alpha\n", {L"Alpha"}},
    {"OnALongLine", "binary:" + kMegabyte + ",Alpha\n", {L"Alpha"}},
    {"CutShortByAZero", std::string("binary:Alpha\0,Beta\n", 19), {L"Beta"}},
    {"NotOfThisCase", "Binary:Alpha\nBINARY:Beta\n", {}},
    {"NotWithoutAColon", "binary\nbinary Alpha\n", {}},
    {"NotOfAnEmptyFile", "", {}},
    {"NotOfLinesAlone", "\n\n\n", {}},
    {"NumberOne", "binary:1\n", {L"GPS"}},
    {"NumberZero", "binary:0\n", {}},
    {"NumberNine", "binary:9\n", {}},
    {"NoNumber", "binary:x\n", {}},
    {"NoNumberButASign", "binary:+\n", {}},
    {"NoNumberButABlank", "binary: \n", {}},
    {"NoNumberButANameOfOneCharacter", "binary:A\n", {}},
    {"NumberInAnotherScript", "binary:\xD9\xA1\n", {}},  // an Arabic-Indic one
    {"NumberOfTwoDigits", "binary:01\n", {}},
    {"NumberWithACarriageReturn", "binary:1\r\n", {L"GPS"}},
    {"NumberInAList", "binary:1,Gamma\n", {L"1", L"Gamma"}},
    {"NumberBeforeAComma", "binary:1,\n", {L"1"}},
    {"NameOfTheClientOfTheNumber", "binary:GPS\n", {L"GPS"}},
};

INSTANTIATE_TEST_SUITE_P(Lists, SettingsFile, testing::ValuesIn(kLists),
                         [](const auto& instance) { return instance.param.name; });

TEST(SettingsFileNumber, NeedsTheClient) {
  for (const std::string content : {"binary:1\n", "binary:0\n"}) {
    EXPECT_EQ(ReadInto({{L"Alpha", true}, {L"1", true}, {L"gps", true}}, content), Read());
  }
}

TEST(SettingsFileName, MayBeEmptyWhenTheCallerSaysSo) {
  EXPECT_EQ(ReadInto({{L"", false}}, "binary:\n"), (Read{true, {L""}}));
  EXPECT_EQ(ReadInto({{L"", false}}, "binary:,x\n"), (Read{true, {L""}}));
}

TEST(SettingsFileFailure, ToOpenLeavesTheMap) {
  const TempDir dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const String& path : {Wide(dir / "missing"), Wide(dir.Path()), Wide(fifo), String()}) {
    Clients clients = KnownClients();
    EXPECT_FALSE(ReadSettingsFile(clients, path.c_str())) << Text::ToUtf8(path);
    EXPECT_EQ(clients, KnownClients());
  }
  Clients clients = KnownClients();
  EXPECT_FALSE(ReadSettingsFile(clients, nullptr));
  EXPECT_EQ(clients, KnownClients());
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
}

TEST(SettingsFileFailure, IsAMapWithoutClients) {
  Clients nobody;
  EXPECT_EQ(ReadInto(nobody, "binary:Alpha,\n"), Read());
}

TEST(SettingsFileFailure, ShortOfMemorySwitchesNothingOnThatIsNotListed) {
  const TempDir dir;
  WriteFile(dir / "settings", "# clients of this vehicle\nbinary:Alpha,no such client\n");
  const String path = Wide(dir / "settings");
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    Clients clients = KnownClients();
    bool result = false;
    was_short = RanShort(grants, [&] { result = ReadSettingsFile(clients, path.c_str()); });
    EXPECT_EQ(result, !was_short) << grants;
    if (clients == KnownClients()) continue;  // it was not opened
    for (const auto& [name, on] : clients) EXPECT_EQ(on, result && name == L"Alpha") << grants;
  }
  EXPECT_GT(grants, 2u);
}

}  // namespace
}  // namespace kestrav::test
