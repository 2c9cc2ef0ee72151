#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "records.h"
#include "run.h"
#include "support/log_builder.h"

// What is handed on is read by the programs that it is meant for.

namespace kestrav::test {
namespace {

using std::string_view_literals::operator""sv;

const std::string kData = KESTRAV_SOURCE_DIR "/data/";
const std::string kReceivers = KESTRAV_RECEIVERS "/";  // those that are no packages

// The lines that a receiver prints, which must not complain.
std::vector<std::string> Read(const Arguments& receiver, std::string_view input = "") {
  const Result result = RunProgram(receiver, input);
  EXPECT_EQ(result.code, 0) << receiver[0] << ": " << result.err;
  return Lines(result.out);
}

// The rows of a table, once Debian's Python and its pandas have agreed about them.
std::vector<std::string> ReadCsv(const std::string& table) {
  return Read({"/usr/bin/python3", KESTRAV_SOURCE_DIR "/tests/tool/receivers/csv_rows.py", table});
}

std::vector<std::string> ReadMcap(const Arguments& more) {
  Arguments reader = {"node", kReceivers + "mcap/read.mjs"};
  reader.insert(reader.end(), more.begin(), more.end());
  return Read(reader);
}

// What lies between blanks.
std::vector<std::string> Words(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

// What lies between the delimiters.
std::vector<std::string> Fields(const std::string& line, char delimiter) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, delimiter);) fields.push_back(field);
  return fields;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// Of a time as in 2020-02-07T02:14:17.250Z.
std::int64_t UnixMs(const std::string& utc) {
  std::tm time = {};
  EXPECT_EQ(strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%S", &time), utc.c_str() + 19) << utc;
  return std::int64_t{timegm(&time)} * 1000 + std::stoll(utc.substr(20, 3));
}

std::string WriteLog(const Folder& folder, const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write("a.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// The recorded drives in one log, and what becomes of it.
class HandedOn : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new Folder;
    const Result result = RunTool(
        {"import", "-o", folder_->Path("drive.klog"), "nmea:" + kData + "gnss-mountainview.nmea",
         "candump:" + kData + "can-falcon.log", "csv:" + kData + "imu-dresden.csv"});
    ASSERT_EQ(result.code, 0) << result.err;
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  // Exports the drive, and returns the file.
  static std::string Export(const std::string& format, const Arguments& more = {}) {
    const std::string out = folder_->Path("out." + format);
    Arguments arguments = {"export", folder_->Path("drive.klog"), "--to", format, "-o", out};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 0) << result.err;
    return out;
  }

  // The records as JSON lines, which `cat` prints too.
  static std::vector<std::string> Records(const Arguments& more = {}) {
    return Lines(ReadFile(Export("jsonl", more)));
  }

  static inline Folder* folder_ = nullptr;
};

struct Fix {
  std::string time;
  double latitude = 0;

  friend bool operator==(const Fix& a, const Fix& b) {
    return a.time == b.time && std::abs(a.latitude - b.latitude) < 1e-7;
  }
};

// What the sentences of type RMC say.
std::vector<Fix> FixesOf(const std::string& sentences) {
  std::vector<Fix> fixes;
  for (const std::string& line : Lines(sentences)) {
    const std::vector<std::string> fields = Fields(line, ',');
    if (fields[0] != "$GNRMC") continue;
    const std::string& at = fields[1];  // hhmmss.ss
    fixes.push_back(
        {"2020-02-07T" + at.substr(0, 2) + ":" + at.substr(2, 2) + ":" + at.substr(4, 2) + ".000Z",
         std::stod(fields[3].substr(0, 2)) + std::stod(fields[3].substr(2)) / 60});
  }
  return fixes;
}

TEST_F(HandedOn, NmeaIsTheSourceAndGpsdReadsEveryFix) {
  const std::string out = Export("nmea", {"--client", "GPS"});
  const std::string source = ReadFile(kData + "gnss-mountainview.nmea");
  EXPECT_TRUE(ReadFile(out) == source);
  std::vector<Fix> read;
  for (const std::string& line : Read({kReceivers + "gpsdecode"}, ReadFile(out))) {
    const auto report = nlohmann::json::parse(line);
    if (report["class"] == "TPV") read.push_back({report["time"], report["lat"]});
  }
  std::vector<Fix> expected = FixesOf(source);
  expected.erase(expected.begin());  // gpsd first learns which sentence ends a report
  std::printf("[figure] gpsdecode: %zu of %zu fixes\n", read.size(), expected.size());
  EXPECT_TRUE(read == expected);
}

TEST_F(HandedOn, CandumpIsTheSourceInMillisecondsAndCanUtilsReadEveryFrame) {
  const Folder folder;
  const std::string log = folder.Path("can.klog");
  ASSERT_EQ(RunTool({"import", "-o", log, "candump:" + kData + "can-falcon.log"}).code, 0);
  const std::string out = folder.Path("can.log");
  ASSERT_EQ(RunTool({"export", log, "--to", "candump", "-o", out}).code, 0);
  std::vector<std::string> expected = Lines(ReadFile(kData + "can-falcon.log"));
  std::vector<std::string> frames;
  for (std::string& line : expected) {
    line.replace(15, 3, "000");  // the microseconds
    const std::string frame = line.substr(line.rfind(' ') + 1);
    std::string spaced = frame.substr(0, frame.find('#'));
    spaced.erase(0, spaced.find_first_not_of('0'));
    const std::string data = frame.substr(frame.find('#') + 1);
    spaced += " Rx d " + std::to_string(data.size() / 2);
    for (std::size_t i = 0; i < data.size(); i += 2) spaced += " " + data.substr(i, 2);
    frames.push_back(spaced);
  }
  EXPECT_TRUE(ReadFile(out) == Joined(expected));

  Read({"log2asc", "-I", out, "-O", folder.Path("can.asc"), "can0"});
  std::vector<std::string> read;
  for (const std::string& line : Lines(ReadFile(folder.Path("can.asc")))) {
    const std::vector<std::string> words = Words(line);  // time, channel, id, ...
    if (words.size() < 6 || words[4] != "d") continue;
    std::string frame = words[2];
    for (std::size_t i = 3; i < words.size(); ++i) frame += " " + words[i];
    read.push_back(frame);
  }
  std::printf("[figure] log2asc: %zu of %zu frames\n", read.size(), frames.size());
  EXPECT_TRUE(read == frames);
}

TEST(HandOn, CandumpOfEveryKindOfFrameIsTheSourceAndCanUtilsReadIt) {
  const Folder folder;
  const std::string source =
      "(1611136682.761000) can0 123#\n"
      "(1611136682.762000) can0 7FF#0102030405060708\n"
      "(1611136682.763000) can0 00000123#AB\n"
      "(1611136682.764000) can0 123#R\n"
      "(1611136682.765000) can0 1FFFFFFF#R5\n"
      "(1611136682.766000) can0 20000004#0001000000000000\n"
      "(1611136682.767891) can1 123##0\n"
      "(1611136682.768000) can0 123##3" +
      std::string(128, 'a') +
      "\n"
      "(1611136683.000000) can0 12345678##1112233\n"
      "(1611136683.001000) can0 123#11 R\n"
      "(1611136683.002000) can0 123##111 T\n"
      "(1611136683.003000) can0 456#11\n";
  const std::string broken =
      "(1611136683.003000) can0 123##\n"
      "(1611136683.003000) can0 123##11\n"
      "(1611136683.003000) can0 123##1GG\n"
      "(1611136683.003000) can0 123##1" +
      std::string(130, '0') +
      "\n"
      "(1611136683.003000) can0 800##111\n"
      "(1611136683.003000) ca\x1b 123##111\n"
      "(1611136683.003000) can0 123#1 R\n";
  const std::string log = folder.Path("can.klog");
  ASSERT_EQ(RunTool({"import", "-o", log, "candump:-"}, source + broken).code, 0);
  const std::string out = folder.Path("can.log");
  const Result result = RunTool({"export", log, "--to", "candump", "-o", out});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "kestrav: export: " + log + ": 7 records left out: no CAN frames\n");
  EXPECT_EQ(ReadFile(out), source);
  Read({"log2asc", "-I", out, "-O", folder.Path("can.asc"), "can0", "can1"});
  std::size_t frames = 0;
  for (const std::string& line : Lines(ReadFile(folder.Path("can.asc")))) {
    frames += line.find(" Rx ") != std::string::npos || line.find(" Tx ") != std::string::npos ||
                      line.find("ErrorFrame") != std::string::npos
                  ? 1
                  : 0;
  }
  EXPECT_EQ(frames, Lines(source).size());

  const Result named = RunTool({"export", log, "--to", "candump", "--interface", "vcan7"});
  EXPECT_EQ(Lines(named.out)[6], "(1611136682.767891) vcan7 123##0");
}

TEST_F(HandedOn, PcapngIsDissectedFrameByFrameWithTheRightTimes) {
  const std::string out = Export("pcapng", {"--client", "CAN"});
  std::vector<std::string> expected;
  for (const std::string& line : Lines(ReadFile(Export("candump", {"--client", "CAN"})))) {
    const std::vector<std::string> words = Words(line);
    std::string id = words[2].substr(0, words[2].find('#'));
    const std::string data = words[2].substr(words[2].find('#') + 1);
    expected.push_back(words[0].substr(1, 17) + "000 " +
                       std::to_string(std::stoul(id, nullptr, 16)) + " " +
                       std::to_string(data.size() / 2) + " " + data + " can0");
  }
  std::vector<std::string> read;
  for (std::string line :
       Read({"tshark", "-r", out, "-T", "fields", "-E", "separator= ", "-e", "frame.time_epoch",
             "-e", "can.id", "-e", "can.len", "-e", "data.data", "-e", "frame.interface_name"})) {
    const auto interface = static_cast<std::ptrdiff_t>(line.rfind(' '));
    std::transform(line.begin(), line.begin() + interface, line.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    read.push_back(line);
  }
  std::printf("[figure] tshark: %zu of %zu frames\n", read.size(), expected.size());
  EXPECT_TRUE(read == expected);
}

// How the receiver of MCAP files prints the records.
std::vector<std::string> Messages(const std::vector<std::string>& records) {
  std::map<std::string, std::uint64_t> sequences;
  std::vector<std::string> messages;
  for (const std::string& record : records) {
    const std::string topic = "/" + Value(record, "client") + "/" + Value(record, "data_id");
    const std::string ns = std::to_string(UnixMs(Value(record, "time"))) + "000000";
    messages.push_back(Value(record, "index") + "\t" + topic + "\t" + ns + "\t" + ns + "\t" +
                       std::to_string(sequences[topic]++) + "\t" + Value(record, "payload"));
  }
  return messages;
}

TEST_F(HandedOn, McapIsReadMessageByMessageAndSeeksByItsIndex) {
  const std::string out = Export("mcap");
  const std::vector<std::string> records = Records();
  const std::vector<std::string> messages = Messages(records);
  const std::vector<std::string> read = ReadMcap({"stream", out});
  std::printf("[figure] @mcap/core: %zu of %zu messages\n", read.size(), messages.size());
  EXPECT_TRUE(read == messages);

  const auto summary = nlohmann::json::parse(ReadMcap({"summary", out}).at(0));
  EXPECT_EQ(summary["messages"], records.size());
  EXPECT_EQ(summary["first"], Fields(messages.front(), '\t')[2]);
  EXPECT_EQ(summary["last"], Fields(messages.back(), '\t')[2]);
  EXPECT_EQ(summary["chunks"], summary["chunk_indexes"]);
  EXPECT_GT(summary["chunks"], 5);
  const auto frames = summary["channels"]["/CAN/1"];
  EXPECT_EQ(frames["messages"], 30606);
  EXPECT_EQ(frames["schema"], "jsonschema");
  EXPECT_EQ(frames["metadata"]["client"], "CAN");
  EXPECT_EQ(frames["metadata"]["data_id"], "1");

  // Ten seconds in the middle of one channel.
  const std::int64_t from = std::stoll(Fields(messages.front(), '\t')[2]) + 25'000'000'000;
  const std::int64_t to = from + 10'000'000'000;
  std::vector<std::string> wanted;
  for (const std::string& message : messages) {
    const std::vector<std::string> fields = Fields(message, '\t');
    const std::int64_t at = std::stoll(fields[2]);
    if (fields[1] == "/GPS/1" && at >= from && at <= to) wanted.push_back(message);
  }
  EXPECT_GT(wanted.size(), 9U);
  EXPECT_EQ(ReadMcap({"seek", out, std::to_string(from), std::to_string(to), "/GPS/1"}), wanted);
}

TEST(HandOn, McapTakesRecordsOutOfOrderAndAnyText) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(1000).Dictionary({{"GPS", 21}, {"Q\"\\x", 22}}, 1000);
  log.Record(21, 1, 1500, "late")
      .Record(21, 1, 1100, "a\"b\\c\r\n\t")
      .Record(22, 1, 1200, "caf\xC3\xA9");
  log.Record(22, 2, 1300, "\xFF\x00"sv)
      .Record(21, 1, 1300, "</script>")
      .Record(40, 1, 1100, "\x1b[");
  const std::string path = WriteLog(folder, log);
  const std::string out = folder.Path("out.mcap");
  ASSERT_EQ(RunTool({"export", path, "--to", "mcap", "-o", out}).code, 0);
  const std::vector<std::string> read = ReadMcap({"stream", out});
  ASSERT_EQ(read.size(), 7U);
  const auto message = [](int index, const std::string& topic, int ms, int sequence,
                          const std::string& payload) {
    const std::string at = std::to_string(1'000'000'000'000 + ms) + "000000";
    return std::to_string(index) + "\t" + topic + "\t" + at + "\t" + at + "\t" +
           std::to_string(sequence) + "\t" + payload;
  };
  EXPECT_EQ(read[1], message(1, "/GPS/1", 500, 0, "6c617465"));
  EXPECT_EQ(read[2], message(2, "/GPS/1", 100, 1, "6122625c630d0a09"));
  EXPECT_EQ(read[3], message(3, "/Q\"\\x/1", 200, 0, "636166c3a9"));
  EXPECT_EQ(read[4], message(4, "/Q\"\\x/2", 300, 0, "ff00"));
  EXPECT_EQ(read[6], message(6, "/40/1", 100, 0, "1b5b"));
  EXPECT_EQ(ReadMcap({"seek", out, "1000000000100000000", "1000000000400000000", "/GPS/1"}),
            (std::vector<std::string>{read[2], read[5]}));
}

TEST(HandOn, McapOfNoRecordsIsWhole) {
  const Folder folder;
  const std::string out = folder.Path("out.mcap");
  ASSERT_EQ(RunTool({"export", WriteLog(folder, LogBuilder()), "--to", "mcap", "-o", out}).code, 0);
  EXPECT_TRUE(ReadMcap({"stream", out}).empty());
  EXPECT_EQ(nlohmann::json::parse(ReadMcap({"summary", out}).at(0))["messages"], 0);
}

TEST(HandOn, PcapngTellsExtendedRemoteAndErrorFramesApart) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(1000).Dictionary({{"Powertrain", 22}, {"Body", 23}}, 1000);
  log.Record(22, 1, 1001, Frame(0x123, "\xAB")).Record(23, 1, 2002, Frame(0x40000456, "", 3));
  log.Record(22, 1, 2003, Frame(0x9ABCDEF0, "\x01\x02\x03\x04\x05\x06\x07\x08"));
  log.Record(22, 1, 2004, Frame(0x20000004, "\0\1\0\0\0\0\0\0"sv));
  const std::string out = folder.Path("out.pcapng");
  ASSERT_EQ(RunTool({"export", WriteLog(folder, log), "--to", "pcapng", "-o", out}).code, 0);
  EXPECT_EQ(Read({"tshark",
                  "-r",
                  out,
                  "-T",
                  "fields",
                  "-E",
                  "separator=,",
                  "-e",
                  "frame.time_epoch",
                  "-e",
                  "frame.interface_name",
                  "-e",
                  "frame.interface_description",
                  "-e",
                  "can.id",
                  "-e",
                  "can.flags.xtd",
                  "-e",
                  "can.flags.rtr",
                  "-e",
                  "can.flags.err",
                  "-e",
                  "can.len"}),
            (std::vector<std::string>{"1000000000.001000000,can0,Powertrain,291,0,0,0,1",
                                      "1000000001.002000000,can1,Body,1110,0,1,0,3",
                                      "1000000001.003000000,can0,Powertrain,448585456,1,0,0,8",
                                      "1000000001.004000000,can0,Powertrain,,,,1,8"}));
}

