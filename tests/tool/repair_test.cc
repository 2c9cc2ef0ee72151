#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <utility>

#include "pty.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

using testing::HasSubstr;

std::string Text(const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return {bytes.begin(), bytes.end()};
}

std::string Put(std::string log, std::size_t at, std::uint32_t value, int size) {
  for (int i = 0; i < size; ++i) log[at++] = static_cast<char>(value >> (8 * i));
  return log;
}

// 3 s of three clients; 128 bytes of header and records of 30, 22 and 21 bytes.
LogBuilder SmallLog(std::uint8_t key = 0) {
  LogBuilder log(key, key);
  log.StartClock(1000).Duration(3000).Selection(0x8088);
  return log.Record(3, 1, 1000, "0123456789").Record(7, 1, 2000, "aa").Record(21, 1, 4000, "b");
}

std::string Finished(std::uint8_t key = 0) { return Text(SmallLog(key)); }

// As the log is while it is recorded: no duration, no length.
std::string Unfinished(std::string log) { return Put(Put(std::move(log), 12, 0, 4), 16, 0, 4); }

const std::string kWhole = "duration unknown -> 0:03.000, stream length unknown -> 201 bytes";

TEST(Repair, MakesTheHeaderOfALogThatWasNotFinished) {
  for (const std::uint8_t key : {std::uint8_t{0}, std::uint8_t{9}}) {
    const Folder folder;
    const std::string log = folder.Write("a.klog", Unfinished(Finished(key)));
    const Result result = RunTool({"repair", log});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, log + ": repaired: " + kWhole + "\n");
    EXPECT_EQ(ReadFile(log), Finished(key));
    EXPECT_EQ(RunTool({"repair", log}).out, log + ": nothing to repair\n");
  }
}

TEST(Repair, DryRunTellsTheSameAndWritesNothing) {
  const Folder folder;
  const std::string log = folder.Write("a.klog", Unfinished(Finished()));
  for (const Arguments& arguments :
       {Arguments{"repair", "--dry-run", log}, {"repair", log, "--dry-run"}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, log + ": would be repaired: " + kWhole + "\n");
    EXPECT_EQ(ReadFile(log), Unfinished(Finished()));
  }
}

struct FieldCase {
  const char* name;
  std::size_t at;
  std::uint32_t value;
  int size;
  const char* said;
};

class RepairOfAField : public testing::TestWithParam<FieldCase> {};

TEST_P(RepairOfAField, IsToldAlone) {
  const FieldCase& field = GetParam();
  const Folder folder;
  const std::string log =
      folder.Write("a.klog", Put(Finished(), field.at, field.value, field.size));
  const Result result = RunTool({"repair", log});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out, log + ": repaired: " + field.said + "\n");
  EXPECT_EQ(ReadFile(log), Finished());
}

INSTANTIATE_TEST_SUITE_P(
    Fields, RepairOfAField,
    testing::Values(FieldCase{"LengthTooLarge", 16, 5000, 4,
                              "stream length 5,000 bytes -> 201 bytes"},
                    FieldCase{"LengthTooSmall", 16, 180, 4, "stream length 180 bytes -> 201 bytes"},
                    FieldCase{"Duration", 12, 2499, 4, "duration 0:02.499 -> 0:03.000"},
                    FieldCase{"Selection", 8, 0x8008, 2, "selection 0x8008 -> 0x8088"},
                    FieldCase{"NoSelection", 8, 0, 2, "selection 0x00 -> 0x8088"}),
    [](const auto& instance) { return instance.param.name; });

// A stop rounds to seconds, comes after the last record and knows silent clients. A wrapped clock
// leaves a duration of 0.
TEST(Repair, LeavesWhatAProperStopWrote) {
  LogBuilder wrapped;
  wrapped.StartClock(0xFFFFFF00).Selection(2).Record(1, 1, 5, "x");
  const Folder folder;
  for (const std::string& content : {Finished(), Put(Finished(), 12, 2500, 4),
                                     Put(Finished(), 12, 60'000, 4), Put(Finished(), 8, 0xFFFF, 2),
                                     Put(Finished(), 4, 0, 4), Text(wrapped), Text(LogBuilder())}) {
    const std::string log = folder.Write("a.klog", content);
    const auto written = std::filesystem::last_write_time(log);
    const Result result = RunTool({"repair", log});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, log + ": nothing to repair\n");
    EXPECT_EQ(ReadFile(log), content);
    EXPECT_EQ(std::filesystem::last_write_time(log), written);
  }
}

