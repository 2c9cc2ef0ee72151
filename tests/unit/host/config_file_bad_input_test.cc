#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "config_file.h"
#include "kestrav/host/config/config_group.h"
#include "kestrav/host/config/problem_list.h"
#include "kestrav/host/memory/ptr.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

using Config::Found;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ConfigFileBadInput : public ConfigFileTest {
 protected:
  // A store that could not load takes and saves nothing.
  void ExpectRefused(const String& path, const std::string& why) {
    EXPECT_FALSE(store_.Load(path));
    EXPECT_THAT(ProblemLines(), ElementsAre(0));
    EXPECT_THAT(ProblemTexts(), HasSubstr(why));
    EXPECT_EQ(FindValue(L"a"), Found::kNothing);
    EXPECT_FALSE(Set(L"a", L"2"));
    EXPECT_FALSE(store_.Save());
  }
};

TEST_F(ConfigFileBadInput, AMissingFileReadsAsAnEmptyOne) {
  EXPECT_TRUE(store_.Load(Wide(file_)));
  EXPECT_THAT(store_.Problems(), IsEmpty());
  EXPECT_EQ(FindValue(L"a"), Found::kNothing);
  ASSERT_TRUE(Set(L"a", L"1"));
  EXPECT_EQ(SavedText(), "[S]\n# About it\na = 1\n");
}

TEST_F(ConfigFileBadInput, AnEmptyFileHoldsNothing) {
  LoadText("");
  EXPECT_THAT(store_.Problems(), IsEmpty());
  EXPECT_EQ(FindValue(L"a"), Found::kNothing);
  EXPECT_TRUE(store_.Save());
  EXPECT_EQ(FileContent(file_), "");
}

TEST_F(ConfigFileBadInput, AFolderIsRefused) {
  std::filesystem::create_directory(file_);
  ExpectRefused(Wide(file_), "directory");
  EXPECT_TRUE(std::filesystem::is_directory(file_));
}

TEST_F(ConfigFileBadInput, APipeIsRefusedWithoutWaitingForIt) {
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  ExpectRefused(Wide(file_), "cannot be read");
}

TEST_F(ConfigFileBadInput, APathThatLeadsNowhereIsRefused) {
  ExpectRefused(L"", "No file");
  WriteFile(file_, "");
  ExpectRefused(Wide(file_ / "below"), "cannot be read");
  ExpectRefused(Wide(file_) + String(1, L'\0'), "cannot be read");
}

TEST_F(ConfigFileBadInput, AFileThatMayNotBeReadIsRefused) {
  const std::string text = "[S]\na = 1\n";
  WriteFile(file_, text);
  std::filesystem::permissions(folder_.Path(), std::filesystem::perms(0777));
  std::filesystem::permissions(file_, std::filesystem::perms::none);
  // The privileged user may read every file, so another one tries.
  const auto load_as_another = [&] {
    constexpr unsigned kNobody = 65534;
    if (geteuid() == 0 && seteuid(kNobody) != 0) std::_Exit(2);
    const bool loaded = store_.Load(Wide(file_));
    std::_Exit(loaded || Set(L"a", L"2") || store_.Save() ? 1 : 0);
  };
  EXPECT_EXIT(load_as_another(), testing::ExitedWithCode(0), "");
  std::filesystem::permissions(file_, std::filesystem::perms::owner_all);
  EXPECT_EQ(FileContent(file_), text);
}

TEST_F(ConfigFileBadInput, AFileOf100MegabytesIsRefusedUnread) {
  WriteFile(file_, "[S]\na = 1\n");
  std::filesystem::resize_file(file_, 100'000'000);
  std::size_t largest = 0;
  {
    const LargestAllocation allocation;
    ExpectRefused(Wide(file_), "16 MiB");
    largest = allocation.Bytes();
  }
  EXPECT_LT(largest, 1'000'000U);
  EXPECT_EQ(std::filesystem::file_size(file_), 100'000'000U);
}

TEST_F(ConfigFileBadInput, TheLongestFileIsReadAndOneByteMoreIsNot) {
  const std::string entry = "[S]\na = 1\n";
  LoadText(entry + std::string(Config::kLongestConfigFile - entry.size(), '#'));
  EXPECT_EQ(Value(L"a"), L"1");
  std::filesystem::resize_file(file_, Config::kLongestConfigFile + 1);
  ExpectRefused(Wide(file_), "16 MiB");
}

TEST_F(ConfigFileBadInput, NothingIsSavedThatCouldNotBeReadAgain) {
  const std::string entry = "[S]\na = 1\n";
  LoadText(entry + std::string(Config::kLongestConfigFile - entry.size(), '#'));
  ASSERT_TRUE(Set(L"a", L"22"));
  EXPECT_FALSE(store_.Save());
  ASSERT_TRUE(Set(L"a", L"2"));
  EXPECT_TRUE(store_.Save());
  ASSERT_TRUE(store_.Load(Wide(file_)));
  EXPECT_EQ(Value(L"a"), L"2");
}

TEST_F(ConfigFileBadInput, OneLineOfAMegabyteIsOneEntryOrOneProblem) {
  const std::string megabyte(1'000'000, 'x');
  LoadText("[S]\na = " + megabyte + "\n" + megabyte + "\n");
  EXPECT_EQ(Value(L"a"), Wide(megabyte));
  EXPECT_THAT(ProblemLines(), ElementsAre(3));
}

