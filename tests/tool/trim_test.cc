#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cut.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::size_t FilesIn(const std::string& path) {
  const std::filesystem::directory_iterator files(std::filesystem::path(path).parent_path());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

// Trims a log and gives back what it has become.
ParsedLog Trimmed(const Folder& folder, const std::string& log, Arguments more, int code = 0) {
  const std::string out = folder.Path("out.klog");
  more.insert(more.begin(), {"trim", log, "-o", out});
  const Result result = RunTool(more);
  EXPECT_EQ(result.code, code) << result.err;
  return Parse(out);
}

TEST(Trim, OfEverythingIsTheLogRecordForRecord) {
  const Folder folder;
  for (const std::uint8_t key : {std::uint8_t{0}, std::uint8_t{0x2A}}) {
    const std::string log = WriteLogAs(folder, "a.klog", Drive(key));
    const ParsedLog source = Parse(log);
    const ParsedLog trimmed = Trimmed(folder, log, {});
    EXPECT_EQ(trimmed.records, source.records);
    EXPECT_EQ(trimmed.start_time, source.start_time);
    EXPECT_EQ(trimmed.start_clock, source.start_clock);
    EXPECT_EQ(trimmed.duration_ms, source.duration_ms);
    EXPECT_EQ(trimmed.selection, source.selection);
    EXPECT_NE(trimmed.header_key, 0);
    EXPECT_NE(trimmed.data_key, 0);
  }
  const std::string plain = WriteLogAs(folder, "plain.klog", Drive());
  Trimmed(folder, WriteLogAs(folder, "a.klog", Drive(0x2A)), {"--plain"});
  EXPECT_EQ(ReadFile(folder.Path("out.klog")), ReadFile(plain));
  ExpectHealthy(folder.Path("out.klog"));
}

TEST(Trim, TakesTheAskedForTimeAndKeepsTheTimeOfDay) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A));
  const ParsedLog trimmed = Trimmed(folder, log, {"--from", "7.25", "--to", "12.5"});
  const auto is_within = [](const Meaning& record) {
    return record.wall_ms >= 7250 && record.wall_ms <= 12'500;
  };
  EXPECT_EQ(Meanings(trimmed), Only(Meanings(Parse(log)), is_within));
  EXPECT_EQ(trimmed.start_time, kBuiltStartTime + 7);
  EXPECT_EQ(trimmed.start_clock, 5000U + 7000);
  EXPECT_EQ(trimmed.duration_ms, 5500U);
  EXPECT_EQ(trimmed.records[0].data_id, 1200);
  EXPECT_EQ(trimmed.records[0].time_ms, trimmed.start_clock);
  ExpectHealthy(folder.Path("out.klog"));
}

TEST(Trim, TakesItsTimesToTheMillisecond) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"GPS", 21}}, 0);
  for (const std::uint32_t at : {1000U, 1001U, 1002U, 2003U}) {
    log.Record(21, 1, at, std::to_string(at));
  }
  const std::string path = WriteLogAs(folder, "a.klog", log);
  const auto payloads = [&](const Arguments& times) {
    return Trimmed(folder, path, times).PayloadsOf(21);
  };
  EXPECT_THAT(payloads({"--from", "1.001", "--to", "1.001"}), ElementsAre("1001"));
  EXPECT_THAT(payloads({"--from", "1.0005", "--to", "2.003"}), ElementsAre("1001", "1002", "2003"));
  EXPECT_EQ(RunTool({"cat", "--format", "raw", "--client", "GPS", "--to", "1.001", path}).out,
            "1000\n1001\n");
}

TEST(Trim, SummaryTellsWhatWasWritten) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", TimedLog({0, 1000, 2500}, 3000));
  const std::string out = folder.Path("out.klog");
  const Result result = RunTool({"trim", log, "-o", out, "--from", "1"});
  EXPECT_EQ(result.out, out + ": 3 records, 205 bytes, 0:02.000\n");
  EXPECT_EQ(result.err, "");
}

TEST(Trim, KeepsTheStateFromBeforeTheCut) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A));
  for (const std::string from : {"7.25", "0.5", "30"}) {
    const auto from_ms = static_cast<std::int64_t>(1000 * std::stod(from));
    const ParsedLog trimmed = Trimmed(folder, log, {"--from", from, "--keep-state"});
    std::map<std::pair<std::string, int>, Meaning> last;
    std::vector<Meaning> expected;
    const std::vector<Meaning> all = Meanings(Parse(log));
    for (const Meaning& record : all) {
      if (record.wall_ms < from_ms) last[{record.client, record.data_id}] = record;
    }
    for (const Meaning& record : all) {
      const bool is_state =
          record.wall_ms < from_ms && last[{record.client, record.data_id}] == record;
      if (is_state || record.wall_ms >= from_ms) expected.push_back(record);
      if (is_state) expected.back().wall_ms = from_ms / 1000 * 1000;
    }
    EXPECT_GE(last.size(), 8U);
    EXPECT_EQ(Meanings(trimmed), expected);
    EXPECT_TRUE(IsFront(trimmed.records[0]) && IsFront(trimmed.records[1]));
    ExpectHealthy(folder.Path("out.klog"));
  }
}