struct LossCase {
  const char* name;
  std::function<void(LogBuilder&)> damage;
  std::string said;
  int code;

  friend void PrintTo(const LossCase& loss, std::ostream* out) { *out << loss.name; }
};

class RepairOfADamagedLog : public testing::TestWithParam<LossCase> {};

TEST_P(RepairOfADamagedLog, TellsWhatIsLost) {
  LogBuilder builder = SmallLog();
  GetParam().damage(builder);
  const std::string content = Unfinished(Text(builder));
  const Folder folder;
  const std::string log = folder.Write("a.klog", content);
  const Result dry_run = RunTool({"repair", "--dry-run", log});
  EXPECT_EQ(dry_run.out, log + ": would be repaired: " + GetParam().said + "\n");
  EXPECT_EQ(dry_run.code, GetParam().code);
  EXPECT_EQ(ReadFile(log), content);
  const Result result = RunTool({"repair", log});
  EXPECT_EQ(result.out, log + ": repaired: " + GetParam().said + "\n");
  EXPECT_EQ(result.code, GetParam().code);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(ReadFile(log).substr(128), content.substr(128));
  EXPECT_EQ(RunTool({"repair", log}).code, GetParam().code);
}

const std::string kTwoRecords =
    "duration unknown -> 0:01.000, stream length unknown -> 180 bytes, selection 0x8088 -> 0x88";

const LossCase kLosses[] = {
    {"RecordCut", [](LogBuilder& log) { log.Cut(200); },
     kTwoRecords + "; 20 bytes behind the last record lost", 0},
    {"RecordCutInItsHeader", [](LogBuilder& log) { log.Cut(181); },
     kTwoRecords + "; 1 byte behind the last record lost", 0},
    {"CutBetweenRecords", [](LogBuilder& log) { log.Cut(180); }, kTwoRecords, 0},
    {"AllRecordsCut", [](LogBuilder& log) { log.Cut(128); },
     "duration unknown -> 0:00.000, stream length unknown -> 128 bytes, selection 0x8088 -> 0x00",
     0},
    {"ZerosAtTheEnd", [](LogBuilder& log) { log.Raw(Bytes(100, 0)); },
     kWhole + "; 100 bytes behind the last record lost", 3},
    {"HeaderInBetween", [](LogBuilder& log) { log.Flip(158); },
     kWhole + ", selection 0x8088 -> 0x8008; 22 damaged bytes skipped", 3},
    {"BytesInBetween", [](LogBuilder& log) { log.Insert(158, Bytes(20, 0xAA)); },
     "duration unknown -> 0:03.000, stream length unknown -> 221 bytes; 20 damaged bytes skipped",
     3},
    {"BothPlaces", [](LogBuilder& log) { log.Flip(158).Raw(Bytes(5, 0)); },
     kWhole + ", selection 0x8088 -> 0x8008; 22 damaged bytes skipped; 5 bytes behind the last "
              "record lost",
     3},
    {"PayloadAlone", [](LogBuilder& log) { log.Flip(179); }, kWhole, 0},
};

INSTANTIATE_TEST_SUITE_P(Losses, RepairOfADamagedLog, testing::ValuesIn(kLosses),
                         [](const auto& instance) { return instance.param.name; });

TEST(Repair, OfSeveralLogsIsHeldUpByNone) {
  const Folder folder;
  const std::string first = folder.Write("1.klog", Unfinished(Finished()));
  const std::string none = folder.Write("2.klog", "no log");
  const std::string lost = folder.Write("3.klog", Unfinished(Finished()) + std::string(30, '\0'));
  const std::string last = folder.Write("4.klog", Finished());
  const Result result = RunTool({"repair", first, none, lost, last});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "kestrav: repair: " + none + ": not a log\n");
  EXPECT_EQ(result.out, first + ": repaired: " + kWhole + "\n" + lost + ": repaired: " + kWhole +
                            "; 30 bytes behind the last record lost\n" + last +
                            ": nothing to repair\n");
  EXPECT_EQ(ReadFile(first), Finished());
  EXPECT_EQ(RunTool({"repair", first, lost, last}).code, 3);
  EXPECT_EQ(RunTool({"repair", first, last}).code, 0);
}

// Expects a failure in one line that holds `reason`, of a file that stays as it is.
void ExpectRefused(const std::string& path, const std::string& reason) {
  for (const Arguments& arguments : {Arguments{"repair", "--dry-run", path}, {"repair", path}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "kestrav: repair: " + path + ": " + reason + "\n");
  }
}

