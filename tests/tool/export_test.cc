#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "records.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

using std::string_view_literals::operator""sv;

std::string WriteLog(const Folder& folder, const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write("a.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// It starts on 2001-09-09 at 01:46:40 UTC, a billion seconds.
LogBuilder SmallLog() {
  LogBuilder log(9, 7);
  log.StartClock(1000).Dictionary({{"GPS", 21}, {"CAN", 22}}, 1000);
  log.Record(21, 1, 1000, "$GPTXT,a").Record(22, 2, 2500, Frame(0x80000123, "\xAB\xCD"));
  log.Record(40, 3, 3000, "three");
  return log;
}

Arguments ExportTo(const std::string& format, const std::string& log, const Arguments& more = {}) {
  Arguments arguments = {"export", log, "--to", format};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

const std::vector<std::string> kFormats = {"jsonl", "csv", "candump", "nmea", "pcapng", "mcap"};

TEST(Export, ToJsonlPrintsTheLinesOfCatWithTheTimeOfDay) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  const Result result = RunTool(ExportTo("jsonl", log));
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  const std::vector<std::string> lines = Lines(result.out);
  const std::vector<std::string> cat = Lines(RunTool({"cat", "--format", "jsonl", log}).out);
  ASSERT_EQ(lines.size(), 4U);
  ASSERT_EQ(cat.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i) {
    auto json = nlohmann::ordered_json::parse(lines[i]);
    EXPECT_EQ(json["time"], i < 2    ? "2001-09-09T01:46:40.000Z"
                            : i == 2 ? "2001-09-09T01:46:41.500Z"
                                     : "2001-09-09T01:46:42.000Z");
    json.erase("time");
    EXPECT_EQ(json.dump(), cat[i]);
  }
}

TEST(Export, ToJsonlHoldsNoBytesOfANameThatATerminalObeys) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"a\"\\\n\x1b\x7F\xC2\x9B\xC3\xA9\xFF", 21}}, 0).Record(21, 1, 0, "x");
  const Result result = RunTool(ExportTo("jsonl", WriteLog(folder, log), {"--client", "21"}));
  EXPECT_EQ(Value(result.out, "client_id"), "21");
  EXPECT_THAT(result.out,
              ::testing::HasSubstr(R"("client":"a\"\\\n\u001b\u007f\u009b\u00e9\ufffd")"));
}

TEST(Export, ToCsvWritesARecordALineWithTextAndHexApart) {
  const Folder folder;
  const Result result = RunTool(ExportTo("csv", WriteLog(folder, SmallLog()), {"--from", "0"}));
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "index,time_ms,time,client,client_id,data_id,size,text,payload_hex\r\n"
            "0,0,2001-09-09T01:46:40.000Z,,12,1200,18,,"
            "0x0200000043414e0032320047505300323100\r\n"
            "1,0,2001-09-09T01:46:40.000Z,GPS,21,1,8,\"$GPTXT,a\",\r\n"
            "2,1500,2001-09-09T01:46:41.500Z,CAN,22,2,16,,0x2301008002000000abcd000000000000\r\n"
            "3,2000,2001-09-09T01:46:42.000Z,,40,3,5,three,\r\n");
}

TEST(Export, WritesOnlyWhatIsAskedFor) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  const auto indices = [&](const Arguments& more) {
    std::vector<std::string> found;
    for (const std::string& line : Lines(RunTool(ExportTo("jsonl", log, more)).out)) {
      found.push_back(Value(line, "index"));
    }
    return found;
  };
  EXPECT_EQ(indices({"--client", "GPS", "--client", "40"}), (std::vector<std::string>{"1", "3"}));
  EXPECT_EQ(indices({"--from", "0.001", "--until", "1.5"}), (std::vector<std::string>{"2"}));
  EXPECT_EQ(indices({"--client", "63"}), (std::vector<std::string>{}));
  EXPECT_EQ(RunTool(ExportTo("csv", log, {"--client", "IMU"})).code, 1);
}

