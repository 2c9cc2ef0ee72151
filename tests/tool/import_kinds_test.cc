#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "records.h"
#include "run.h"

namespace kestrav::test {
namespace {

std::string Sentence(const std::string& body) {
  int sum = 0;
  for (const char c : body) sum ^= c;
  char digits[8];
  std::snprintf(digits, sizeof(digits), "*%02X", static_cast<unsigned>(sum));
  return "$" + body + digits;
}

TEST(ImportOfNmea, GivesEachSentenceTheDataIdOfItsType) {
  const std::vector<std::pair<std::string, std::uint64_t>> cases = {
      {"$GNRMC,1", 1},  {"$GPGGA,1", 2},  {"$GNGSA,1", 3},  {"$GLGSV,1", 4},  {"$GNVTG,1", 5},
      {"$GNGLL,1", 6},  {"$GPZDA,1", 7},  {"$GPGST,1", 8},  {"$GNGNS,1", 9},  {"$GNTXT,1", 10},
      {"$PUBX,00", 11}, {"$GPDTM,1", 99}, {"!AIVDM,1", 99}, {"$GGPGSV,3", 4}, {"GNRMC,1", 98},
      {"$", 98},        {"$GN", 98},      {"garbage", 98},  {"$gnrmc,1", 98}, {" ", 98}};
  std::string trace;
  for (const auto& [line, id] : cases) trace += line + "\n";
  const std::vector<Record> records = Imported("nmea", trace);
  ASSERT_EQ(records.size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(records[i], (Record{cases[i].second, 0, cases[i].first}));
  }
}

TEST(ImportOfNmea, TakesTheTimeOfTheLastRmcOrGga) {
  std::string trace;
  std::vector<std::int64_t> expected;
  const auto add = [&](const std::string& body, std::int64_t at_ms) {
    trace += Sentence(body) + "\n";
    expected.push_back(at_ms);
  };
  add("GNTXT,before the first time", 0);
  add("GNGGA,235958.00,", 0);
  add("GNRMC,235958.50,A,,,,,,,311219", 500);  // the first date
  add("GNGSV,1", 500);
  add("GNGLL,,,,,000500.00,A", 500);            // only RMC and GGA count
  add("GNGGA,000001.257,", 3257);               // midnight has passed
  add("GNRMC,000001.25,A,,,,,,,010120", 3257);  // never back
  add("GNRMC,,V,,,,,,,", 3257);
  add("GNRMC,000002,A,,,,,,,010120", 4000);
  add("GNRMC,000003.00,V,,,,,,,060180", 5000);  // no fix: no date either
  add("GNGGA,250000.00,", 5000);                // no time
  add("GNGGA,235959.00,", 5000);                // late, of the day before
  add("GNRMC,000008.00,A,,,,,,,010120", 10000);
  std::vector<std::int64_t> times;
  for (const Record& record : Imported("nmea", trace)) times.push_back(record.at_ms);
  EXPECT_EQ(times, expected);
}

TEST(ImportOfNmea, RecordsAndCountsAWrongChecksumButDoesNotTrustItsTime) {
  std::string err;
  const std::vector<Record> records =
      Imported("nmea", "$GNGGA,000000.00*00\n$GNGGA,000001.00\n$GNGGA,000002.00*6g\n", {}, &err);
  EXPECT_EQ(records, (std::vector<Record>{{2, 0, "$GNGGA,000000.00*00"},
                                          {2, 0, "$GNGGA,000001.00"},
                                          {2, 0, "$GNGGA,000002.00*6g"}}));
  EXPECT_THAT(err, ::testing::HasSubstr(": 2 sentences have a wrong checksum"));
}

TEST(ImportOfCandump, ReadsEveryFormOfAClassicFrame) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"123#", Frame(0x123, "")},
      {"7FF#1122334455667788", Frame(0x7FF, "\x11\x22\x33\x44\x55\x66\x77\x88")},
      {"0aB#fF", Frame(0x0AB, "\xFF")},
      {"00000123#01", Frame(0x80000123, "\x01")},
      {"1FFFFFFF#01", Frame(0x9FFFFFFF, "\x01")},
      {"20000004#0001", Frame(0x20000004, std::string_view("\0\1", 2))},
      {"123#R", Frame(0x40000123, "")},
      {"123#R8", Frame(0x40000123, "", 8)},
      {"00000123#R3", Frame(0xC0000123, "", 3)}};
  std::string trace;
  for (const auto& [text, frame] : cases) trace += "(1611136682.000619) can0 " + text + "\n";
  const std::vector<Record> records = Imported("candump", trace);
  ASSERT_EQ(records.size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(records[i], (Record{1, 0, cases[i].second})) << cases[i].first;
  }
}

