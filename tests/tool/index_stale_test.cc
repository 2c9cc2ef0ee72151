#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>

#include "long_log.h"
#include "records.h"
#include "run.h"

namespace kestrav::test {
namespace {

using testing::HasSubstr;

Result Scan(const std::string& log) { return RunTool({"info", "--scan", "--json", log}); }

std::string MakeIndex(const std::string& log) {
  const Result result = RunTool({"index", log});
  EXPECT_EQ(result.code, 0) << result.err;
  return log + ".kidx";
}

bool IsUpToDate(const std::string& log) {
  return RunTool({"index", log}).out == log + ".kidx: up to date\n";
}

TEST(StaleIndex, IsPassedOverAndMadeAnew) {
  const Folder folder;
  const LogBuilder log = ManyRecords(3, 1000);
  const std::string path = WriteTo(folder, "a.klog", log);
  MakeIndex(path);
  LogBuilder longer = ManyRecords(3, 1000);
  longer.Record(21, 1, 90000, "one more");
  WriteTo(folder, "a.klog", longer);
  EXPECT_EQ(nlohmann::json::parse(Scan(path).out)["scan"]["records"], 1002);
  EXPECT_TRUE(IsUpToDate(path));
}

TEST(StaleIndex, IsKnownByTheTimeOfTheLogAlone) {
  const Folder folder;
  const std::string path = WriteTo(folder, "a.klog", ManyRecords(3, 1000));
  MakeIndex(path);
  const auto time = std::filesystem::last_write_time(path);
  std::filesystem::last_write_time(path, time + std::chrono::milliseconds(1));
  EXPECT_THAT(RunTool({"index", path}).out, HasSubstr("1,001 records"));
}

TEST(StaleIndex, IsKnownByBothEndsOfTheLogAlone) {
  const Folder folder;
  const LogBuilder log = ManyRecords(0, 18000);
  const std::string path = WriteTo(folder, "a.klog", log);
  for (const std::size_t offset : {std::size_t{27}, log.RecordOffset(5), log.RecordOffset(17990)}) {
    RunTool({"index", path});  // of a log that the round before damaged
    Overwrite(path, offset, "?");
    EXPECT_THAT(RunTool({"index", path}).out, HasSubstr("checkpoints")) << offset;
  }
}

TEST(ForeignIndex, IsPassedOverAndMadeAnewUnlessItIsNoIndexAtAll) {
  const Folder folder;
  const std::string one = WriteTo(folder, "a.klog", ManyRecords(0, 10));
  const std::string other = WriteTo(folder, "b.klog", ManyRecords(0, 20));
  const std::string truth = Scan(other).out;
  std::filesystem::copy_file(MakeIndex(one), other + ".kidx");
  EXPECT_EQ(Scan(other).out, truth);
  EXPECT_TRUE(IsUpToDate(other));
  const std::string note = folder.Write("b.klog.kidx", "a note that somebody wrote");
  EXPECT_EQ(Scan(other).out, truth);
  EXPECT_EQ(ReadFile(note), "a note that somebody wrote");
}

TEST(DamagedIndex, IsAsGoodAsNone) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", ManyRecords(0, 30));
  const std::string truth = Scan(log).out;
  const std::string good = ReadFile(MakeIndex(log));
  const auto expect_the_truth = [&](const std::string& index) {
    folder.Write("a.klog.kidx", index);
    const Result result = Scan(log);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, truth);
  };
  for (std::size_t at = 0; at < good.size(); at += 9) {
    std::string damaged = good;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    expect_the_truth(damaged);
  }
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{7}, std::size_t{160}, good.size() - 1}) {
    expect_the_truth(good.substr(0, size));
  }
  expect_the_truth(good + "x");
}

// That they can begin where they are asked to is what it is there for.
TEST(StaleIndex, IsMadeAnewByWhateverBeginsLater) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", ManyRecords(3, 1000));
  const std::string out = folder.Path("out.klog");
  const std::string foreign = ReadFile(MakeIndex(WriteTo(folder, "b.klog", ManyRecords(0, 10))));
  for (const Arguments& command : {Arguments{"info", "--scan", log},
                                   {"cat", "--from", "9", log},
                                   {"trim", "--from", "9", log, "-o", out},
                                   {"play", "--virtual", "--from", "9", log}}) {
    SCOPED_TRACE(command[0]);
    folder.Write("a.klog.kidx", foreign);
    const Result result = RunTool(command);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(IsUpToDate(log));
  }
}

TEST(StaleIndex, StaysWhereANewOneWouldBeOfNoUse) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", ManyRecords(3, 1000));
  const std::string running = WriteTo(folder, "c.klog", ManyRecords(3, 1000).Zero(16, 4));
  const std::string foreign = ReadFile(MakeIndex(WriteTo(folder, "b.klog", ManyRecords(0, 10))));
  const auto stays = [&](const Arguments& command, const std::string& index) {
    folder.Write(index, foreign);
    RunTool(command);
    return ReadFile(folder.Path(index)) == foreign;
  };
  EXPECT_TRUE(stays({"cat", log}, "a.klog.kidx"));
  EXPECT_TRUE(stays({"info", log}, "a.klog.kidx"));
  EXPECT_TRUE(stays({"cat", "--from", "9", running}, "c.klog.kidx"));
  EXPECT_TRUE(stays({"info", "--scan", running}, "c.klog.kidx"));
}

}  // namespace
}  // namespace kestrav::test
