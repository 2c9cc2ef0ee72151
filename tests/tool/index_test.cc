#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "long_log.h"
#include "records.h"
#include "run.h"

namespace kestrav::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

Result Scan(const std::string& log) { return RunTool({"info", "--scan", "--json", log}); }

std::string MakeIndex(const std::string& log) {
  const Result result = RunTool({"index", log});
  EXPECT_TRUE(result.code == 0 || result.code == 3) << result.err;
  return log + ".kidx";
}

std::uint32_t StartClock(const std::string& log) {
  return nlohmann::json::parse(RunTool({"info", "--json", log}).out)["start_clock"];
}

using TimedLine = std::pair<std::uint32_t, std::string>;

// Each line with its record's time since the start of the log.
std::vector<TimedLine> Timed(const std::string& text, std::uint32_t start_clock) {
  std::vector<TimedLine> lines;
  for (const std::string& line : Lines(text)) {
    const auto time = static_cast<std::uint32_t>(std::stoul(Value(line, "time_ms")));
    lines.emplace_back(time - start_clock, line);
  }
  return lines;
}

struct Case {
  const char* name;
  LogBuilder (*make)();
};

void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

LogBuilder Plain() { return ManyRecords(0); }
LogBuilder Scrambled() { return ManyRecords(0xA7); }

LogBuilder Damaged(std::uint8_t key) {
  LogBuilder log = ManyRecords(key);
  for (const std::size_t record : {7000U, 9000U, 9001U, 17000U}) {
    log.Flip(log.RecordOffset(record) + 40);
  }
  log.Flip(log.RecordOffset(2500) + 9).Zero(log.RecordOffset(4000) + 30, 700);
  log.Insert(log.RecordOffset(12000), Bytes(333, 0xEE));
  return log;
}
LogBuilder DamagedPlain() { return Damaged(0); }
LogBuilder DamagedScrambled() { return Damaged(0x33); }

// With the same key byte as a record further on, whose header stands early in a block of the
// search, the walk goes on there.
LogBuilder HeaderLost() {
  LogBuilder log = ManyRecords(0x10);
  for (const std::size_t record : {1000U, 5000U, 9000U}) log.Flip(log.RecordOffset(record) + 9);
  return log;
}

LogBuilder CutShort() {
  LogBuilder log = ManyRecords(0x55);
  return log.Cut(log.Size() - 100);
}

// A log joined to another one: time and index go back.
LogBuilder TimeGoesBack() {
  LogBuilder log = ManyRecords(0, 9000);
  AppendLong(log.NextIndex(3), 9000, kLongLogStart + 60000);
  return log;
}

LogBuilder ARecordBeforeTheStart() {
  LogBuilder log(0x21, 0x21);
  log.StartClock(kLongLogStart).Record(21, 1, kLongLogStart - 3, "early");
  log.Dictionary({{"GPS", 21}, {"CAN", 3}}, kLongLogStart);
  AppendLong(log, 12000, kLongLogStart);
  return log;
}

LogBuilder TheClockWraps() {
  constexpr std::uint32_t kStart = std::numeric_limits<std::uint32_t>::max() - 100000;
  LogBuilder log(0x99, 0x42);
  log.StartClock(kStart).Dictionary({{"GPS", 21}, {"CAN", 3}}, kStart);
  AppendLong(log, 12000, kStart);
  return log;
}

LogBuilder NoDictionary() {
  LogBuilder log;
  log.StartClock(kLongLogStart);
  AppendLong(log, 8000, kLongLogStart);
  return log;
}

class ReadWithAnIndex : public testing::TestWithParam<Case> {
 protected:
  ReadWithAnIndex() : log_(WriteTo(folder_, "a.klog", GetParam().make())) {}

  const Folder folder_;
  const std::string log_;
};

TEST_P(ReadWithAnIndex, InfoSaysTheSame) {
  const Result before = Scan(log_);
  const Result text = RunTool({"info", "--scan", log_});
  const Result made = RunTool({"index", log_});
  EXPECT_EQ(made.code, before.code);
  EXPECT_EQ(Lines(made.err).size(), before.code == 3 ? 1U : 0U) << made.err;
  EXPECT_EQ(Scan(log_).out, before.out);
  EXPECT_EQ(Scan(log_).code, before.code);
  EXPECT_EQ(RunTool({"info", "--scan", log_}).out, text.out);
}

// A window at a time, the whole log: each block is entered at its checkpoint, and no window shows a
// record too many or too few.
TEST_P(ReadWithAnIndex, CatPrintsTheSameForAnyTime) {
  const Result all = RunTool({"cat", "--format", "jsonl", log_});
  const std::vector<TimedLine> lines = Timed(all.out, StartClock(log_));
  MakeIndex(log_);
  EXPECT_TRUE(RunTool({"cat", "--format", "jsonl", log_}).out == all.out);
  constexpr std::uint32_t kWindowMs = 30000;
  for (std::uint32_t from = 0; from < 390000; from += kWindowMs * kEvery) {
    const std::uint32_t to = from + kWindowMs - 1;
    std::string expected;
    for (const auto& [at, line] : lines) {
      if (at >= from && at <= to) expected += line + "\n";
    }
    const Result result =
        RunTool({"cat", "--format", "jsonl", "--from", std::to_string(from / 1000.0), "--to",
                 std::to_string(to / 1000.0), log_});
    ASSERT_TRUE(result.out == expected)
        << from << ": " << result.out.size() << " bytes instead of " << expected.size();
    ASSERT_EQ(result.code, all.code);
  }
}