// How the receiver of tables prints the records.
std::vector<std::string> Rows(const std::vector<std::string>& records) {
  std::vector<std::string> rows;
  const std::int64_t start_ms = UnixMs(Value(records.front(), "time"));
  for (const std::string& record : records) {
    const std::string time = Value(record, "time");
    rows.push_back(Value(record, "index") + " " + std::to_string(UnixMs(time) - start_ms) + " " +
                   time + " " + Value(record, "data_id") + " " + Value(record, "payload"));
  }
  return rows;
}

TEST_F(HandedOn, CsvIsReadAsOneTableByACsvReaderAndAsADataFrame) {
  const std::vector<std::string> read = ReadCsv(Export("csv"));
  std::printf("[figure] csv and pandas: %zu rows\n", read.size());
  EXPECT_TRUE(read == Rows(Records()));
}

TEST_F(HandedOn, TablesOfClientsAreTheSourceFramesAndSentences) {
  const std::string folder = folder_->Path("tables/");
  const Result result =
      RunTool({"export", folder_->Path("drive.klog"), "--to", "csv", "--per-client", "-o", folder});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_TRUE(ReadFile(folder + "IMU.csv") == ReadFile(kData + "imu-dresden.csv"));

  std::string sentences;
  for (const std::string& row : ReadCsv(folder + "GPS.csv")) {
    sentences += FromHex(row.substr(row.rfind(' ') + 1)) + "\n";
  }
  EXPECT_TRUE(sentences == ReadFile(kData + "gnss-mountainview.nmea"));

  std::string frames;
  for (const std::string& row : ReadCsv(folder + "CAN.csv")) {
    frames += row.substr(row.rfind(' ') + 3) + "\n";  // behind 0x
  }
  std::transform(frames.begin(), frames.end(), frames.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  std::string source;
  for (const std::string& line : Lines(ReadFile(kData + "can-falcon.log"))) {
    source += line.substr(line.rfind(' ') + 1) + "\n";
  }
  EXPECT_TRUE(frames == source);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 3);
}

