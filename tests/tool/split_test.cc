#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "cut.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// The names of the files in a folder, sorted.
std::vector<std::string> Files(const Folder& folder) {
  std::vector<std::string> names;
  for (const auto& file : std::filesystem::directory_iterator(folder.Path(""))) {
    names.push_back(file.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(Split, ByTimeMakesAPieceForEachSlice) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A));
  const Result result = RunTool({"split", log, "--every", "7"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(Files(folder), ElementsAre("a-001.klog", "a-002.klog", "a-003.klog", "a.klog"));
  EXPECT_EQ(Lines(result.out).back(), "3 pieces");
  const std::vector<Meaning> all = Meanings(Parse(log));
  for (std::uint32_t n = 0; n < 3; ++n) {
    const std::string path = folder.Path("a-00" + std::to_string(n + 1) + ".klog");
    EXPECT_THAT(result.out, HasSubstr(path + ": "));
    const ParsedLog piece = Parse(path);
    const auto is_in_slice = [n](const Meaning& record) { return record.wall_ms / 7000 == n; };
    EXPECT_EQ(Meanings(piece), Only(all, is_in_slice));
    EXPECT_EQ(piece.start_time, kBuiltStartTime + 7 * n);
    EXPECT_EQ(piece.start_clock, 5000 + 7000 * n);
    EXPECT_EQ(piece.duration_ms, n < 2 ? 7000U : 6000U);
    EXPECT_EQ(piece.selection, 0x9008);
    EXPECT_NE(piece.data_key, 0);
    ExpectHealthy(path);
  }
}

TEST(Split, ByTimeGivesNoFileWhereNoRecordIs) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", TimedLog({2500, 2600, 3900, 9999}, 12'000));
  const Result result = RunTool({"split", log, "--every", "1.5", "--plain"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(Files(folder), ElementsAre("a-002.klog", "a-003.klog", "a-007.klog", "a.klog"));
  EXPECT_EQ(Lines(result.out).back(), "3 pieces; 4 numbers are left out, where no record is");
  const ParsedLog piece = Parse(folder.Path("a-002.klog"));
  EXPECT_EQ(piece.start_clock, 6000U) << "the whole second before";
  EXPECT_EQ(piece.header_key, 0);
  ExpectHealthy(folder.Path("a-007.klog"));
}

TEST(Split, BySizeKeepsToItUnlessARecordIsLarger) {
  const Folder folder;
  LogBuilder drive = Drive(0x2A);
  drive.Record(21, 9, 25'000, std::string(20'000, 'y')).Record(21, 9, 25'001, "z");
  const std::string log = WriteLogAs(folder, "a.klog", drive);
  const Result result = RunTool({"split", log, "--size", "16k", "-o", folder.Path("p")});
  EXPECT_EQ(result.code, 0) << result.err;
  std::vector<Meaning> found;
  int larger = 0;
  for (std::size_t n = 1; n <= Files(folder).size() - 1; ++n) {
    const std::string number = std::to_string(n);
    const std::string path =
        folder.Path("p-" + std::string(3 - number.size(), '0') + number + ".klog");
    const ParsedLog piece = Parse(path);
    for (const Meaning& record : Meanings(piece)) found.push_back(record);
    if (piece.stream_length > 16'384) {
      ++larger;
      EXPECT_EQ(Meanings(piece).size(), 1U);
    }
    ExpectHealthy(path);
  }
  EXPECT_EQ(found, Meanings(Parse(log)));
  EXPECT_EQ(larger, 1);
}

TEST(Split, OfALogWithoutRecordsIsOnePiece) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"GPS", 21}}, 0);
  const std::string path = WriteLogAs(folder, "a.klog", log);
  for (const Arguments& how : {Arguments{"--every", "1"}, {"--size", "1"}}) {
    const Result result = RunTool({"split", path, how[0], how[1], "--plain", "--force"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(ReadFile(folder.Path("a-001.klog")), ReadFile(path));
  }
}

TEST(Split, OverwritesOnlyWhenItIsForced) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  folder.Write("a-002.klog", "precious");
  folder.Write("a-x02.klog", "of no concern");
  const Result result = RunTool({"split", log, "--every", "7"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "kestrav: split: " + folder.Path("a-002.klog") +
                            ": is there already; --force overwrites it\n");
  EXPECT_THAT(Files(folder), ElementsAre("a-002.klog", "a-x02.klog", "a.klog"));
  EXPECT_EQ(ReadFile(folder.Path("a-002.klog")), "precious");
  EXPECT_EQ(RunTool({"split", log, "--every", "7", "--force"}).code, 0);
  Parse(folder.Path("a-002.klog"));
}

TEST(Split, NeverWritesOverItsInput) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a-002.klog", Drive());
  const std::string content = ReadFile(log);
  const Result result = RunTool({"split", log, "--every", "7", "-o", folder.Path("a"), "--force"});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, HasSubstr("would be overwritten"));
  EXPECT_EQ(ReadFile(log), content);
  EXPECT_EQ(Files(folder).size(), 1U);
}

TEST(Split, HandsOnWhatCanBeReadOfADamagedLog) {
  const Folder folder;
  LogBuilder damaged = Drive();
  damaged.Flip(damaged.RecordOffset(50) + 22).Cut(damaged.Size() - 3);
  const std::string log = WriteLogAs(folder, "a.klog", damaged);
  const Result result = RunTool({"split", log, "--every", "10"});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  ExpectHealthy(folder.Path("a-001.klog"));
  ExpectHealthy(folder.Path("a-002.klog"));
  const std::size_t whole = Meanings(Parse(WriteLogAs(folder, "w", Drive()))).size();
  EXPECT_EQ(Meanings(Parse(folder.Path("a-001.klog"))).size() +
                Meanings(Parse(folder.Path("a-002.klog"))).size(),
            whole - 2);
}

TEST(Split, LeavesNoHalfPieceWhenItFails) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  const Result full = RunWithFileLimit(1, {"split", log, "--every", "7"});
  EXPECT_EQ(full.code, 1);
  EXPECT_EQ(Lines(full.err).size(), 1U) << full.err;
  EXPECT_THAT(Files(folder), ElementsAre("a.klog"));
}

TEST(Split, RefusesWrongUsage) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  for (const Arguments& how : {Arguments{},
                               {"--every", "0"},
                               {"--every", "-1"},
                               {"--every", "nan"},
                               {"--size", "0"},
                               {"--size", "5x"},
                               {"--size", "5G"},
                               {"--every", "1", "--size", "1k"}}) {
    Arguments arguments = {"split", log};
    arguments.insert(arguments.end(), how.begin(), how.end());
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2) << testing::PrintToString(how);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
  EXPECT_EQ(RunTool({"split", log, "--every", "1", "-o", folder.Path("no/p")}).code, 1);
  EXPECT_THAT(Files(folder), ElementsAre("a.klog"));
}

}  // namespace
}  // namespace kestrav::test
