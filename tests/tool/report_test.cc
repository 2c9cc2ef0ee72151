#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <numeric>
#include <string>

#include "cpu_time.h"
#include "report_page.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

using nlohmann::json;

class Report : public testing::Test {
 protected:
  void SetUp() override {
    if (!KESTRAV_REPORT) GTEST_SKIP() << "the tool was built without the page";
  }
};

LogBuilder SmallLog(std::uint8_t key = 0) {
  LogBuilder log(key, key);
  log.StartClock(1000).Dictionary({{"CAN", 3}, {"GPS", 21}}, 1000);
  log.Record(21, 1, 1000, "one").Record(3, 7, 2500, "\x01\xFF").Record(21, 2, 3000, "three");
  return log;
}

std::uint64_t Sum(const json& runs) {
  const std::vector<std::uint64_t> values = Expanded(runs);
  return std::accumulate(values.begin(), values.end(), std::uint64_t{0});
}

bool HasPart(const Folder& folder) {
  const auto name = std::filesystem::path(folder.Path("x")).parent_path();
  for (const auto& entry : std::filesystem::directory_iterator(name)) {
    if (entry.path().extension() == ".part") return true;
  }
  return false;
}

TEST_F(Report, CarriesEachRecordAsItIs) {
  for (const std::uint8_t key : {std::uint8_t{0}, std::uint8_t{0x5A}}) {
    const ReportRun run = MakeReport(SmallLog(key));
    EXPECT_EQ(run.result.code, 0) << run.result.err;
    EXPECT_EQ(run.result.err, "");
    const json& records = run.data["records"];
    ASSERT_EQ(records.size(), 4U);
    EXPECT_EQ(records[1], json::parse(R"([1,0,21,1,3,"tone"])"));
    EXPECT_EQ(records[2], json::parse(R"([2,1500,3,7,2,"h01ff"])"));
    EXPECT_EQ(records[3], json::parse(R"([3,2000,21,2,5,"tthree"])"));
    EXPECT_EQ(run.Summary()["log"]["scrambled"], key != 0);
  }
}

TEST_F(Report, CountsWhatEachClientDid) {
  const ReportRun run = MakeReport(SmallLog());
  EXPECT_EQ(run.Summary()["records"], 4);
  EXPECT_EQ(run.Summary()["end_ms"], 2000);
  const json& gps = run.Client(21);
  EXPECT_EQ(gps["name"], "GPS");
  EXPECT_EQ(gps["records"], 2);
  EXPECT_EQ(gps["bytes"], 8);
  EXPECT_EQ(gps["last_ms"], 2000);
  EXPECT_EQ(gps["longest_gap_ms"], 2000);
  EXPECT_EQ(gps["data_ids"], json::parse("[[1,1],[2,1]]"));
  EXPECT_EQ(Expanded(gps["record_runs"])[0], 1U);
  EXPECT_EQ(Expanded(gps["byte_runs"])[2000], 5U);
}

TEST_F(Report, NeverLetsTextOfALogEndItsPlace) {
  const std::string hostile =
      "</script><script>alert(1)</script><!--<img src=x onerror=alert(1)>&amp;\"'\\";
  LogBuilder log;
  log.Dictionary({{"</script><b>\"\x01", 21}, {"Sp\xC3\xA4t", 22}, {"bad\xFF", 23}}, 0);
  log.Record(21, 1, 0, hostile).Record(22, 1, 0, "\xE2\x80\xA8").Record(23, 1, 0, "x");
  const Folder folder;
  const std::string page = folder.Path("p.html");
  ASSERT_EQ(RunTool({"report", WriteLog(folder, log), "-o", page}).code, 0);
  const std::string text = DataText(ReadFile(page));
  EXPECT_EQ(text.find_first_of("<>&"), std::string::npos);
  EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c > 0; }));
  const json data = json::parse(text);
  EXPECT_EQ(data["records"][1][5], "t" + hostile);
  EXPECT_EQ(data["records"][2][5], "he280a8");
  EXPECT_EQ(data["summary"]["clients"][1]["name"], "</script><b>\"\x01");
  EXPECT_EQ(data["summary"]["clients"][2]["name"], "Sp\xC3\xA4t");
  EXPECT_EQ(data["summary"]["clients"][3]["name"], "bad\xEF\xBF\xBD");
}

