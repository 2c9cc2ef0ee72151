#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "records.h"
#include "run.h"

namespace kestrav::test {
namespace {

const std::string kData = KESTRAV_SOURCE_DIR "/data/";

class ImportOfRealTraces : public ::testing::TestWithParam<bool> {
 protected:
  // The import is the same for all tests.
  static void SetUpTestSuite() { folder_ = new Folder; }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  void SetUp() override {
    log_ = folder_->Path(GetParam() ? "plain.klog" : "drive.klog");
    if (Exists(log_)) return;
    Arguments arguments = {"import",
                           "-o",
                           log_,
                           "nmea:" + kData + "gnss-mountainview.nmea",
                           "candump:" + kData + "can-falcon.log",
                           "csv:" + kData + "imu-dresden.csv"};
    if (GetParam()) arguments.emplace_back("--plain");
    const Result result = RunTool(arguments);
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.err, "kestrav: import: " + kData +
                              "gnss-mountainview.nmea: 5 sentences have a wrong checksum "
                              "(recorded like the others)\n");
  }

  static inline Folder* folder_ = nullptr;
  std::string log_;
};

TEST_P(ImportOfRealTraces, GivesTheSourceLinesBackByteForByte) {
  for (const auto& [client, file] :
       {std::pair("GPS", "gnss-mountainview.nmea"), std::pair("IMU", "imu-dresden.csv")}) {
    std::string source = ReadFile(kData + file);
    if (source.back() != '\n') source += '\n';
    const Result raw = RunTool({"cat", "--format", "raw", "--client", client, log_});
    EXPECT_EQ(raw.code, 0);
    EXPECT_TRUE(raw.out == source) << client;
  }
}

TEST_P(ImportOfRealTraces, GivesTheFramesBackOneByOneWithTheirTimes) {
  const std::vector<Record> records = RecordsOf(log_, "CAN");
  const std::vector<std::string> lines = Lines(ReadFile(kData + "can-falcon.log"));
  ASSERT_EQ(records.size(), lines.size());
  // The earliest of the three traces, the CSV, starts so far into its second.
  constexpr std::int64_t kStartMs = 119;
  std::int64_t first_ms = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    // (1611136682.761619) can0 200#02020221022EC000
    const std::string& line = lines[i];
    const std::int64_t ms = std::stoll(line.substr(1, 10)) * 1000 + std::stoll(line.substr(12, 3));
    if (i == 0) first_ms = ms;
    const auto id = static_cast<std::uint32_t>(std::stoul(line.substr(25, 3), nullptr, 16));
    const Record expected{1, kStartMs + ms - first_ms, Frame(id, FromHex(line.substr(29)))};
    ASSERT_EQ(records[i], expected) << line;
  }
}

TEST_P(ImportOfRealTraces, IsScrambledUnlessPlainAndHasNoDamage) {
  const Result info = RunTool({"info", "--scan", "--json", log_});
  EXPECT_EQ(info.code, 0);
  const auto json = nlohmann::json::parse(info.out);
  EXPECT_EQ(json["header_key"] == 0, GetParam());
  EXPECT_EQ(json["data_key"] == 0, GetParam());
  EXPECT_EQ(json["file_size"], json["stream_length"]);
  const bool readable = ReadFile(log_).find("$GNRMC") != std::string::npos;
  EXPECT_EQ(readable, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Scrambling, ImportOfRealTraces, ::testing::Bool(),
                         [](const auto& instance) {
                           return instance.param ? "Plain" : "Scrambled";
                         });

TEST(Import, StartsAllSourcesTogetherAndMergesThemByTime) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string a = folder.Write("a", "millis\n1000\n1020\n");
  const std::string b =
      folder.Write("b", "(7.000000) c 001#\n(7.010000) c 002#\n(7.020000) c 003#");
  ASSERT_EQ(RunTool({"import", "-o", log, "Aaa=csv:" + a, "Bbb=candump:" + b}).code, 0);
  std::vector<std::pair<std::string, int>> order;
  for (const std::string& line : Lines(RunTool({"cat", "--format", "jsonl", log}).out)) {
    const auto json = nlohmann::json::parse(line);
    if (json["client_id"] != 12) order.emplace_back(json["client"], json["time_ms"]);
  }
  const std::vector<std::pair<std::string, int>> expected = {
      {"Aaa", 1000}, {"Aaa", 1000}, {"Bbb", 1000}, {"Bbb", 1010}, {"Aaa", 1020}, {"Bbb", 1020}};
  EXPECT_EQ(order, expected);
}