TEST(Trim, NamesTheChosenClientsAlone) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A));
  const ParsedLog gps = Trimmed(folder, log, {"--client", "GPS"});
  const auto is_gps = [](const Meaning& record) { return record.client == "GPS"; };
  EXPECT_EQ(Meanings(gps), Only(Meanings(Parse(log)), is_gps));
  EXPECT_EQ(gps.records[0].payload, DictionaryPayload({{"GPS", 21}, {"Info Client", 12}}));
  EXPECT_EQ(gps.records[1].payload, std::string("\x20\0\0\0\0\0\0\0", 8));
  EXPECT_EQ(gps.selection, 0x9000);
  ExpectHealthy(folder.Path("out.klog"));

  const ParsedLog both = Trimmed(folder, log, {"--client", "3", "--client", "12"});
  EXPECT_EQ(both.records[0].payload, DictionaryPayload({{"CAN", 3}, {"Info Client", 12}}));
  EXPECT_EQ(both.selection, 0x1008);
  EXPECT_EQ(both.PayloadsOf(12).size(), 2U) << "no dictionary of all clients";
}

TEST(Trim, PutsTheDictionaryFirst) {
  const Folder folder;
  LogBuilder log(3, 4);
  log.StartClock(1000).Record(21, 1, 998, "early").Record(21, 1, 1000, "next");
  log.Dictionary({{"GPS", 21}}, 1001).Record(21, 2, 2500, "late");
  const std::string path = WriteLogAs(folder, "a.klog", log);
  const ParsedLog all = Trimmed(folder, path, {});
  EXPECT_EQ(all.records[0].data_id, 1200);
  EXPECT_EQ(all.records[0].time_ms, 998U);
  EXPECT_THAT(all.PayloadsOf(21), ElementsAre("early", "next", "late"));
  EXPECT_EQ(all.start_clock, 0U) << "a whole second earlier, for the early one";
  EXPECT_EQ(Meanings(all)[0].wall_ms, -2);
  EXPECT_EQ(Meanings(all)[2].wall_ms, 1500);
  ExpectHealthy(folder.Path("out.klog"));
  const ParsedLog part = Trimmed(folder, path, {"--from", "0.5", "--keep-state"});
  EXPECT_THAT(part.PayloadsOf(21), ElementsAre("next", "late"));
  EXPECT_EQ(part.records[1].time_ms, 1000U);
  ExpectHealthy(folder.Path("out.klog"));
}

TEST(Trim, WorksAcrossTheEndOfTheClock) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A, 0xFFFFFFFF - 5000));
  const ParsedLog trimmed = Trimmed(folder, log, {"--from", "3", "--to", "8"});
  const auto is_within = [](const Meaning& record) {
    return record.wall_ms >= 3000 && record.wall_ms <= 8000;
  };
  EXPECT_EQ(Meanings(trimmed), Only(Meanings(Parse(log)), is_within));
  EXPECT_EQ(RunTool({"check", folder.Path("out.klog")}).code, 0);
}

TEST(Trim, LetsNoRecordGoBackInTime) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", TimedLog({100, 300, 200, 250, 400}, 1000));
  const std::string out = folder.Path("out.klog");
  const Result result = RunTool({"trim", log, "-o", out});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err,
            "kestrav: trim: " + log + ": 2 records go back in time (taken for the time before)\n");
  std::vector<std::int64_t> times;
  for (const Meaning& record : Meanings(Parse(out))) times.push_back(record.wall_ms);
  EXPECT_THAT(times, ElementsAre(100, 300, 300, 300, 400));
  ExpectHealthy(out);
}

TEST(Trim, OfALogWithoutDictionaryHasNone) {
  const Folder folder;
  LogBuilder log;
  log.Selection(0x0008).Record(3, 1, 0, "a").Record(3, 1, 10, "b");
  const ParsedLog trimmed = Trimmed(folder, WriteLogAs(folder, "a.klog", log), {});
  EXPECT_EQ(trimmed.records.size(), 2U);
  EXPECT_EQ(trimmed.selection, 0x0008);
}

TEST(Trim, BehindTheEndIsALogWithoutRecords) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A));
  for (const char* const from : {"21", "1e300"}) {
    const ParsedLog trimmed = Trimmed(folder, log, {"--from", from});
    EXPECT_EQ(trimmed.records.size(), 2U);
    EXPECT_EQ(trimmed.duration_ms, 0U);
    EXPECT_EQ(RunTool({"check", folder.Path("out.klog")}).code, 0);
  }
}

