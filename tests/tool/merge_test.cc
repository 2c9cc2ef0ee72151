#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cut.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Sets the start time in the header of a log.
std::string StartingAt(const Folder& folder, const std::string& name, const LogBuilder& log,
                       std::uint32_t start_time) {
  Bytes bytes = log.Build();
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[4 + i] = static_cast<std::uint8_t>(start_time >> (8 * i));
  }
  return folder.Write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

ParsedLog Merged(const Folder& folder, Arguments logs, int code = 0, std::string* err = nullptr) {
  const std::string out = folder.Path("out.klog");
  logs.insert(logs.begin(), {"merge", "-o", out});
  const Result result = RunTool(logs);
  EXPECT_EQ(result.code, code) << result.err;
  if (err != nullptr) *err = result.err;
  return Parse(out);
}

std::vector<std::string> Payloads(const ParsedLog& log) {
  std::vector<std::string> payloads;
  for (const Meaning& record : Meanings(log)) payloads.push_back(record.payload);
  return payloads;
}

TEST(Merge, OfPiecesIsTheWholeLog) {
  for (const Arguments& how : {Arguments{"--every", "6.5"}, {"--size", "12k"}}) {
    const Folder folder;
    const std::string log = WriteLogAs(folder, "a.klog", Drive());
    const Result split = RunTool({"split", log, how[0], how[1], "-o", folder.Path("piece")});
    ASSERT_EQ(split.code, 0) << split.err;
    Arguments arguments = {"merge", "--plain", "-o", folder.Path("out.klog")};
    int pieces = 0;
    for (; Exists(folder.Path("piece-00" + std::to_string(pieces + 1) + ".klog")); ++pieces) {
      arguments.push_back(folder.Path("piece-00" + std::to_string(pieces + 1) + ".klog"));
    }
    ASSERT_GE(pieces, 4);
    const Result merged = RunTool(arguments);
    EXPECT_EQ(merged.code, 0) << merged.err;
    EXPECT_EQ(merged.err, "");
    EXPECT_EQ(ReadFile(folder.Path("out.klog")), ReadFile(log)) << "byte for byte";
  }
}