TEST(Import, TakesTheEarliestTimeThatATraceTellsAsTheStartOfTheLog) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string a = folder.Write("a", "millis\n5\n");
  const std::string b = folder.Write("b", "(1611136682.761619) can0 001#\n");
  const std::string c = folder.Write("c", "$GNGGA,021417.00\n$GNRMC,021418.00,A,,,,,,,070220\n");
  ASSERT_EQ(RunTool({"import", "-o", log, "csv:" + a, "candump:" + b, "nmea:" + c}).code, 0);
  const auto json = nlohmann::json::parse(RunTool({"info", "--json", log}).out);
  EXPECT_EQ(json["start_time"], 1581041657);  // 2020-02-07 02:14:17 UTC
}

TEST(Import, KeepsTheMillisecondsInWhichTheEarliestTraceStarts) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string can =
      folder.Write("a", "(1611136682.761619) c 001#\n(1611136683.123) c 002#\n");
  const std::string csv = folder.Write("b", "millis\n5\n");
  ASSERT_EQ(RunTool({"import", "-o", log, "candump:" + can, "csv:" + csv}).code, 0);
  EXPECT_EQ(nlohmann::json::parse(RunTool({"info", "--json", log}).out)["start_time"], 1611136682);
  EXPECT_EQ(RecordsOf(log, "CAN"),
            (std::vector<Record>{{1, 761, Frame(1, "")}, {1, 1123, Frame(2, "")}}));
  EXPECT_EQ(RecordsOf(log, "IMU")[1], (Record{2, 761, "5"}));
}

TEST(Import, WritesTheDictionaryEveryTenSecondsOfTheTrace) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string a = folder.Write("a", "millis\n0\n35000\n");
  ASSERT_EQ(RunTool({"import", "-o", log, "csv:" + a}).code, 0);
  std::vector<std::int64_t> times;
  for (const Record& record : RecordsOf(log, "Info Client")) {
    if (record.data_id == 1200) times.push_back(record.at_ms);
  }
  EXPECT_EQ(times, (std::vector<std::int64_t>{0, 10000, 20000, 30000}));
}

TEST(Import, KeepsEveryByteOfALineAndPassesOverEmptyLinesAlone) {
  const std::string odd("a\0b\xFF\xC3\x28\t", 7);
  EXPECT_EQ(Imported("nmea", odd + "\r\n\n\r\n \n\r\r\n" + "last without an end"),
            (std::vector<Record>{
                {98, 0, odd}, {98, 0, " "}, {98, 0, "\r"}, {98, 0, "last without an end"}}));
}

TEST(Import, StopsEachSourceBehindTheLimit) {
  const std::string trace = "millis\n100\n1099\n1100\n1101\n1050\n";
  EXPECT_EQ(Imported("csv", trace, {"--limit", "1"}).back(), (Record{2, 1000, "1100"}));
  EXPECT_EQ(Imported("csv", trace, {"--limit", "0.999"}).back(), (Record{2, 999, "1099"}));
  EXPECT_EQ(Imported("csv", trace, {"--limit", "0"}).back(), (Record{2, 0, "100"}));
}

TEST(Import, TakesLinesThatAreLongerThanItsBuffers) {
  const std::string line(300'000, 'x');
  EXPECT_EQ(Imported("nmea", line + "\n" + line + "\n"),
            (std::vector<Record>{{98, 0, line}, {98, 0, line}}));
}

TEST(Import, ReadsStandardInputAndNamesClientsByTheirKind) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  ASSERT_EQ(RunTool({"import", "-o", log, "csv:-"}, "millis\n1\n").code, 0);
  EXPECT_EQ(RecordsOf(log, "IMU"), (std::vector<Record>{{1, 0, "millis"}, {2, 0, "1"}}));
}

TEST(Import, MakesALogOfAnEmptyTrace) { EXPECT_EQ(Imported("nmea", "\n\n").size(), 0U); }