TEST_P(ReadWithAnIndex, CatPrintsTheSameForAClient) {
  const Arguments arguments = {"cat", "--format", "jsonl", "--client", "21", "--from", "100", log_};
  const Result before = RunTool(arguments);
  MakeIndex(log_);
  const Result after = RunTool(arguments);
  EXPECT_TRUE(after.out == before.out);
  EXPECT_EQ(after.code, before.code);
}

TEST_P(ReadWithAnIndex, TrimWritesTheSameFromAnyTime) {
  const std::string out = folder_.Path("out.klog");
  const std::vector<Arguments> ways = {{"--from", "100", "--to", "130"},
                                       {"--from", "200"},
                                       {"--from", "250.5", "--client", "21"},
                                       {"--from", "300", "--keep-state"},
                                       {"--from", "1000"}};
  const auto trim = [&](Arguments way) {
    way.insert(way.begin(), {"trim", "--plain", log_, "-o", out});
    Result result = RunTool(way);
    result.out += ReadFile(out);
    return result;
  };
  std::vector<Result> before;
  for (const Arguments& way : ways) before.push_back(trim(way));
  MakeIndex(log_);
  for (std::size_t i = 0; i < ways.size(); ++i) {
    const Result after = trim(ways[i]);
    EXPECT_TRUE(after.out == before[i].out) << testing::PrintToString(ways[i]);
    EXPECT_EQ(after.err, before[i].err);
    EXPECT_EQ(after.code, before[i].code);
  }
}

INSTANTIATE_TEST_SUITE_P(Logs, ReadWithAnIndex,
                         testing::Values(Case{"Plain", Plain}, Case{"Scrambled", Scrambled},
                                         Case{"DamagedPlain", DamagedPlain},
                                         Case{"DamagedScrambled", DamagedScrambled},
                                         Case{"HeaderLost", HeaderLost}, Case{"CutShort", CutShort},
                                         Case{"TimeGoesBack", TimeGoesBack},
                                         Case{"ARecordBeforeTheStart", ARecordBeforeTheStart},
                                         Case{"TheClockWraps", TheClockWraps},
                                         Case{"NoDictionary", NoDictionary}),
                         [](const auto& instance) { return instance.param.name; });

// What lies before the time is damaged here behind the index's back: a walk would notice.
TEST(Index, LeadsCatPastWhatLiesBefore) {
  const Folder folder;
  const LogBuilder log = Scrambled();
  const std::string path = WriteTo(folder, "a.klog", log);
  const Arguments late = {"cat", "--format", "jsonl", "--from", "300", path};
  const Result before = RunTool(late);
  const std::string index = MakeIndex(path);
  Overwrite(path, log.RecordOffset(4000), std::string(2000, '\0'));
  EXPECT_EQ(RunTool(late).out, before.out);
  std::filesystem::remove(index);
  EXPECT_NE(RunTool(late).out, before.out);
}

LogBuilder WithARecordAt(std::uint32_t time_ms, std::size_t& offset) {
  LogBuilder log = ManyRecords(0x31, 6000);
  offset = log.Size();
  log.Record(21, 1, time_ms, "now or then");
  AppendLong(log, 12000, kLongLogStart + 120000);
  return log;
}

// A record that would draw all later ones behind it is put there behind the index's back.
TEST(Index, LeadsTrimPastWhatLiesBefore) {
  const Folder folder;
  std::size_t at = 0;
  const Bytes changed = WithARecordAt(kLongLogStart + 3600000, at).Build();
  const std::string log = WriteTo(folder, "a.klog", WithARecordAt(kLongLogStart + 120000, at));
  const std::string out = folder.Path("out.klog");
  const auto trimmed = [&] {
    EXPECT_EQ(RunTool({"trim", "--plain", "--from", "300", log, "-o", out}).code, 0);
    return ReadFile(out);
  };
  const std::string before = trimmed();
  const std::string index = MakeIndex(log);
  const auto record = changed.begin() + static_cast<std::ptrdiff_t>(at);
  Overwrite(log, at, std::string(record, record + 31));
  EXPECT_TRUE(trimmed() == before);
  std::filesystem::remove(index);
  EXPECT_FALSE(trimmed() == before);
}

TEST(Index, SaysWhatItHasMadeAndThatNothingIsToDo) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", Plain());
  const std::string index = log + ".kidx";
  const Result made = RunTool({"index", log});
  EXPECT_EQ(made.code, 0);
  EXPECT_EQ(made.err, "");
  EXPECT_THAT(made.out, MatchesRegex(".*/a.klog.kidx: 18,001 records, [4-6] checkpoints, .*\n"));
  const std::string content = ReadFile(index);
  EXPECT_EQ(RunTool({"index", log}).out, index + ": up to date\n");
  EXPECT_EQ(RunTool({"index", "--force", log}).out, made.out);
  EXPECT_EQ(ReadFile(index), content);
}

