#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "long_log.h"
#include "play_log.h"
#include "pty.h"
#include "run.h"

namespace kestrav::test {
namespace {

struct PlayCase {
  const char* name;
  Bytes (*make)();
};

Bytes Plain() { return ManyRecords(0).Build(); }
Bytes Scrambled() { return ManyRecords(0x6B).Build(); }

// A client that is not heard before some time, and one that is heard only once. Neither is due when
// the time is told, a whole number of seconds after the start: which goes first would be open.
Bytes LateClients() {
  LogBuilder log(0x11, 0x22);
  log.StartClock(kLongLogStart).Duration(360000);
  log.Dictionary({{"GPS", 21}, {"CAN", 3}, {"Late", 22}, {"Once", 23}}, kLongLogStart);
  AppendLong(log, 9000, kLongLogStart);
  log.Record(23, 1, kLongLogStart + 180010, "only here");
  AppendLong(log, 6000, kLongLogStart + 180020);
  log.Record(22, 1, kLongLogStart + 300001, "first of its kind");
  AppendLong(log, 3000, kLongLogStart + 300001);
  return log.Build();
}

// With a stream length in its header all the same, as playback wants it.
Bytes Damaged() {
  const LogBuilder log = ManyRecords(0);
  Bytes bytes = log.Build();
  bytes[log.RecordOffset(9000) + 50] ^= 1;
  bytes[log.RecordOffset(15000) + 9] ^= 1;
  return bytes;
}

// Time goes back within the records that are passed over: those that do show in the playback.
Bytes TimeGoesBack() {
  LogBuilder log(0x5A, 0x5A);
  log.StartClock(kLongLogStart).Duration(400000);
  log.Dictionary({{"GPS", 21}, {"CAN", 3}}, kLongLogStart);
  AppendLong(log, 6000, kLongLogStart);
  log.Record(21, 1, kLongLogStart + 1000, "back");
  AppendLong(log, 12000, kLongLogStart + 120000);
  return log.Build();
}

class PlayWithAnIndex : public testing::TestWithParam<PlayCase> {};

TEST_P(PlayWithAnIndex, TellsTheSameFromAnyTime) {
  const Folder folder;
  const std::string log = WriteLog(folder, GetParam().make());
  const std::vector<Arguments> ways = {
      {"--virtual", "--from", "358", "--speed", "4"},
      {"--virtual", "--from", "357", "--client", "GPS"},
      {"--virtual", "--from", "359", "--client", "CAN", "--client", "GPS"},
      {"--virtual", "--from", "359", "--history", "--client", "GPS"},
      {"--virtual", "--from", "361"},
  };
  std::vector<Result> before;
  for (const Arguments& way : ways) before.push_back(RunTool(PlayArguments(log, way)));
  RunTool({"index", log});
  ASSERT_TRUE(Exists(log + ".kidx"));
  for (std::size_t i = 0; i < ways.size(); ++i) {
    const Result after = RunTool(PlayArguments(log, ways[i]));
    EXPECT_TRUE(after.out == before[i].out) << testing::PrintToString(ways[i]);
    EXPECT_EQ(after.err, before[i].err);
    EXPECT_EQ(after.code, before[i].code);
  }
}

INSTANTIATE_TEST_SUITE_P(Logs, PlayWithAnIndex,
                         testing::Values(PlayCase{"Plain", Plain}, PlayCase{"Scrambled", Scrambled},
                                         PlayCase{"LateClients", LateClients},
                                         PlayCase{"Damaged", Damaged},
                                         PlayCase{"TimeGoesBack", TimeGoesBack}),
                         [](const auto& instance) { return instance.param.name; });

TEST(PlayWithAnIndexOfClients, TellsTheSameForThoseThatAreHeardLateOrOnce) {
  const Folder folder;
  const std::string log = WriteLog(folder, LateClients());
  for (const char* const client : {"Late", "Once"}) {
    for (const char* const from : {"100", "179", "180", "181", "300", "301"}) {
      const Arguments arguments =
          PlayArguments(log, {"--virtual", "--from", from, "--client", client});
      std::filesystem::remove(log + ".kidx");
      const Result before = RunTool(arguments);
      RunTool({"index", log});
      EXPECT_EQ(RunTool(arguments).out, before.out) << client << " from " << from;
    }
  }
}

LogBuilder WithARecordAt(std::uint32_t time_ms, std::size_t& offset) {
  LogBuilder log = ManyRecords(0x31, 6000);
  offset = log.Size();
  log.Duration(360000).Record(21, 1, time_ms, "now or then");
  AppendLong(log, 12000, kLongLogStart + 120000);
  return log;
}

// As with cat: a record that would end the playback is put there behind the index's back.
TEST(PlayWithAnIndexOfAChangedLog, DoesNotReadWhatLiesBefore) {
  const Folder folder;
  std::size_t at = 0;
  const Bytes changed = WithARecordAt(kLongLogStart, at).Build();
  const std::string log = WriteLog(folder, WithARecordAt(kLongLogStart + 120000, at));
  const Arguments arguments = PlayArguments(log, {"--virtual", "--from", "358"});
  const Result before = RunTool(arguments);
  RunTool({"index", log});
  const auto record = changed.begin() + static_cast<std::ptrdiff_t>(at);
  Overwrite(log, at, std::string(record, record + 31));
  EXPECT_EQ(RunTool(arguments).out, before.out);
  std::filesystem::remove(log + ".kidx");
  EXPECT_NE(RunTool(arguments).out, before.out);
}

// A rewind goes to where nothing was read yet.
TEST(PlayWithAnIndexToAPerson, GoesBackBeforeWhereItBegan) {
  const Folder folder;
  const std::string log = WriteLog(folder, Scrambled());
  RunTool({"index", log});
  Pty pty;
  const int out = open(folder.Path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const Process tool(PlayArguments(log, {"--from", "340", "--rewind", "330"}),
                     {.in = pty.Tool(), .out = out, .err = pty.Tool()});
  EXPECT_TRUE(pty.ShowsNext("playing  1x")) << pty.Screen();
  pty.Press('r');
  EXPECT_TRUE(pty.ShowsNext(" 0:1")) << pty.Screen();
  pty.Press('q');
  EXPECT_EQ(tool.Wait(), 0);
  close(out);
  std::vector<std::uint32_t> times_ms;
  bool rewound = false;
  for (const nlohmann::json& line : ParseLines(ReadFile(folder.Path("out")))) {
    if (!IsDelivery(line)) rewound = rewound || line["name"] == "NotifyRewindFinished";
    if (IsDelivery(line) && rewound) times_ms.push_back(line["time_ms"]);
  }
  ASSERT_FALSE(times_ms.empty());
  EXPECT_GE(times_ms.front(), kLongLogStart + 9000);
  EXPECT_LE(times_ms.front(), kLongLogStart + 20000);
}

}  // namespace
}  // namespace kestrav::test