TEST(HandOn, CsvHoldsAnyPayloadAndNoFormula) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(1000).Dictionary({{"=GPS", 21}, {"a,b\"c", 22}, {"\xFF\x1b", 23}}, 1000);
  std::uint16_t id = 21;
  for (const std::string_view payload : {"plain"sv,
                                         "a,b"sv,
                                         "\"quoted\""sv,
                                         "two\r\nlines"sv,
                                         "cr\ralone"sv,
                                         "nul\0"sv,
                                         "\xFF"sv,
                                         "caf\xC3\xA9"sv,
                                         "\xF0\x9F\x9A\x97"sv,
                                         "\xC0\x80"sv,
                                         "\xED\xA0\x80"sv,
                                         "=1+1"sv,
                                         "+1"sv,
                                         "-12.5e3"sv,
                                         "-1-1"sv,
                                         "@SUM(A1)"sv,
                                         "\t=1"sv,
                                         "\r=1"sv,
                                         "\n=1"sv,
                                         " = 1"sv,
                                         " "sv,
                                         "NA"sv,
                                         "007"sv,
                                         "0x41"sv,
                                         "</script>"sv,
                                         "\x1b[2J"sv,
                                         "\xC2\x9B"sv,
                                         "'"sv,
                                         "a\"\n\"b"sv,
                                         "\""sv}) {
    log.Record(id, 1, 1000, payload);
    id = id == 24 ? 21 : static_cast<std::uint16_t>(id + 1);
  }
  const std::string path = WriteLog(folder, log);
  const std::string out = folder.Path("out.csv");
  ASSERT_EQ(RunTool({"export", path, "--to", "csv", "-o", out}).code, 0);
  EXPECT_EQ(ReadCsv(out), Rows(Lines(RunTool({"export", path, "--to", "jsonl"}).out)));
  const std::string table = ReadFile(out);
  EXPECT_THAT(table, ::testing::HasSubstr(",\\x3dGPS,21,"));
  EXPECT_THAT(table, ::testing::HasSubstr(",\"a,b\"\"c\",22,"));
  EXPECT_THAT(table, ::testing::HasSubstr(",\\xff\\x1b,23,"));
}

}  // namespace
}  // namespace kestrav::test