TEST(Import, RefusesWrongUsageAndWritesNothing) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string trace = folder.Write("t", "millis\n1\n");
  const std::vector<Arguments> cases = {{},
                                        {"-o", log},
                                        {"csv:" + trace},
                                        {"-o", log, trace},
                                        {"-o", log, "xml:" + trace},
                                        {"-o", log, "csv:"},
                                        {"-o", log, "IMU=" + trace},
                                        {"-o", log, "csv:" + trace, "csv:" + trace},
                                        {"-o", log, "Abc=csv:" + trace, "Abc=nmea:" + trace},
                                        {"-o", log, "csv:-", "nmea:-"},
                                        {"-o", log, "Ab=csv:" + trace},
                                        {"-o", log, "A1c=csv:" + trace},
                                        {"-o", log, "=csv:" + trace},
                                        {"-o", log, std::string(51, 'n') + "=csv:" + trace},
                                        {"-o", log,
                                         "Gr\xC3\xBC\xC3\x9F"
                                         "e=csv:" +
                                             trace},
                                        {"-o", log, "Info Client=csv:" + trace},
                                        {"-o", log, "--limit", "-1", "csv:" + trace},
                                        {"-o", log, "--limit", "nan", "csv:" + trace},
                                        {"-o", log, "--limit", "soon", "csv:" + trace},
                                        {"-o", log, "--frobnicate", "csv:" + trace},
                                        {"-o", trace, "csv:" + trace},
                                        {"-o", folder.Path(".") + "/t", "csv:" + trace}};
  for (const Arguments& arguments : cases) {
    Arguments all = {"import"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const Result result = RunTool(all);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(all);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
    EXPECT_FALSE(Exists(log));
  }
  EXPECT_EQ(ReadFile(trace), "millis\n1\n");
}

TEST(Import, TakesNamesOfThreeAndOfFiftyCharactersAndFilesWithAnEqualsSign) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string trace = folder.Write("t=1", "millis\n1\n");
  const std::string longest = std::string(50, 'n');
  ASSERT_EQ(
      RunTool({"import", "-o", log, "csv:" + trace, "Abc=csv:" + trace, longest + "=csv:" + trace})
          .code,
      0);
  for (const std::string& name : {std::string("IMU"), std::string("Abc"), longest}) {
    EXPECT_EQ(RecordsOf(log, name).size(), 2U) << name;
  }
}

TEST(Import, NamesTheFileThatCannotBeUsed) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const std::string trace = folder.Write("t", "millis\n1\n");
  const std::string missing = folder.Path("missing");
  const auto error_of = [](const Arguments& arguments) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 1);
    return result.err;
  };
  EXPECT_EQ(error_of({"import", "-o", log, "csv:" + missing}),
            "kestrav: import: " + missing + ": No such file or directory\n");
  EXPECT_EQ(error_of({"import", "-o", log, "csv:" + folder.Path("")}),
            "kestrav: import: " + folder.Path("") + ": Is a directory\n");
  EXPECT_EQ(error_of({"import", "-o", missing + "/o.klog", "csv:" + trace}),
            "kestrav: import: " + missing + "/o.klog: No such file or directory\n");
  EXPECT_EQ(error_of({"import", "-o", "/dev/null", "csv:" + trace}),
            "kestrav: import: /dev/null: not a regular file\n");
}

TEST(Import, PutsTheLogInItsPlaceAndLeavesNothingElseBehind) {
  const Folder folder;
  const std::string log = folder.Write("o.klog", "old");
  const std::string link = folder.Path("link.klog");
  std::filesystem::create_symlink(log, link);
  const Result result = RunTool({"import", "-o", link, "nmea:-"}, "$GNTXT\n");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, link + ": 1 record of 1 source, 0:00.000\n  GPS: 1 line of -\n");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(RecordsOf(log, "GPS").size(), 1U);
  EXPECT_FALSE(Exists(log + ".part"));
}

TEST(Import, LeavesTheOldLogAloneWhenTheFileCannotBeWritten) {
  const Folder folder;
  const std::string log = folder.Write("o.klog", "old");
  const Result result =
      RunWithFileLimit(100, {"import", "-o", log, "candump:" + kData + "can-falcon.log"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "kestrav: import: " + log + ": File too large\n");
  EXPECT_EQ(ReadFile(log), "old");
  EXPECT_FALSE(Exists(log + ".part"));
}

}  // namespace
}  // namespace kestrav::test