TEST(Export, ToCandumpNamesAnInterfaceForEachClient) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(1000).Dictionary({{"CAN", 22}}, 1000);
  log.Record(22, 1, 1001, Frame(0x123, "\xAB")).Record(23, 1, 1002, Frame(0x40000456, "", 3));
  log.Record(22, 1, 2003, Frame(0x20000004, "\0\1"sv)).Record(22, 1, 2004, Frame(0xC0000001, ""));
  log.Record(22, 1, 2004, "no frame").Record(22, 1, 2005, Frame(0x12345, ""));
  const std::string path = WriteLog(folder, log);
  const Result result = RunTool(ExportTo("candump", path));
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out,
            "(1000000000.001000) can0 123#AB\n"
            "(1000000000.002000) can1 456#R3\n"
            "(1000000001.003000) can0 20000004#0001\n"
            "(1000000001.004000) can0 00000001#R\n");
  EXPECT_EQ(result.err, "kestrav: export: " + path + ": 2 records left out: no CAN frames\n");
  const Result named = RunTool(ExportTo("candump", path, {"--interface", "vcan7"}));
  EXPECT_EQ(Lines(named.out)[1], "(1000000000.002000) vcan7 456#R3");
}

TEST(Export, ToNmeaLeavesOutWhatIsNoSentence) {
  const Folder folder;
  LogBuilder log;
  log.Record(21, 1, 0, "$GPTXT,a*00").Record(21, 1, 0, "!AIVDM,1").Record(21, 98, 0, "noise");
  log.Record(21, 1, 0, "$GPTXT,\x1b[2J").Record(21, 1, 0, "$GPTXT,a\n");
  const std::string path = WriteLog(folder, log);
  const Result result = RunTool(ExportTo("nmea", path));
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out, "$GPTXT,a*00\n!AIVDM,1\n");
  EXPECT_EQ(result.err, "kestrav: export: " + path + ": 3 records left out: no NMEA sentences\n");
}

TEST(Export, GivesEachClientATableOfItsKind) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(1000).Dictionary({{"IMU", 21}, {"CAN", 22}, {"Door", 23}}, 1000);
  log.Record(21, 1, 1000, "millis,\"a,b\"").Record(22, 1, 1000, Frame(0x123, "\x01\x02"));
  log.Record(23, 1, 1000, "open, left").Record(21, 2, 1010, "1,=2").Record(23, 1, 1010, "shut");
  log.Record(21, 98, 1020, "noise").Record(22, 1, 1020, Frame(0xC0000001, "", 2));
  log.Record(40, 5, 1030, "$GPTXT,a").Record(21, 3, 1030, "not of it").Record(22, 1, 1040, "nor");
  const std::string path = WriteLog(folder, log);
  const std::string tables = folder.Path("tables");
  const Result result = RunTool(ExportTo("csv", path, {"--per-client", "-o", tables}));
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "kestrav: export: " + path + ": 2 records left out: no place in a table\n");
  EXPECT_EQ(ReadFile(tables + "/IMU.csv"), "millis,\"a,b\"\n1,=2\nnoise\n");
  EXPECT_EQ(ReadFile(tables + "/CAN.csv"),
            "index,time_ms,time,data_id,can_id,extended,remote,error,length,data\r\n"
            "2,0,2001-09-09T01:46:40.000Z,1,0x123,0,0,0,2,0x0102\r\n"
            "7,20,2001-09-09T01:46:40.020Z,1,0x00000001,1,1,0,2,\r\n");
  EXPECT_EQ(ReadFile(tables + "/Door.csv"),
            "index,time_ms,time,data_id,size,text,payload_hex\r\n"
            "3,0,2001-09-09T01:46:40.000Z,1,10,\"open, left\",\r\n"
            "5,10,2001-09-09T01:46:40.010Z,1,4,shut,\r\n");
  EXPECT_EQ(ReadFile(tables + "/client-40.csv"),
            "index,time_ms,time,data_id,size,text,payload_hex\r\n"
            "8,30,2001-09-09T01:46:40.030Z,5,8,\"$GPTXT,a\",\r\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tables), {}), 4);
}

