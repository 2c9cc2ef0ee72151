#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "records.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

using Json = nlohmann::ordered_json;

std::string WriteLog(const Folder& folder, const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write("a.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

LogBuilder SmallLog(std::uint8_t key = 0) {
  LogBuilder log(key, key);
  log.StartClock(1000).Duration(3000).Selection(0x9000);
  log.Dictionary({{"CAN", 22}, {"GPS", 21}}, 1000);
  log.Record(21, 1, 1000, "aaaa").Record(21, 1, 1500, "aa").Record(21, 1, 3500, "aa");
  log.Record(22, 1, 4000, "b");
  return log;
}

Json ScanOf(const LogBuilder& log, int expected_code) {
  const Folder folder;
  const Result result = RunTool({"info", "--scan", "--json", WriteLog(folder, log)});
  EXPECT_EQ(result.code, expected_code) << result.err;
  return Json::parse(result.out)["scan"];
}

TEST(Info, GivesTheHeaderAndTheDictionaryAsJson) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog(7));
  const Result result = RunTool({"info", "--json", path});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  const std::uint64_t size = ReadFile(path).size();
  const Json expected = {{"magic", "LOG:"},
                         {"start_time", 1000000000},
                         {"client_selection", 0x9000},
                         {"header_key", 7},
                         {"data_key", 7},
                         {"duration_ms", 3000},
                         {"stream_length", size},
                         {"clock_rate", 1000},
                         {"start_clock", 1000},
                         {"reserved", std::string(200, '0')},
                         {"dictionary", {{"CAN", 22}, {"GPS", 21}}},
                         {"file_size", size}};
  EXPECT_EQ(result.out, expected.dump(2) + "\n");
}

TEST(Info, ShowsTheSameForPeople) {
  const Folder folder;
  const Result result = RunTool({"info", WriteLog(folder, SmallLog(7))});
  EXPECT_EQ(result.code, 0);
  for (const char* const text :
       {"2001-09-09 01:46:40 UTC (1000000000)", "0:03.000", "yes, header key 0x07", "0x9000",
        "CAN (22)", "GPS (21)", "1000 ticks a second, 1000 ms at the start"}) {
    EXPECT_THAT(result.out, ::testing::HasSubstr(text));
  }
}

TEST(Info, SaysThatARecordingWasNotFinished) {
  const Folder folder;
  LogBuilder log = SmallLog();
  log.Zero(12, 8);
  const Result result = RunTool({"info", WriteLog(folder, log)});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, ::testing::HasSubstr("unknown: the recording was not finished"));
}

TEST(Info, ReadsNothingBehindTheFirstRecord) {
  const Folder folder;
  LogBuilder damaged_first = SmallLog();
  damaged_first.Flip(damaged_first.RecordOffset(0) + 5).Dictionary({{"GPS", 21}}, 4000);
  const Result damaged = RunTool({"info", WriteLog(folder, damaged_first)});
  EXPECT_EQ(damaged.code, 3);
  EXPECT_THAT(damaged.out, ::testing::HasSubstr("unknown: the first record is damaged"));

  LogBuilder other_first;
  other_first.Record(21, 1, 0, "early").Dictionary({{"GPS", 21}}, 0);
  const Result other = RunTool({"info", WriteLog(folder, other_first)});
  EXPECT_EQ(other.code, 0);
  EXPECT_THAT(other.out, ::testing::HasSubstr("unknown: the first record is no dictionary"));

  const Result none = RunTool({"info", WriteLog(folder, LogBuilder())});
  EXPECT_EQ(none.code, 0);
  EXPECT_THAT(none.out, ::testing::HasSubstr("unknown: there is no record"));
}

TEST(Info, ShowsOddNamesWithoutHarmToTheTerminal) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"Bel\x07\xFF", 21}}, 0);
  const std::string path = WriteLog(folder, log);
  EXPECT_THAT(RunTool({"info", path}).out, ::testing::HasSubstr("Bel\\x07\\xff (21)"));
  const Result json = RunTool({"info", "--json", path});
  EXPECT_EQ(json.code, 0);
  EXPECT_EQ(Json::parse(json.out)["dictionary"]["Bel\x07\xEF\xBF\xBD"], 21);
}

