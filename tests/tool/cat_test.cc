#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "records.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

std::string WriteLog(const Folder& folder, const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write("a.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

LogBuilder SmallLog(std::uint8_t key = 0) {
  LogBuilder log(key, key);
  log.StartClock(1000).Dictionary({{"GPS", 21}, {"Q\"x", 22}}, 1000);
  log.Record(21, 1, 1000, "one").Record(22, 2, 2500, "two").Record(40, 3, 3000, "three");
  return log;
}

std::vector<std::string> Raw(const std::string& path, Arguments more = {}) {
  more.insert(more.begin(), {"cat", "--format", "raw", path});
  const Result result = RunTool(more);
  EXPECT_EQ(result.code, 0) << result.err;
  return Lines(result.out);
}

TEST(Cat, PrintsEachRecordAsAJsonLineWithItsKeysInOrder) {
  const Folder folder;
  const Result result = RunTool({"cat", "--format", "jsonl", WriteLog(folder, SmallLog())});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  const std::vector<std::string> lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[1],
            R"({"index":1,"client_id":21,"client":"GPS","data_id":1,"time_ms":1000,"size":3,)"
            R"("payload":"6f6e65"})");
  EXPECT_EQ(nlohmann::json::parse(lines[2])["client"], "Q\"x");
  EXPECT_EQ(lines[3],
            R"({"index":3,"client_id":40,"client":null,"data_id":3,"time_ms":3000,"size":5,)"
            R"("payload":"7468726565"})");
}

TEST(Cat, ReadsScrambledLogs) {
  const Folder folder;
  EXPECT_EQ(Raw(WriteLog(folder, SmallLog(0xFE)), {"--client", "21"}),
            (std::vector<std::string>{"one"}));
}

TEST(Cat, PrintsTextForPeople) {
  const Folder folder;
  LogBuilder log = SmallLog();
  const std::string frame("\x23\x01\x00\x80\x02\0\0\0\xAB\xCD\0\0\0\0\0\0", 16);
  const std::string remote("\x23\x01\x00\x40\x02\0\0\0\0\0\0\0\0\0\0\0", 16);
  log.Record(21, 1, 4750, frame).Record(21, 1, 4750, remote).Record(21, 9, 61000, "\x01\xFF");
  const Result result = RunTool({"cat", WriteLog(folder, log)});
  const std::vector<std::string> lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[1], "     0.000  GPS      1  one");
  EXPECT_EQ(lines[3], "     2.000  40       3  three");
  EXPECT_EQ(lines[4], "     3.750  GPS      1  00000123#ABCD");
  EXPECT_EQ(lines[5], "     3.750  GPS      1  123#R2");
  EXPECT_EQ(lines[6], "    60.000  GPS      9  01ff");
}

TEST(Cat, ShowsOnlyTheNamedClients) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog());
  EXPECT_EQ(Raw(path, {"--client", "GPS"}), (std::vector<std::string>{"one"}));
  EXPECT_EQ(Raw(path, {"--client", "GPS", "--client", "40"}),
            (std::vector<std::string>{"one", "three"}));
  EXPECT_EQ(Raw(path, {"--client", "63"}), (std::vector<std::string>{}));
  const Result unknown = RunTool({"cat", "--client", "CAN", path});
  EXPECT_EQ(unknown.code, 1);
  EXPECT_EQ(unknown.err, "kestrav: cat: " + path + ": no client 'CAN' in its dictionary\n");
}

TEST(Cat, ShowsOnlyTheAskedForTimeAndKeepsTheIndex) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog());
  EXPECT_EQ(Raw(path, {"--from", "1.5"}), (std::vector<std::string>{"two", "three"}));
  EXPECT_EQ(Raw(path, {"--from", "0.001", "--to", "1.5"}), (std::vector<std::string>{"two"}));
  const Result json = RunTool({"cat", "--format", "jsonl", "--from", "2", path});
  EXPECT_EQ(nlohmann::json::parse(json.out)["index"], 3);
  EXPECT_EQ(RunTool({"cat", "--from", "2", "--to", "1", path}).code, 2);
}

TEST(Cat, FindsTheDictionaryBehindOtherRecords) {
  const Folder folder;
  LogBuilder log;
  log.Record(21, 1, 0, "early").Dictionary({{"GPS", 21}}, 0);
  EXPECT_EQ(Raw(WriteLog(folder, log), {"--client", "GPS"}), (std::vector<std::string>{"early"}));
}

TEST(Cat, LeavesADamagedRecordOutAndCountsWhatItDelivers) {
  const Folder folder;
  LogBuilder log = SmallLog();
  log.Flip(log.RecordOffset(2) + 20);
  const Result result = RunTool({"cat", "--format", "jsonl", WriteLog(folder, log)});
  EXPECT_EQ(result.code, 0);
  const std::vector<std::string> lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(nlohmann::json::parse(lines[2])["index"], 2);
  EXPECT_EQ(nlohmann::json::parse(lines[2])["client_id"], 40);
}

TEST(Cat, TellsByItsExitCodeThatTheLogEndsInDamage) {
  const Folder folder;
  LogBuilder log = SmallLog();
  log.Flip(log.RecordOffset(3) + 20);
  const Result result =
      RunTool({"cat", "--format", "raw", "--client", "22", WriteLog(folder, log)});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.out, "two\n");
  EXPECT_EQ(result.err, "");
}

TEST(Cat, EndsQuietlyWhenItsReaderHasGone) {
  const Folder folder;
  LogBuilder log = SmallLog();
  for (int i = 0; i < 200; ++i) log.Record(21, 1, 3000, std::string(1000, 'x'));
  const std::string path = WriteLog(folder, log);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  folder.Write("err", "");
  const int err = open(folder.Path("err").c_str(), O_WRONLY | O_CLOEXEC);
  const Process process({"cat", path}, {.out = ends[1], .err = err});
  EXPECT_EQ(process.Wait(), 0);
  close(ends[1]);
  close(err);
  EXPECT_EQ(ReadFile(folder.Path("err")), "");
}

TEST(Cat, FailsWhenItsOutputCannotBeWritten) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog());
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(Process({"cat", path}, {.out = full}).Wait(), 1);
  EXPECT_EQ(Process({"info", path}, {.out = full}).Wait(), 1);
  close(full);
}

TEST(Cat, RefusesWrongUsage) {
  for (const Arguments& arguments : {Arguments{"cat"},
                                     {"cat", "x", "--format", "xml"},
                                     {"cat", "x", "--from", "now"},
                                     {"cat", "x", "y"},
                                     {"cat", "x", "--client"}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(arguments);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
}

}  // namespace
}  // namespace kestrav::test