TEST(Index, TellsOfDamageInALineAndByTheExitCode) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", DamagedPlain());
  for (int run = 0; run < 2; ++run) {
    const Result result = RunTool({"index", log});
    EXPECT_EQ(result.code, 3);
    ASSERT_EQ(Lines(result.err).size(), 1U) << result.err;
    EXPECT_THAT(result.err, HasSubstr("kestrav: index: " + log + ": "));
    EXPECT_THAT(result.err, HasSubstr("missing"));
  }
}

TEST(Index, GoesOnWithTheOtherLogsWhenOneFails) {
  const Folder folder;
  const std::string first = WriteTo(folder, "a.klog", ManyRecords(0, 10));
  const std::string second = WriteTo(folder, "b.klog", ManyRecords(7, 10));
  const std::string none = folder.Write("c.klog", "no log");
  const Result result = RunTool({"index", first, none, folder.Path("d.klog"), second});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(Lines(result.out).size(), 2U);
  EXPECT_EQ(Lines(result.err).size(), 2U) << result.err;
  EXPECT_THAT(result.err, HasSubstr(none + ": not a log"));
  EXPECT_TRUE(Exists(first + ".kidx"));
  EXPECT_TRUE(Exists(second + ".kidx"));
  EXPECT_FALSE(Exists(none + ".kidx"));
}

TEST(Index, HoldsForALogWithoutRecordsAndForAnUnfinishedOne) {
  const Folder folder;
  for (const LogBuilder& log : {LogBuilder(), ManyRecords(9, 50).Zero(16, 4)}) {
    const std::string path = WriteTo(folder, "a.klog", log);
    const std::string before = Scan(path).out;
    MakeIndex(path);
    EXPECT_EQ(RunTool({"index", path}).out, path + ".kidx: up to date\n");
    EXPECT_EQ(Scan(path).out, before);
  }
}

TEST(Index, NeverOverwritesTheLog) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", ManyRecords(0, 10));
  const std::string content = ReadFile(log);
  std::filesystem::create_symlink(log, log + ".kidx");
  EXPECT_NE(RunTool({"index", log}).code, 0);
  EXPECT_EQ(ReadFile(log), content);
  std::filesystem::remove(log + ".kidx");
  std::filesystem::create_directory(log + ".kidx");
  const Result result = RunTool({"index", log});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("not a regular file"));
}

TEST(Index, LeavesNothingBehindWhenTheDiskRefusesIt) {
  const Folder folder;
  const std::string log = WriteTo(folder, "a.klog", ManyRecords(0, 10));
  const Result result = RunWithFileLimit(0, {"index", log});
  EXPECT_EQ(result.code, 1);
  EXPECT_FALSE(Exists(log + ".kidx"));
  EXPECT_EQ(
      std::distance(std::filesystem::directory_iterator(std::filesystem::path(log).parent_path()),
                    std::filesystem::directory_iterator()),
      1);
}

// A log of 65 records of a megabyte each, which differ by their index alone.
std::string LargeLog(const Folder& folder, bool finished) {
  constexpr std::uint8_t kRecords = 65;
  const Bytes one = LogBuilder().Record(3, 1, 0, std::string(1024 * 1024, 'x')).Build();
  const std::string record(one.begin() + 128, one.end());
  std::string body;
  for (std::uint8_t n = 0; n < kRecords; ++n) {
    std::string next = record;
    next[4] = static_cast<char>(n);
    next[1] = static_cast<char>(next[1] ^ n);
    body += next;
  }
  const Bytes head = LogBuilder().Build();
  std::string log(head.begin(), head.end());
  const std::size_t size = log.size() + body.size();
  for (std::size_t i = 0; i < 4; ++i) {
    log[16 + i] = finished ? static_cast<char>(size >> (8 * i)) : '\0';
  }
  return folder.Write("a.klog", log + body);
}

TEST(InfoScan, LeavesAnIndexBesideALargeLog) {
  const Folder folder;
  const std::string log = LargeLog(folder, true);
  const Result first = Scan(log);
  EXPECT_EQ(first.code, 0);
  EXPECT_TRUE(Exists(log + ".kidx"));
  EXPECT_EQ(RunTool({"index", log}).out, log + ".kidx: up to date\n");
  EXPECT_EQ(Scan(log).out, first.out);
  std::filesystem::remove(log + ".kidx");
  std::filesystem::create_directory(log + ".kidx");
  EXPECT_EQ(Scan(log).out, first.out) << "no place for an index is no failure";
}

TEST(InfoScan, LeavesNoIndexBesideASmallOrAnUnfinishedLog) {
  const Folder folder;
  const std::string small = WriteTo(folder, "b.klog", ManyRecords(0, 10));
  Scan(small);
  EXPECT_FALSE(Exists(small + ".kidx"));
  const std::string unfinished = LargeLog(folder, false);
  Scan(unfinished);
  EXPECT_FALSE(Exists(unfinished + ".kidx"));
}

}  // namespace
}  // namespace kestrav::test