TEST(Merge, GoesByTheTimeOfDay) {
  const Folder folder;
  LogBuilder a(1, 2);
  a.StartClock(70'000).Duration(5000).Dictionary({{"GPS", 21}}, 70'000);
  a.Record(21, 1, 70'100, "a1").Record(21, 1, 72'500, "a2").Record(21, 1, 74'000, "a3");
  LogBuilder b(7, 0);
  b.StartClock(0xFFFFFF00).Duration(9000).Dictionary({{"CAN", 4}}, 0xFFFFFF00);
  b.Record(4, 1, 0xFFFFFF00 + 400, "b1").Record(4, 1, 0xFFFFFF00 + 1400, "b2");
  const std::string first = WriteLogAs(folder, "a.klog", a);
  const std::string second = StartingAt(folder, "b.klog", b, 1'000'000'001);
  for (const Arguments& order : {Arguments{first, second}, Arguments{second, first}}) {
    const ParsedLog merged = Merged(folder, order);
    EXPECT_THAT(Payloads(merged), ElementsAre("a1", "b1", "b2", "a2", "a3"));
    EXPECT_EQ(Meanings(merged)[1], (Meaning{"CAN", 1, 1400, "b1"}));
    EXPECT_EQ(Meanings(merged)[3], (Meaning{"GPS", 1, 2500, "a2"}));
    EXPECT_EQ(merged.start_time, 1'000'000'000U);
    EXPECT_EQ(merged.start_clock, 70'000U);
    EXPECT_EQ(merged.duration_ms, 10'000U);
    EXPECT_NE(merged.header_key, 0);
    ExpectHealthy(folder.Path("out.klog"));
  }
}

TEST(Merge, MakesClientsOfOneNameOne) {
  const Folder folder;
  LogBuilder a;
  a.Dictionary({{"GPS", 21}, {"CAN", 22}, {"Info Client", 12}}, 0);
  a.Record(21, 1, 1, "gps").Record(22, 1, 2, "can");
  LogBuilder b;
  b.Dictionary({{"CAN", 21}, {"IMU", 22}, {"LIN", 30}, {"Info Client", 12}}, 0);
  b.Record(12, 134, 0, std::string("\x60\x40\0\0\0\0\0\0", 8));
  b.Record(21, 1, 3, "can too").Record(22, 1, 4, "imu").Record(30, 1, 5, "lin");
  b.Dictionary({{"CAN", 21}, {"IMU", 22}, {"LIN", 30}, {"Info Client", 12}}, 6);
  const ParsedLog merged =
      Merged(folder, {WriteLogAs(folder, "a.klog", a), WriteLogAs(folder, "b.klog", b)});
  const std::string dictionary =
      DictionaryPayload({{"CAN", 22}, {"GPS", 21}, {"IMU", 0}, {"Info Client", 12}, {"LIN", 30}});
  EXPECT_EQ(merged.records.front().payload, dictionary);
  EXPECT_EQ(merged.records.back().payload, dictionary) << "the one that b repeats";
  EXPECT_EQ(merged.records[1].payload, std::string("\x60\x40\0\0\0\0\0\0", 8));
  EXPECT_EQ(merged.selection, 0x9001);
  EXPECT_EQ(merged.records.size(), 8U);
  const std::vector<Meaning> records = Meanings(merged);
  EXPECT_EQ(records[2], (Meaning{"CAN", 1, 3, "can too"}));
  EXPECT_EQ(records[3], (Meaning{"IMU", 1, 4, "imu"}));
  EXPECT_EQ(records[4], (Meaning{"LIN", 1, 5, "lin"}));
  ExpectHealthy(folder.Path("out.klog"));
}

TEST(Merge, KeepsClientsWithoutANameApart) {
  const Folder folder;
  LogBuilder a;
  a.Dictionary({{"GPS", 21}}, 0).Record(40, 1, 1, "a").Record(21, 1, 2, "gps");
  LogBuilder b;
  b.Record(40, 1, 3, "b").Record(21, 1, 4, "not gps");
  const ParsedLog merged =
      Merged(folder, {WriteLogAs(folder, "a.klog", a), WriteLogAs(folder, "b.klog", b)});
  std::set<std::uint16_t> ids;
  for (const ParsedRecord& record : merged.records) ids.insert(record.client_id);
  EXPECT_EQ(ids.size(), 5U) << "GPS, three without a name, the recorder";
  EXPECT_EQ(merged.PayloadsOf(21), std::vector<std::string>{"gps"});
}

TEST(Merge, OfOneTimeKeepsTheOrderOfTheArguments) {
  const Folder folder;
  Arguments logs;
  for (const std::string name : {"x", "y", "z"}) {
    LogBuilder log;
    log.Dictionary({{"GPS", 21}}, 0).Record(21, 1, 5, name + "1").Record(21, 1, 5, name + "2");
    logs.push_back(WriteLogAs(folder, name + ".klog", log));
  }
  EXPECT_THAT(Payloads(Merged(folder, logs)), ElementsAre("x1", "x2", "y1", "y2", "z1", "z2"));
}

TEST(Merge, KeepsTheOrderWithinALogWhoseTimeGoesBack) {
  const Folder folder;
  LogBuilder a;
  a.Dictionary({{"GPS", 21}}, 0).Record(21, 1, 50, "a1").Record(21, 1, 20, "a2");
  LogBuilder b;
  b.Dictionary({{"CAN", 3}}, 0).Record(3, 1, 30, "b1").Record(3, 1, 60, "b2");
  std::string err;
  const std::string first = WriteLogAs(folder, "a.klog", a);
  const ParsedLog merged = Merged(folder, {first, WriteLogAs(folder, "b.klog", b)}, 0, &err);
  EXPECT_THAT(Payloads(merged), ElementsAre("b1", "a1", "a2", "b2"));
  EXPECT_EQ(Meanings(merged)[2].wall_ms, 50);
  EXPECT_EQ(err, "kestrav: merge: " + first +
                     ": 1 record goes back in time (taken for the time before)\n");
  ExpectHealthy(folder.Path("out.klog"));
}

TEST(Merge, WithALogWithoutRecordsIsTheOtherLog) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  const std::string empty = WriteLogAs(folder, "empty.klog", LogBuilder());
  for (const Arguments& order : {Arguments{"--plain", log, empty}, {"--plain", empty, log}}) {
    Merged(folder, order);
    if (order[1] == log) {
      EXPECT_EQ(ReadFile(folder.Path("out.klog")), ReadFile(log));
    }
    EXPECT_EQ(Meanings(Parse(folder.Path("out.klog"))), Meanings(Parse(log)));
  }
  EXPECT_EQ(Merged(folder, {empty, empty}).records.size(), 0U);
}

TEST(Merge, RefusesWhatNoLogCanHold) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  const std::string out = folder.Path("out.klog");
  const std::string late = StartingAt(folder, "late.klog", Drive(), 1'000'000'000 + 50 * 86'400);
  const Result span = RunTool({"merge", log, late, "-o", out});
  EXPECT_EQ(span.code, 1);
  EXPECT_THAT(span.err, HasSubstr(late + ": is more than 49 days later"));

  LogBuilder many;
  LogBuilder more;
  std::map<std::string, int> names;
  for (int i = 0; i < 40; ++i) names["Client " + std::to_string(i)] = i < 12 ? i : i + 1;
  many.Dictionary(names, 0);
  names.clear();
  for (int i = 0; i < 24; ++i) names["Other " + std::to_string(i)] = i < 12 ? i : i + 1;
  more.Dictionary(names, 0);
  const Result clients = RunTool({"merge", WriteLogAs(folder, "many.klog", many),
                                  WriteLogAs(folder, "more.klog", more), "-o", out});
  EXPECT_EQ(clients.code, 1);
  EXPECT_THAT(clients.err, HasSubstr("the logs have more than 64 clients"));
  EXPECT_FALSE(Exists(out));
}

TEST(Merge, HandsOnWhatCanBeReadOfDamagedLogs) {
  const Folder folder;
  LogBuilder damaged = Drive();
  damaged.Flip(damaged.RecordOffset(50) + 22);
  const std::string bad = WriteLogAs(folder, "bad.klog", damaged);
  LogBuilder other;
  other.Dictionary({{"CAN", 3}}, 0).Record(3, 1, 30, "b1");
  const std::string good = WriteLogAs(folder, "good.klog", other);
  std::string err;
  const ParsedLog merged = Merged(folder, {good, bad}, 3, &err);
  EXPECT_EQ(Meanings(merged).size(), Meanings(Parse(WriteLogAs(folder, "w", Drive()))).size());
  EXPECT_EQ(Lines(err).size(), 1U);
  EXPECT_THAT(err, HasSubstr("kestrav: merge: " + bad + ": "));
  ExpectHealthy(folder.Path("out.klog"));
}

TEST(Merge, RefusesWrongUsageAndLeavesNoOutput) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  const std::string other = WriteLogAs(folder, "b.klog", Drive());
  const std::string content = ReadFile(other);
  const Result over = RunTool({"merge", log, other, "-o", other});
  EXPECT_EQ(over.code, 2);
  EXPECT_THAT(over.err, HasSubstr("would be overwritten"));
  EXPECT_EQ(ReadFile(other), content);
  const std::string out = folder.Path("out.klog");
  EXPECT_EQ(RunTool({"merge", log, "-o", out}).code, 2) << "one log alone";
  EXPECT_EQ(RunTool({"merge", log, folder.Path("missing.klog"), "-o", out}).code, 1);
  EXPECT_EQ(RunTool({"merge", log, folder.Write("x", "no log"), "-o", out}).code, 1);
  EXPECT_FALSE(Exists(out));
}

}  // namespace
}  // namespace kestrav::test