TEST(ImportOfCandump, RecordsWhatIsNoClassicFrameAsItStands) {
  const std::vector<std::string> lines = {"(2.000000) can0 123##1112233",
                                          "(2.000000) can0 123#1",
                                          "(2.000000) can0 123#112233445566778899",
                                          "(2.000000) can0 123#11 R",
                                          "(2.000000) can0 800#11",
                                          "(2.000000) can0 12#11",
                                          "(2.000000) can0 80000001#11",
                                          "(2.000000) can0 123#R9",
                                          "(2.000000) can0 123#GG",
                                          "(2.000000) can0 123",
                                          "(2.000000) 123#11",
                                          "(2) can0 123#11",
                                          "2.000000 can0 123#11",
                                          "(x.000000) can0 123#11",
                                          "   "};
  std::string trace = "(1.000000) can0 001#\n(1.500000) can0 001#\n";
  for (const std::string& line : lines) trace += line + "\n";
  std::string err;
  const std::vector<Record> records = Imported("candump", trace, {}, &err);
  ASSERT_EQ(records.size(), lines.size() + 2);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(records[i + 2], (Record{98, 500, lines[i]}));
  }
  EXPECT_EQ(Lines(err).size(), 1U);
  EXPECT_THAT(err,
              ::testing::HasSubstr(
                  ": 15 lines are no candump (recorded with data id 98), the first is line 3"));
}

TEST(ImportOfCandump, RecordsAFrameWithAnImpossibleTimeAtTheTimeBeforeAndSaysSo) {
  std::string err;
  const std::vector<Record> records =
      Imported("candump",
               "(1.000000) can0 001#\n(1.500000) can0 001#\n(9999999999.000000) can0 001#\n"
               "(1.200000) can0 001#\n(2.000000) can0 001#\n",
               {}, &err);
  ASSERT_EQ(records.size(), 5U);
  const std::uint32_t times[] = {0, 500, 500, 500, 1000};
  for (std::size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i], (Record{1, times[i], records[0].payload}));
  }
  EXPECT_THAT(err, ::testing::HasSubstr("1 line has a time more than 49 days after the first"));
  EXPECT_THAT(err, ::testing::HasSubstr("1 line has a time before that of the line before"));
}

TEST(ImportOfCandump, LeavesOutWhatLiesFarBeyondTheLimit) {
  const std::vector<Record> records = Imported(
      "candump", "(1.000000) can0 001#\n(9999999999.000000) can0 001#\n", {"--limit", "10"});
  EXPECT_EQ(records.size(), 1U);
}

TEST(ImportOfCandump, KeepsThePresentTimeWhenATraceGoesBack) {
  const std::vector<Record> records = Imported(
      "candump", "(5.000900) c 001#\n(5.002000) c 001#\n(4.000000) c 001#\n(5.003999) c 001#\n");
  std::vector<std::int64_t> times;
  for (const Record& record : records) times.push_back(record.at_ms);
  EXPECT_EQ(times, (std::vector<std::int64_t>{0, 2, 2, 3}));
}

TEST(ImportOfCsv, TakesTheTimeOutOfTheNamedColumn) {
  EXPECT_EQ(Imported("csv", "a,millis,b\n1,100.9,2\n1,102.1,2\n"),
            (std::vector<Record>{{1, 0, "a,millis,b"}, {2, 0, "1,100.9,2"}, {2, 2, "1,102.1,2"}}));
  EXPECT_EQ(
      Imported("csv", "\xEF\xBB\xBF\"t\", b\n 7 ,\"x,y\"\n\"9\",z,more\n", {"--time-column", "t"}),
      (std::vector<Record>{
          {1, 0, "\xEF\xBB\xBF\"t\", b"}, {2, 0, " 7 ,\"x,y\""}, {2, 2, "\"9\",z,more"}}));
}

TEST(ImportOfCsv, RecordsASampleWithoutTimeOrWithTooFewColumnsAsItStands) {
  EXPECT_EQ(Imported("csv", "millis,a\n10,1\n20,1\n,1\nx,1\nnan,1\n30\n1e400,1\n40,1\n"),
            (std::vector<Record>{{1, 0, "millis,a"},
                                 {2, 0, "10,1"},
                                 {2, 10, "20,1"},
                                 {98, 10, ",1"},
                                 {98, 10, "x,1"},
                                 {98, 10, "nan,1"},
                                 {98, 10, "30"},
                                 {98, 10, "1e400,1"},
                                 {2, 30, "40,1"}}));
}

TEST(ImportOfCsv, FailsWithoutTheTimeColumn) {
  const Folder folder;
  for (const char* const content : {"a,b\n1,2\n", ""}) {
    const std::string trace = folder.Write("t.csv", content);
    const Result result = RunTool({"import", "-o", folder.Path("o.klog"), "csv:" + trace});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, ::testing::StartsWith("kestrav: import: " + trace + ": no "));
    EXPECT_EQ(Lines(result.err).size(), 1U);
    EXPECT_FALSE(Exists(folder.Path("o.klog")));
  }
}

}  // namespace
}  // namespace kestrav::test