TEST(Export, TellsATableOfFramesFromOneOfLinesWhateverComesFirst) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"CAN", 21}, {"IMU", 22}}, 0).Record(21, 1, 0, Frame(0x123, ",,"));
  log.Record(21, 1, 0, Frame(0x124, "")).Record(22, 1, 0, "millis,a").Record(22, 98, 0, "noise");
  log.Record(22, 2, 0, "1,2");
  const std::string tables = folder.Path("tables");
  const Result result =
      RunTool(ExportTo("csv", WriteLog(folder, log), {"--per-client", "-o", tables}));
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(ReadFile(tables + "/CAN.csv"), ::testing::HasSubstr(",1,0x123,0,0,0,2,0x2c2c\r\n"));
  EXPECT_EQ(ReadFile(tables + "/IMU.csv"), "millis,a\nnoise\n1,2\n");
}

TEST(Export, KeepsTheHeaderLineOfATableThatBeginsLater) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"IMU", 21}, {"Door", 22}}, 0);
  log.Record(21, 1, 0, "millis,a").Record(22, 1, 0, "x,y").Record(21, 2, 10, "10,1");
  log.Record(21, 2, 2000, "2000,2").Record(22, 1, 2000, "z");
  const std::string tables = folder.Path("tables");
  const Result result = RunTool(
      ExportTo("csv", WriteLog(folder, log), {"--per-client", "-o", tables, "--from", "1"}));
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(ReadFile(tables + "/IMU.csv"), "millis,a\n2000,2\n");
  EXPECT_EQ(Lines(ReadFile(tables + "/Door.csv")).size(), 2U);
}

TEST(Export, GivesTablesNamesThatStayInTheirFolder) {
  const Folder folder;
  LogBuilder log;
  log.Dictionary({{"../x", 21}, {"a/b", 22}, {"Gps", 23}, {"GPS", 24}, {"___x", 25}}, 0);
  for (std::uint16_t id = 21; id <= 25; ++id) log.Record(id, 1, 0, "text");
  const std::string tables = folder.Path("tables");
  const Result result =
      RunTool(ExportTo("csv", WriteLog(folder, log), {"--per-client", "-o", tables}));
  EXPECT_EQ(result.code, 0) << result.err;
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(tables)) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, ::testing::UnorderedElementsAre("___x-21.csv", "a_b-22.csv", "Gps.csv",
                                                     "GPS-24.csv", "___x.csv"));
}

class ExportOfBadInput : public ::testing::TestWithParam<std::string> {
 protected:
  // Without -o binary formats have no place to go.
  Result ExportLog(const std::string& log) {
    return RunTool(ExportTo(GetParam(), log, {"-o", out_}));
  }

  const Folder folder_;
  const std::string out_ = folder_.Path("out");
};

TEST_P(ExportOfBadInput, HandsOnWhatIsWholeAndSaysInOneLineWhatWasLost) {
  LogBuilder log;
  log.Dictionary({{"GPS", 21}}, 0);
  const auto add_all = [&] {
    log.Record(21, 1, 10, "$GPTXT,a").Record(22, 1, 10, Frame(0x123, "\x01"));
  };
  for (int i = 0; i < 3; ++i) add_all();
  const std::string healthy = WriteLog(folder_, log);
  ASSERT_EQ(ExportLog(healthy).code, 0);
  const std::string whole = ReadFile(out_);
  const std::size_t at = log.RecordOffset(3);
  add_all();
  log.Flip(at + 20);
  const std::string path = WriteLog(folder_, log);
  const Result result = ExportLog(path);
  EXPECT_EQ(result.code, 3);
  const std::vector<std::string> said = Lines(result.err);
  ASSERT_FALSE(said.empty());
  EXPECT_EQ(said.back(),
            "kestrav: export: " + path + ": 28 bytes damaged in 1 place, 1 record missing");
  EXPECT_LE(said.size(), 2U);  // the other is of what the format has no form for
  if (GetParam() == "jsonl") {
    EXPECT_EQ(Lines(ReadFile(out_)).size(), 8U);
  }
  if (GetParam() == "candump") {
    EXPECT_EQ(ReadFile(out_), whole + Lines(whole)[0] + "\n");
  }
}