TEST_F(ConfigFileBadInput, TenThousandEntriesAreReadWrittenAndReadBack) {
  constexpr int kEntries = 10'000;
  LoadText("");
  for (int i = 0; i < kEntries; ++i) ASSERT_TRUE(Set(std::to_wstring(i), L"1"));
  for (int i = 0; i < kEntries; ++i) ASSERT_TRUE(Set(std::to_wstring(i), std::to_wstring(-i)));
  ASSERT_TRUE(store_.Save());
  ASSERT_TRUE(store_.Load(Wide(file_)));
  EXPECT_THAT(store_.Problems(), IsEmpty());
  for (int i = 0; i < kEntries; ++i) ASSERT_EQ(Value(std::to_wstring(i)), std::to_wstring(-i));
}

TEST_F(ConfigFileBadInput, BytesThatAreNoTextAreReportedAsSuch) {
  LoadText("\xFF\xFE[\n\x80 = 1\n[S]\na = \xC0\x80\nb = 1\n# \xFF\n");
  EXPECT_THAT(ProblemLines(), ElementsAre(1, 2, 4));
  EXPECT_THAT(ProblemTexts(), HasSubstr("no valid UTF-8"));
  EXPECT_EQ(Value(L"b"), L"1");
}

TEST_F(ConfigFileBadInput, ManyProblemsEndInOneThatSaysThatThereAreMore) {
  std::string text = "[S]\n";
  for (int i = 0; i < 5000; ++i) text += "noise\n";
  LoadText(text);
  ASSERT_THAT(store_.Problems(), SizeIs(Config::kMostProblems));
  EXPECT_EQ(store_.Problems().back(),
            (Config::Problem{0, L"There are more problems in the file."}));
  std::filesystem::remove_all(folder_.Path());
  ASSERT_TRUE(Set(L"a", L"1"));
  EXPECT_FALSE(store_.Save());
  EXPECT_THAT(Text::ToUtf8(store_.Problems().back().what), HasSubstr("cannot be written"));
}

TEST_F(ConfigFileBadInput, AValueThatIsTooLongIsReportedAndStays) {
  const std::string text = "[S]\n# mine\na = " + std::string(257, 'x') + "\nb = 1\n";
  LoadText(text);
  Config::ConfigGroupBase group(L"S", L"About it");
  const auto a = std::make_shared<Config::StringEntry>(L"a", L"", 256, L"0");
  const auto b = std::make_shared<Config::StringEntry>(L"b", L"", 256, L"0");
  ASSERT_TRUE(group.AddEntry(a) && group.AddEntry(b));
  EXPECT_FALSE(group.Read(store_));
  EXPECT_EQ(a->Value(), L"0");
  EXPECT_EQ(b->Value(), L"1");
  EXPECT_THAT(ProblemLines(), ElementsAre(3));
  EXPECT_TRUE(group.Write(store_));
  EXPECT_EQ(SavedText(), text);
}

TEST_F(ConfigFileBadInput, AStoreThatFailedOnceCanLoadAgain) {
  std::filesystem::create_directory(file_);
  EXPECT_FALSE(store_.Load(Wide(file_)));
  std::filesystem::remove(file_);
  LoadText("[S]\na = 1\n");
  EXPECT_EQ(Value(L"a"), L"1");
  EXPECT_THAT(store_.Problems(), IsEmpty());
}

TEST_F(ConfigFileBadInput, AStoreThatLoadedNothingTakesNothing) {
  EXPECT_EQ(FindValue(L"a"), Found::kNothing);
  EXPECT_FALSE(Set(L"a", L"1"));
  EXPECT_FALSE(store_.Save());
}

TEST_F(ConfigFileBadInput, ShortMemoryRefusesTheWholeFileAndLosesNothing) {
  const std::string text =
      "[S]\n" + std::string(50, 'a') + " = 1\nnoise\n[T]\n" + std::string(50, 'b') + " = \"2\"\n";
  WriteFile(file_, text);
  const String path = Wide(file_);
  const String entry(50, L'a');
  for (std::uint32_t grants = 0;; ++grants) {
    bool loaded = false;
    const bool was_short = RanShort(grants, [&] { loaded = store_.Load(path); });
    EXPECT_EQ(loaded, !was_short) << grants;
    EXPECT_EQ(Value(entry).has_value(), loaded) << grants;
    EXPECT_EQ(Set(entry, L"1"), loaded) << grants;
    if (loaded) break;
    EXPECT_FALSE(store_.Save()) << grants;
  }
  EXPECT_EQ(FileContent(file_), text);
}

TEST_F(ConfigFileBadInput, AValueThatFindsNoMemoryCountsAsUnreadable) {
  LoadText("[S]\n" + std::string(50, 'a') + " = " + std::string(50, 'v') + "\n");
  const String group = L"S";
  const String entry(50, L'a');
  String value = L"old";
  Found found = Found::kValue;
  std::uint32_t grants = 0;
  for (; RanShort(grants, [&] { found = store_.ReadValue(group, entry, value); }); ++grants) {
    EXPECT_EQ(found, Found::kUnreadable) << grants;
    EXPECT_EQ(value, L"old") << grants;
  }
  EXPECT_GT(grants, 0U);
  EXPECT_EQ(found, Found::kValue);
}

}  // namespace
}  // namespace kestrav::test