// What was lost is told in one line, and what is whole is handed on.
TEST(Trim, HandsOnWhatCanBeReadOfADamagedLog) {
  const LogBuilder whole = Drive();
  const std::vector<Meaning> all = [&] {
    const Folder folder;
    return Meanings(Parse(WriteLogAs(folder, "a.klog", whole)));
  }();
  struct Damaged {
    LogBuilder log;
    std::string said;
    std::size_t lost;
  };
  const std::size_t at = whole.RecordOffset(40);
  std::vector<Damaged> logs;
  logs.push_back({LogBuilder(whole).Flip(at + 21), "damaged in 1 place, 1 record missing", 1});
  logs.push_back({LogBuilder(whole).Flip(at + 5), "damaged in 1 place, 1 record missing", 1});
  logs.push_back({LogBuilder(whole).Cut(whole.Size() - 3), "behind the last whole record", 1});
  logs.push_back({LogBuilder(whole).Flip(0x80), "damaged in 1 place", 0});
  for (const Damaged& damaged : logs) {
    const Folder folder;
    const std::string out = folder.Path("out.klog");
    const Result result =
        RunTool({"trim", WriteLogAs(folder, "a.klog", damaged.log), "-o", out, "--plain"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
    EXPECT_THAT(result.err, HasSubstr("kestrav: trim: " + folder.Path("a.klog") + ": "));
    EXPECT_THAT(result.err, HasSubstr(damaged.said));
    EXPECT_EQ(Meanings(Parse(out)).size(), all.size() - damaged.lost);
    EXPECT_EQ(RunTool({"check", out}).code, 0);
  }
}

TEST(Trim, TellsTheLossOfWhatItWasAskedForAlone) {
  const Folder folder;
  const LogBuilder drive = Drive();
  std::string content(ReadFile(WriteLogAs(folder, "whole.klog", drive)));
  content[drive.RecordOffset(40) + 21] ^= 1;
  const std::string log = folder.Write("a.klog", content);
  const std::string out = folder.Path("out.klog");
  const auto trim = [&](Arguments more) {
    more.insert(more.begin(), {"trim", log, "-o", out});
    const Result result = RunTool(more);
    EXPECT_EQ(Lines(result.err).size(), result.code == 3 ? 1U : 0U) << result.err;
    return result.code;
  };
  EXPECT_EQ(trim({}), 3);
  EXPECT_EQ(trim({"--from", "0.1"}), 3);
  EXPECT_EQ(trim({"--from", "7"}), 0);
  EXPECT_EQ(trim({"--from", "7", "--keep-state"}), 3) << "it may have been the last of its kind";
  EXPECT_EQ(trim({"--to", "0.1"}), 0);
}

TEST(Trim, SaysThatARecordingWasNotFinished) {
  const Folder folder;
  std::string content = ReadFile(WriteLogAs(folder, "a.klog", Drive()));
  content.replace(12, 8, 8, '\0');
  const std::string log = folder.Write("running.klog", content);
  const std::string out = folder.Path("out.klog");
  const Result result = RunTool({"trim", log, "-o", out});
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.err, HasSubstr("the recording was not finished"));
  ExpectHealthy(out);
  EXPECT_EQ(RunTool({"trim", log, "-o", out, "--to", "5"}).code, 0) << "that part is whole";
}

TEST(Trim, RefusesToWriteOverItsInput) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  const std::string content = ReadFile(log);
  std::filesystem::create_symlink(log, folder.Path("link.klog"));
  for (const char* const out : {"a.klog", "link.klog"}) {
    const Result result = RunTool({"trim", log, "-o", folder.Path(out)});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.err, HasSubstr("would be overwritten"));
  }
  EXPECT_EQ(ReadFile(log), content);
}

TEST(Trim, LeavesNoOutputWhenItFails) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  const std::string out = folder.Path("b.klog");
  EXPECT_EQ(RunTool({"trim", folder.Path("missing.klog"), "-o", out}).code, 1);
  EXPECT_EQ(RunTool({"trim", log, "-o", out, "--client", "LIN"}).code, 1);
  EXPECT_EQ(RunTool({"trim", log, "-o", out, "--from", "2", "--to", "1"}).code, 2);
  EXPECT_EQ(RunTool({"trim", log, "-o", out, "--from", "nan"}).code, 2);
  EXPECT_EQ(RunTool({"trim", log}).code, 2);
  EXPECT_EQ(RunTool({"trim", log, "-o", folder.Path("no/folder.klog")}).code, 1);
  const Result full = RunWithFileLimit(1, {"trim", log, "-o", out});
  EXPECT_EQ(full.code, 1);
  EXPECT_EQ(full.err, "kestrav: trim: " + out + ": File too large\n");
  EXPECT_EQ(FilesIn(out), 1U);
  folder.Write("b.klog", "precious");
  EXPECT_EQ(RunWithFileLimit(1, {"trim", log, "-o", out}).code, 1);
  EXPECT_EQ(ReadFile(out), "precious");
}

}  // namespace
}  // namespace kestrav::test