TEST(Repair, NamesTheFileThatItCannotRead) {
  const Folder folder;
  ExpectRefused(folder.Path("missing.klog"), "No such file or directory");
  EXPECT_FALSE(Exists(folder.Path("missing.klog")));
  ExpectRefused(folder.Path(""), "Is a directory");
  ExpectRefused("/dev/null", "not a regular file");
  ExpectRefused(folder.Write("empty.klog", ""), "not a log");
}

TEST(Repair, RefusesALogWhoseTimesMakeNoSense) {
  const Folder folder;
  LogBuilder late = SmallLog();
  late.Record(3, 1, 999, "x");
  for (const auto& [content, reason] :
       {std::pair{Unfinished(Text(late)), "its time stamps end before its start"},
        std::pair{Put(Unfinished(Finished()), 4, 0, 4), "it has no start time"}}) {
    const std::string log = folder.Write("a.klog", content);
    ExpectRefused(log, reason);
    EXPECT_EQ(ReadFile(log), content);
  }
}

// A file in memory that lets itself be opened for writing and refuses each write.
TEST(Repair, TellsWhenItCannotWrite) {
  const std::string content = Unfinished(Finished());
  const int file = memfd_create("log", MFD_ALLOW_SEALING | MFD_CLOEXEC);
  ASSERT_EQ(write(file, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  ASSERT_EQ(fcntl(file, F_ADD_SEALS, F_SEAL_WRITE), 0);
  const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file);
  const Result result = RunTool({"repair", path});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kestrav: repair: " + path + ": the header cannot be written\n");
  EXPECT_EQ(ReadFile(path), content);
  EXPECT_EQ(RunTool({"repair", "--dry-run", path}).code, 0);
  close(file);
}

// The one record fills the 32 bits of a position; the file goes on behind.
TEST(Repair, TellsWhenTheFileIsTooLargeForALog) {
  LogBuilder log;
  log.Record(1, 1, 5, "x");
  for (const std::size_t at : {1U, 17U, 18U, 19U}) log.Flip(log.RecordOffset(0) + at, 0xFF);
  const Folder folder;
  const std::string path = folder.Write("a.klog", Unfinished(Text(log)));
  std::filesystem::resize_file(path, std::uint64_t{5} << 30);
  const Result result = RunTool({"repair", path});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err,
            "kestrav: repair: " + path + ": the header cannot be written: File too large\n");
}

TEST(Repair, ShowsOnATerminalHowFarItIs) {
  LogBuilder log;
  for (std::uint32_t i = 0; i < 3000; ++i) log.Record(1, 1, i, "payload");
  const Folder folder;
  const std::string first = folder.Write("1.klog", Finished());
  const std::string path = folder.Write("2.klog", Unfinished(Text(log)));
  Pty pty;
  const Process tool({"repair", first, path}, {-1, -1, pty.Tool()});
  EXPECT_TRUE(pty.ShowsNext("file 2 of 2: 27.8 kB, 34 %"));
  EXPECT_TRUE(pty.ShowsNext("\r\x1b[K"));
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_EQ(RunTool({"repair", path}).err, "");
}

TEST(Repair, IsPointedToByWhatNeedsIt) {
  const Folder folder;
  const std::string log = folder.Write("a.klog", Unfinished(Finished()));
  EXPECT_THAT(RunTool({"info", log}).out, HasSubstr("kestrav repair"));
  EXPECT_THAT(RunTool({"play", log}).err, HasSubstr("kestrav repair"));
  EXPECT_THAT(RunTool({"--help"}).out, HasSubstr("\n  repair"));
  EXPECT_THAT(RunTool({"repair", "--help"}).out, HasSubstr("Usage: kestrav repair"));
}

TEST(Repair, MakesAnUnfinishedRecordingPlayable) {
  const Folder folder;
  LogBuilder builder;
  builder.Dictionary({{"GPS", 3}}, 0).Record(3, 1, 100, "fix");
  const std::string log = folder.Write("a.klog", Unfinished(Text(builder)));
  const Arguments play = {"play", "--virtual", "--format", "jsonl", log};
  EXPECT_EQ(RunTool(play).code, 1);
  EXPECT_EQ(RunTool({"repair", log}).code, 0);
  const Result result = RunTool(play);
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("\"payload\":\"666978\""));
}

TEST(Repair, RefusesWrongUsage) {
  for (const Arguments& arguments :
       {Arguments{"repair"}, {"repair", "--dry-run"}, {"repair", "--force", "x"}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
}

}  // namespace
}  // namespace kestrav::test