TEST_P(ExportOfBadInput, TakesALogThatIsStillWritten) {
  LogBuilder log = SmallLog();
  Bytes running = log.Build();
  std::fill(running.begin() + 16, running.begin() + 20, 0);
  const auto write = [&] {
    return folder_.Write("a.klog", {reinterpret_cast<const char*>(running.data()), running.size()});
  };
  EXPECT_EQ(ExportLog(write()).code, 0);
  running.resize(running.size() - 1);
  const std::string path = write();
  const Result cut = ExportLog(path);
  EXPECT_EQ(cut.code, 3);
  EXPECT_EQ(Lines(cut.err).back(),
            "kestrav: export: " + path + ": 24 bytes behind the last whole record");
}

TEST_P(ExportOfBadInput, RefusesWhatIsNoLogAndLeavesNothingBehind) {
  const Result missing = ExportLog(folder_.Path("none"));
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.err,
            "kestrav: export: " + folder_.Path("none") + ": No such file or directory\n");
  EXPECT_EQ(ExportLog(folder_.Write("text", std::string(500, 'x'))).code, 1);
  EXPECT_FALSE(Exists(out_));
}

TEST_P(ExportOfBadInput, LeavesNoHalfWrittenFile) {
  LogBuilder log;
  for (int i = 0; i < 300; ++i) {
    log.Record(21, 1, 0, "$GPTXT,a").Record(22, 1, 0, Frame(0x123, "\x01"));
  }
  const std::string path = WriteLog(folder_, log);
  folder_.Write("out", "before");
  const Result result = RunWithFileLimit(1, ExportTo(GetParam(), path, {"-o", out_}));
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "kestrav: export: " + out_ + ": File too large\n");
  EXPECT_EQ(ReadFile(out_), "before");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.Path("")), {}), 2);
}

INSTANTIATE_TEST_SUITE_P(Formats, ExportOfBadInput, ::testing::ValuesIn(kFormats),
                         [](const auto& instance) { return instance.param; });

TEST(Export, LeavesNoHalfWrittenTables) {
  const Folder folder;
  LogBuilder log;
  for (int i = 0; i < 300; ++i) log.Record(21, 1, 0, "text").Record(22, 1, 0, "more");
  const std::string path = WriteLog(folder, log);
  const Arguments arguments =
      ExportTo("csv", path, {"--per-client", "-o", folder.Path("new/tables")});
  EXPECT_EQ(RunWithFileLimit(1, arguments).code, 1);
  EXPECT_FALSE(Exists(folder.Path("new/tables")));
  EXPECT_EQ(RunTool(arguments).code, 0);
  EXPECT_EQ(Lines(ReadFile(folder.Path("new/tables/client-22.csv"))).size(), 301U);
}

TEST(Export, DoesNotOverwriteTheLog) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog());
  const Result result = RunTool(ExportTo("csv", path, {"-o", path}));
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, "kestrav: export: " + path + ": is a source and would be overwritten\n");
}

TEST(Export, WritesToStandardOutputWhenItIsTold) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog());
  for (const std::string& format : kFormats) {
    ASSERT_EQ(RunTool(ExportTo(format, path, {"-o", folder.Path("out")})).code, 0);
    const Result result = RunTool(ExportTo(format, path, {"-o", "-"}));
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(result.out == ReadFile(folder.Path("out"))) << format;
  }
}

TEST(Export, RefusesWrongUsage) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  for (const Arguments& arguments : {Arguments{"export", log},
                                     {"export", "--to", "csv"},
                                     ExportTo("xml", log),
                                     ExportTo("mcap", log),
                                     ExportTo("pcapng", log),
                                     ExportTo("csv", log, {"--per-client"}),
                                     ExportTo("csv", log, {"--per-client", "-o", "-"}),
                                     ExportTo("jsonl", log, {"--per-client", "-o", "x"}),
                                     ExportTo("csv", log, {"--interface", "can0"}),
                                     ExportTo("candump", log, {"--interface", "can 0"}),
                                     ExportTo("candump", log, {"--interface", "abcdefghijklmnop"}),
                                     ExportTo("csv", log, {"--from", "2", "--until", "1"})}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(arguments);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
}

}  // namespace
}  // namespace kestrav::test