TEST(InfoScan, CountsTheRecordsOfEachClient) {
  const Json scan = ScanOf(SmallLog(9), 0);
  EXPECT_EQ(scan["records"], 5);
  ASSERT_EQ(scan["clients"].size(), 3U);
  const Json gps = {{"client_id", 21},        {"client", "GPS"},
                    {"records", 3},           {"bytes", 8},
                    {"first_time_ms", 1000},  {"last_time_ms", 3500},
                    {"longest_gap_ms", 2000}, {"records_per_second", 0.8}};
  EXPECT_EQ(scan["clients"][1], gps);
  EXPECT_EQ(scan["clients"][0]["client"], nullptr);
  for (const auto& [key, value] : scan["damage"].items()) EXPECT_EQ(value, 0) << key;
}

TEST(InfoScan, ShowsTheSameForPeople) {
  const Folder folder;
  const Result result = RunTool({"info", "--scan", WriteLog(folder, SmallLog())});
  EXPECT_EQ(result.code, 0);
  const std::string rows = ::testing::PrintToString(Lines(result.out));
  EXPECT_THAT(result.out,
              ::testing::ContainsRegex("GPS +21 +3 +8 +0\\.000 +2\\.500 +2\\.000 +0\\.80"))
      << rows;
  EXPECT_THAT(result.out, ::testing::ContainsRegex("damage +none")) << rows;
}

struct DamageCase {
  const char* name;
  std::function<void(LogBuilder&)> damage;
  std::uint64_t records;
  Json expected;  // what is not named is 0
};

class InfoScanOfDamage : public ::testing::TestWithParam<DamageCase> {};

TEST_P(InfoScanOfDamage, SaysWhatIsLost) {
  LogBuilder log = SmallLog();
  GetParam().damage(log);
  const Json scan = ScanOf(log, 3);
  EXPECT_EQ(scan["records"], GetParam().records);
  for (const auto& [key, value] : scan["damage"].items()) {
    EXPECT_EQ(value, GetParam().expected.value(key, 0)) << key;
  }
}

// The records of `SmallLog` have 20 bytes of header and 4, 2, 2 and 1 of payload.
const DamageCase kDamageCases[] = {
    {"PayloadByte",
     [](LogBuilder& log) { log.Flip(log.RecordOffset(2) + 20); },
     4,
     {{"places", 1}, {"skipped_bytes", 22}, {"missing_records", 1}}},
    {"HeaderByte",
     [](LogBuilder& log) { log.Flip(log.RecordOffset(2) + 8); },
     4,
     {{"places", 1}, {"skipped_bytes", 22}, {"missing_records", 1}}},
    {"TwoPlaces",
     [](LogBuilder& log) { log.Flip(log.RecordOffset(1) + 8).Flip(log.RecordOffset(3) + 8); },
     3,
     {{"places", 2}, {"skipped_bytes", 46}, {"missing_records", 2}}},
    {"InsertedBytes",
     [](LogBuilder& log) { log.Insert(log.RecordOffset(2), Bytes(30, 0xAA)); },
     5,
     {{"places", 1}, {"skipped_bytes", 30}}},
    {"LastRecord",
     [](LogBuilder& log) { log.Flip(log.RecordOffset(4) + 20); },
     4,
     {{"trailing_bytes", 21}}},
    {"CutInsideARecord",
     [](LogBuilder& log) { log.Cut(log.Size() - 1); },
     4,
     {{"trailing_bytes", 20}}},
    {"LeftOutIndex",
     [](LogBuilder& log) { log.NextIndex(9).Record(21, 1, 4000, "z"); },
     6,
     {{"missing_records", 4}}},
    {"RepeatedIndex",
     [](LogBuilder& log) { log.NextIndex(1).Record(21, 1, 4000, "z"); },
     6,
     {{"misplaced_records", 1}}},
};

INSTANTIATE_TEST_SUITE_P(Damage, InfoScanOfDamage, ::testing::ValuesIn(kDamageCases),
                         [](const auto& instance) { return instance.param.name; });

TEST(InfoScan, NoticesAFileThatEndsBetweenRecordsBeforeItsStatedLength) {
  const Folder folder;
  const Bytes bytes = SmallLog().Build();
  const std::string path =
      folder.Write("a.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size() - 21});
  const Result result = RunTool({"info", "--scan", "--json", path});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(Json::parse(result.out)["scan"]["damage"]["cut_bytes"], 21);
  EXPECT_EQ(Json::parse(result.out)["scan"]["records"], 4);
  EXPECT_EQ(RunTool({"info", path}).code, 3);
}

TEST(Info, RefusesWrongUsage) {
  for (const Arguments& arguments :
       {Arguments{"info"}, {"info", "x", "y"}, {"info", "--xml", "x"}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(arguments);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
}

}  // namespace
}  // namespace kestrav::test