TEST_F(Report, KeepsTheFirstRecordsAndTheStartOfLongOnes) {
  LogBuilder log;
  for (int i = 0; i < 100; ++i) log.Record(21, 1, 10, std::string(1000, 'x'));
  const ReportRun run = MakeReport(log, {"--records", "7"});
  EXPECT_EQ(run.data["records"].size(), 7U);
  EXPECT_EQ(run.data["records"][6][4], 1000);
  EXPECT_EQ(run.data["records"][6][5], "t" + std::string(256, 'x'));
  EXPECT_EQ(run.Summary()["records"], 100);
  EXPECT_EQ(Sum(run.Client(21)["byte_runs"]), 100'000U);
  EXPECT_EQ(MakeReport(log, {"--records", "0"}).data["records"], json::array());
}

// Where the page may draw the records that it holds, instead of counts of all.
TEST_F(Report, TellsFromWhenOnRecordsAreLeftOut) {
  LogBuilder log;
  for (const std::uint32_t at : {10U, 5000U, 9000U, 4000U, 9500U}) log.Record(21, 1, at, "x");
  EXPECT_EQ(MakeReport(log).Summary()["first_left_out_ms"], nullptr);
  EXPECT_EQ(MakeReport(log, {"--records", "3"}).Summary()["first_left_out_ms"], 4000);
}

TEST_F(Report, ShowsOnlyWhatIsAskedFor) {
  const ReportRun run = MakeReport(SmallLog(), {"--client", "GPS", "--from", "1", "--to", "5"});
  EXPECT_EQ(run.Summary()["records"], 1);
  EXPECT_EQ(run.Summary()["all_records"], 4);
  EXPECT_EQ(run.Summary()["clients"].size(), 1U);
  EXPECT_EQ(run.Summary()["filter"], json::parse(R"({"clients":["GPS"],"from_s":1.0,"to_s":5.0})"));
  EXPECT_EQ(run.data["records"].size(), 1U);
}

TEST_F(Report, SummarisesALongLogInBucketsThatLoseNothing) {
  LogBuilder log;
  constexpr std::uint32_t kRecords = 5000;
  for (std::uint32_t i = 0; i < kRecords; ++i) log.Record(21 + i % 2, 1, i * 20'000, "xy");
  const ReportRun run = MakeReport(log, {"--records", "1"});
  const auto bucket_ms = run.Summary()["bucket_ms"].get<std::uint64_t>();
  EXPECT_EQ(run.Summary()["end_ms"], std::uint64_t{kRecords - 1} * 20'000);
  EXPECT_GE(bucket_ms * 8192, 4999ULL * 20'000);
  EXPECT_LT(bucket_ms * 4096, 4999ULL * 20'000);
  for (const int id : {21, 22}) {
    const std::vector<std::uint64_t> counts = Expanded(run.Client(id)["record_runs"]);
    std::vector<std::uint64_t> wanted(counts.size());
    for (std::uint64_t i = static_cast<std::uint64_t>(id - 21); i < kRecords; i += 2) {
      ++wanted.at(i * 20'000 / bucket_ms);
    }
    EXPECT_EQ(counts, wanted);
    EXPECT_EQ(Sum(run.Client(id)["byte_runs"]), kRecords);
  }
}

TEST_F(Report, PutsClientsBeyondItsLanesIntoOne) {
  LogBuilder log;
  for (std::uint16_t id = 100; id < 1100; ++id) log.Record(id, 1, id, "x");
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.Summary()["clients"].size(), 65U);
  EXPECT_EQ(run.Summary()["clients"][64]["id"], nullptr);
  EXPECT_EQ(run.Summary()["clients"][64]["records"], 1000 - 64);
}

struct Spot {
  const char* name;
  std::string kind;
  std::int64_t amount;
  int code;
  void (*make)(LogBuilder&);
};

class ReportMark : public testing::TestWithParam<Spot> {};

TEST_P(ReportMark, IsToldWithItsPlace) {
  if (!KESTRAV_REPORT) GTEST_SKIP() << "the tool was built without the page";
  LogBuilder log = SmallLog();
  GetParam().make(log);
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.result.code, GetParam().code);
  EXPECT_EQ(Lines(run.result.err).size(), GetParam().code == 3 ? 1U : 0U) << run.result.err;
  const json& marks = run.Summary()["marks"];
  ASSERT_GE(marks["list"].size(), 1U);
  EXPECT_EQ(marks["list"][0][0], GetParam().kind);
  EXPECT_EQ(marks["list"][0][2], GetParam().amount);
  EXPECT_EQ(Sum(marks["runs"]), marks["count"]);
  EXPECT_EQ(run.Summary()["loss"] == "", GetParam().code == 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ReportMark,
    testing::Values(Spot{"Damage", "damage", 25, 3,
                         [](LogBuilder& log) {
                           log.Raw({1, 2, 3}).Record(21, 1, 3000, "on").Record(21, 1, 3000, "x");
                         }},
                    Spot{"DamagedRecord", "damage", 22, 3,
                         [](LogBuilder& log) { log.Flip(log.RecordOffset(2) + 21); }},
                    Spot{"Missing", "missing", 6, 3,
                         [](LogBuilder& log) { log.NextIndex(10).Record(21, 1, 3000, "on"); }},
                    Spot{"OutOfOrder", "misplaced", 3, 3,
                         [](LogBuilder& log) { log.NextIndex(1).Record(21, 1, 3000, "on"); }},
                    Spot{"TimeBack", "back", 2500, 0,
                         [](LogBuilder& log) { log.Record(21, 1, 500, "on"); }},
                    Spot{"TimeAhead", "ahead", 40'000, 0,
                         [](LogBuilder& log) { log.Record(21, 1, 43'000, "on"); }},
                    Spot{"CutEnd", "tail", 24, 3, [](LogBuilder& log) { log.Cut(log.Size() - 1); }},
                    Spot{"TrailingBytes", "tail", 5, 3,
                         [](LogBuilder& log) {
                           log.Raw({1, 2, 3, 4, 5});
                         }}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(Report, ListsTheFirstMarksAndCountsAll) {
  LogBuilder log;
  for (std::uint32_t i = 0; i < 3000; ++i) log.NextIndex(2 * i).Record(21, 1, i, "x");
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.result.code, 3);
  EXPECT_EQ(Lines(run.result.err).size(), 1U);
  EXPECT_EQ(run.Summary()["marks"]["list"].size(), 500U);
  EXPECT_EQ(run.Summary()["marks"]["count"], 2999);
  EXPECT_EQ(Sum(run.Summary()["marks"]["runs"]), 2999U);
}

TEST_F(Report, TakesALogThatIsNotFinished) {
  LogBuilder log = SmallLog();
  log.Flip(0, 0);  // a log that was touched keeps the length 0 that it was started with
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.result.code, 0) << run.result.err;
  EXPECT_EQ(run.Summary()["log"]["finished"], false);
  EXPECT_EQ(run.data["records"].size(), 4U);
}

TEST_F(Report, GoesOnWhenTheClockStartsAgainAtZero) {
  LogBuilder log;
  log.StartClock(0xFFFFFC00).Record(21, 1, 0xFFFFFC00, "a").Record(21, 1, 0x400, "b");
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.data["records"][1][1], 2048);
  EXPECT_EQ(run.Summary()["marks"]["count"], 0);
}

TEST_F(Report, TellsOfSilencesThatStandOut) {
  LogBuilder log;
  for (std::uint32_t i = 0; i < 100; ++i) log.Record(3, 1, i * 10 + (i < 50 ? 0 : 5000), "x");
  for (std::uint32_t i = 0; i < 5; ++i) log.Record(4, 1, 6000 + i * 5000, "x");
  for (std::uint32_t i = 0; i < 1000; ++i) {  // bursts, and one pause that is longer
    log.Record(5, 1, 30'000 + i / 30 * 1100 + i % 30 + (i < 600 ? 0 : 9000), "x");
  }
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.Client(3)["silences"], json::parse("[[490,5010],[5990,69319]]"));
  EXPECT_EQ(run.Client(4)["silences"], json::array());
  EXPECT_EQ(run.Client(5)["silences"], json::parse("[[50929,10071]]"));
  const ReportRun part = MakeReport(log, {"--to", "8"});
  EXPECT_EQ(part.Client(3)["silences"], json::parse("[[490,5010],[5990,2010]]"));
}

TEST_F(Report, DrawsTheWayOfASatelliteReceiver) {
  LogBuilder log;
  log.Record(21, 2, 0, "$GPGGA,101112,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
  log.Record(21, 1, 10, "$GPRMC,101112,A,3330.000,S,07030.000,W,10.0,,010203,,");
  log.Record(21, 2, 20, "$GPGGA,101113,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
  log.Record(21, 1, 30, "$GPRMC,101113,V,3330.000,S,07030.000,W,10.0,,010203,,");
  log.Record(21, 1, 40, "$GPRMC,101113,A,3330.000,S,07030.000,W,10.0,,010203,,*00");
  log.Record(22, 2, 50, "$GNGGA,101113,0000.600,N,00000.000,E,1,08,0.9,545.4,M,46.9,M,,");
  log.Record(22, 2, 50, "$GNGGA,101113,9100.600,N,00000.000,E,1,08,0.9,545.4,M,46.9,M,,");
  log.Record(22, 2, 50, "$GNGGA,101113,nan,N,1e3,E,1,08,0.9,545.4,M,46.9,M,,");
  log.Record(23, 1, 60, "$");
  const ReportRun run = MakeReport(log);
  EXPECT_EQ(run.Client(21)["track"],
            json::parse(R"({"fixes":1,"points":[[10,-33.5,-70.5,18.52]]})"));
  EXPECT_EQ(run.Client(22)["track"], json::parse(R"({"fixes":1,"points":[[50,0.01,0.0,null]]})"));
  EXPECT_EQ(run.Client(23)["track"], nullptr);
}

TEST_F(Report, ThinsALongWay) {
  LogBuilder log;
  for (std::uint32_t i = 0; i < 10'000; ++i) {
    log.Record(21, 1, i, "$GPRMC,101112,A,3330.000,S,07030.000,W," + std::to_string(i) + ",,,,");
  }
  const json track = MakeReport(log).Client(21)["track"];
  EXPECT_EQ(track["fixes"], 10'000);
  EXPECT_GT(track["points"].size(), 2000U);
  EXPECT_LE(track["points"].size(), 4096U);
  const std::int64_t step = track["points"][1][0].get<std::int64_t>();
  for (std::size_t i = 0; i < track["points"].size(); ++i) {
    ASSERT_EQ(track["points"][i][0], static_cast<std::int64_t>(i) * step);
  }
}

TEST_F(Report, LeavesNoHalfPageBehind) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  const std::string out = folder.Write("report.html", "before");
  const Result result = RunWithFileLimit(2, {"report", log, "-o", out});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "kestrav: report: " + out + ": File too large\n");
  EXPECT_EQ(ReadFile(out), "before");
  EXPECT_FALSE(HasPart(folder));
}

TEST_F(Report, RefusesWhatItCannotDo) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  const std::string out = folder.Path("r.html");
  const std::string junk = folder.Write("junk", "no log");
  EXPECT_EQ(RunTool({"report", log}).code, 2);
  EXPECT_EQ(RunTool({"report", log, "-o", log}).code, 2);
  EXPECT_EQ(RunTool({"report", log, "-o", out, "--records", "-1"}).code, 2);
  EXPECT_EQ(RunTool({"report", log, "-o", out, "--from", "2", "--to", "1"}).code, 2);
  EXPECT_EQ(RunTool({"report", log, "-o", out, "--client", "Door"}).code, 1);
  EXPECT_EQ(RunTool({"report", junk, "-o", out}).code, 1);
  EXPECT_EQ(RunTool({"report", folder.Path("missing"), "-o", out}).code, 1);
  EXPECT_EQ(RunTool({"report", log, "-o", folder.Path("no/such/r.html")}).code, 1);
  EXPECT_FALSE(Exists(out));
  EXPECT_FALSE(HasPart(folder));
}

TEST_F(Report, MakesThePageOfAnEmptyLog) {
  const ReportRun run = MakeReport(LogBuilder());
  EXPECT_EQ(run.result.code, 0);
  EXPECT_EQ(run.data["records"], json::array());
  EXPECT_EQ(run.Summary()["clients"], json::array());
}

// By the processor's time, so that other work does not count.
TEST_F(Report, TakesALongLogAtSpeed) {
#ifdef NDEBUG
  constexpr double kMegabytes = 150.0;
#else
  constexpr double kMegabytes = 15.0;
#endif
  const std::string memory = "/dev/shm";
  if (access(memory.c_str(), W_OK) != 0) GTEST_SKIP() << "no file system in memory";
  const std::string log = memory + "/kestrav-report-" + std::to_string(getpid()) + ".klog";
  {
    LogBuilder builder = SmallLog();
    for (std::uint32_t i = 0; static_cast<double>(builder.Size()) < kMegabytes * 1e6; ++i) {
      builder.Record(i % 3 == 0 ? 21 : 3, 7, 3000 + i / 2, std::string(64 + i * 37 % 193, 'p'));
    }
    const Bytes bytes = builder.Build();
    std::ofstream(log, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  const double before = CpuScndsOfChildren();
  const Result result = RunTool({"report", log, "-o", log + ".html"});
  const double cpu = CpuScndsOfChildren() - before;
  std::filesystem::remove(log);
  std::filesystem::remove(log + ".html");
  EXPECT_EQ(result.code, 0) << result.err;
  std::cout << "[figure] report, log of " << kMegabytes << " MB in memory: " << kMegabytes / cpu
            << " MB a second of processor time\n";
#ifdef NDEBUG
  const bool is_measured = std::string(KESTRAV_SANITIZE).empty();
  EXPECT_TRUE(!is_measured || kMegabytes / cpu >= 150);
#endif
}

}  // namespace
}  // namespace kestrav::test
