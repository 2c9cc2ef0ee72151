#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "records.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

std::string WriteBytes(const Folder& folder, const Bytes& bytes) {
  return folder.Write("bad.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// A record header whose checksums hold, for a payload that may not be there.
Bytes Header(std::uint32_t index, std::uint16_t client, std::uint32_t payload_size) {
  Bytes bytes(20);
  const auto put = [&](std::size_t at, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
  };
  bytes[0] = 0x4C;
  put(4, index, 4);
  put(8, client, 2);
  put(10, 1, 2);
  put(16, payload_size, 4);
  for (std::size_t i = 2; i < bytes.size(); ++i) bytes[1] ^= bytes[i];
  return bytes;
}

struct NoLog {
  const char* name;
  std::string content;
};

class BadInputThatIsNoLog : public ::testing::TestWithParam<NoLog> {};

TEST_P(BadInputThatIsNoLog, IsRefusedInOneLine) {
  const Folder folder;
  const std::string path = folder.Write("bad.klog", GetParam().content);
  for (const Arguments& arguments :
       {Arguments{"info", path}, {"info", "--scan", "--json", path}, {"cat", path}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "kestrav: " + arguments[0] + ": " + path + ": not a log\n");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadInputThatIsNoLog,
    ::testing::Values(NoLog{"Empty", ""}, NoLog{"Text", std::string(5000, 'x')},
                      NoLog{"OnlyTheMagic", "LOG:"}, NoLog{"Zeros", std::string(5000, '\0')},
                      NoLog{"AllMarkers", std::string(5000, 'L')},
                      NoLog{"HeaderCutShort", "LOG:" + std::string(123, '\0')}),
    [](const auto& instance) { return instance.param.name; });

TEST(BadInput, WhatCannotBeOpenedIsNamed) {
  const Folder folder;
  const std::string missing = folder.Path("missing.klog");
  for (const std::string command : {"info", "cat"}) {
    EXPECT_EQ(RunTool({command, missing}).err,
              "kestrav: " + command + ": " + missing + ": No such file or directory\n");
    EXPECT_EQ(RunTool({command, missing}).code, 1);
    EXPECT_EQ(RunTool({command, folder.Path("")}).err,
              "kestrav: " + command + ": " + folder.Path("") + ": Is a directory\n");
    EXPECT_EQ(RunTool({command, "/dev/null"}).err,
              "kestrav: " + command + ": /dev/null: not a regular file\n");
  }
}

TEST(BadInput, ALogCutAtAnyByteGivesTheRecordsThatAreWhole) {
  LogBuilder log(5, 5);
  log.Dictionary({{"GPS", 21}}, 0).Record(21, 1, 10, "LLLL").Record(21, 2, 20, "payload");
  const Bytes whole = log.Build();
  const Folder folder;
  // Within the stream header every cut is the same.
  for (std::size_t size = 126; size < whole.size(); ++size) {
    const std::string path =
        WriteBytes(folder, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    const Result cat = RunTool({"cat", "--format", "raw", path});
    const Result info = RunTool({"info", "--scan", "--json", path});
    if (size < 128) {
      EXPECT_EQ(cat.code, 1) << size;
      EXPECT_EQ(info.code, 1) << size;
      continue;
    }
    std::size_t records = 0;
    for (const std::size_t n : {1U, 2U}) records += size >= log.RecordOffset(n) ? 1 : 0;
    EXPECT_EQ(cat.code, 0) << size;
    EXPECT_EQ(Lines(cat.out).size(), records) << size;
    EXPECT_EQ(info.code, 3) << size;
    EXPECT_EQ(nlohmann::json::parse(info.out)["scan"]["records"], records) << size;
  }
}

TEST(BadInput, ALogWithABitFlippedAnywhereIsReadAlikeByCatAndScan) {
  LogBuilder log;
  log.Dictionary({{"GPS", 21}}, 0).Record(21, 1, 10, "abcd").Record(21, 2, 20, "payload");
  log.Record(21, 3, 30, "x");
  const Folder folder;
  for (std::size_t at = 128; at < log.Size(); at += 3) {
    LogBuilder damaged = log;
    damaged.Flip(at, 0x10);
    const std::string path = WriteBytes(folder, damaged.Build());
    const Result cat = RunTool({"cat", "--format", "jsonl", path});
    const Result info = RunTool({"info", "--scan", "--json", path});
    EXPECT_EQ(cat.code, at < log.RecordOffset(3) ? 0 : 3) << at;
    EXPECT_EQ(info.code, 3) << at;
    EXPECT_EQ(nlohmann::json::parse(info.out)["scan"]["records"], Lines(cat.out).size()) << at;
    EXPECT_EQ(Lines(cat.out).size(), 3U) << at;
  }
}

struct HostileRecord {
  const char* name;
  std::uint16_t client;
  std::uint32_t size;
  int cat_code;
};

class BadInputHostileRecord : public ::testing::TestWithParam<HostileRecord> {};

TEST_P(BadInputHostileRecord, EndsTheWalkWithAClearResult) {
  const HostileRecord& hostile = GetParam();
  LogBuilder log;
  log.Record(21, 1, 0, "good").Raw(Header(1, hostile.client, hostile.size)).Raw(Bytes(1000));
  const Folder folder;
  const std::string path = WriteBytes(folder, log.Build());
  const Result cat = RunTool({"cat", "--format", "raw", "--client", "21", path});
  EXPECT_EQ(cat.code, hostile.cat_code);
  EXPECT_EQ(cat.out, "good\n");
  EXPECT_EQ(RunTool({"info", "--scan", path}).code, 3);
}

INSTANTIATE_TEST_SUITE_P(Records, BadInputHostileRecord,
                         ::testing::Values(HostileRecord{"LargestSize", 21, 0xFFFFFFFF, 0},
                                           HostileRecord{"OneByteTooMany", 21, 1001, 0},
                                           HostileRecord{"NoPayload", 21, 0, 3},
                                           HostileRecord{"NoClient", 0xFFFF, 1000, 3}),
                         [](const auto& instance) { return instance.param.name; });

TEST(BadInput, AFirstRecordOfAnySizeIsNoProblemForInfo) {
  LogBuilder log;
  log.Raw(Header(0, 12, 0xFFFFFFFF));
  const Folder folder;
  EXPECT_EQ(RunTool({"info", WriteBytes(folder, log.Build())}).code, 3);
}

TEST(BadInput, ClientIdsBeyondTheRegistryAreShown) {
  LogBuilder log;
  log.Dictionary({{"GPS", 64}, {"Far", 65000}}, 0).Record(64, 1, 0, "a").Record(65000, 1, 0, "b");
  const Folder folder;
  const std::string path = WriteBytes(folder, log.Build());
  EXPECT_EQ(RunTool({"cat", "--format", "raw", "--client", "Far", path}).out, "b\n");
  EXPECT_EQ(RunTool({"cat", "--format", "raw", "--client", "64", path}).out, "a\n");
  EXPECT_EQ(RunTool({"info", "--scan", path}).code, 0);
}

TEST(BadInput, AHostileDictionaryNamesNobody) {
  using std::string_view_literals::operator""sv;
  for (const std::string_view payload : {"\0"sv, "\1\0\0\0"sv, "\1\0\0\0\0"sv, "\1\0\0\0GPS\0x\0"sv,
                                         "\1\0\0\0GPS\0"
                                         "99999999999\0"sv,
                                         "\xFF\xFF\xFF\xFF\0\0\0\0"sv}) {
    LogBuilder log;
    log.Record(12, 1200, 0, payload).Record(21, 1, 0, "a");
    const Folder folder;
    const std::string path = WriteBytes(folder, log.Build());
    const Result info = RunTool({"info", "--json", path});
    EXPECT_EQ(info.code, 3);
    EXPECT_EQ(nlohmann::json::parse(info.out)["dictionary"], nlohmann::json::object());
    EXPECT_EQ(RunTool({"cat", "--client", "GPS", path}).code, 1);
    const Result cat = RunTool({"cat", "--format", "jsonl", "--client", "21", path});
    EXPECT_EQ(cat.code, 0);
    EXPECT_EQ(nlohmann::json::parse(cat.out)["client"], nullptr);
  }
}

}  // namespace
}  // namespace kestrav::test
