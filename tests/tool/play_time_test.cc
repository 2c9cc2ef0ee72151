#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "play_log.h"
#include "run.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using WallTimes = std::vector<std::uint32_t>;

Objects Play(const std::string& log, const Arguments& more) {
  const Result result = RunTool(PlayArguments(log, more));
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  return ParseLines(result.out);
}

WallTimes Delivered(const Objects& lines) {
  WallTimes times;
  for (const nlohmann::json& line : lines) {
    if (IsDelivery(line)) times.push_back(line["wall_ms"]);
  }
  return times;
}

const std::vector<std::uint32_t> kLogTimes = {3, 500, 500, 1237, 3003, 12345};

struct Pace {
  const char* speed;
  WallTimes wall_ms;
};

class PlayVirtuallyAtASpeed : public ::testing::TestWithParam<Pace> {};

// Each wait is the distance of two records divided by the speed, without its fraction.
TEST_P(PlayVirtuallyAtASpeed, TellsExactWallTimes) {
  const Folder folder;
  const std::string log = WriteLog(folder, TimedLog(kLogTimes, 12345));
  const Objects lines = Play(log, {"--virtual", "--speed", GetParam().speed});
  EXPECT_EQ(Delivered(lines), GetParam().wall_ms);
  EXPECT_EQ(lines.back()["name"], "NotifyPlaybackStopped");
  EXPECT_EQ(lines.back()["wall_ms"], GetParam().wall_ms.back());
}

INSTANTIATE_TEST_SUITE_P(Speeds, PlayVirtuallyAtASpeed,
                         ::testing::Values(Pace{"1", {3, 500, 500, 1237, 3003, 12345}},
                                           Pace{"2", {1, 249, 249, 617, 1500, 6171}},
                                           Pace{"4", {0, 124, 124, 308, 749, 3084}},
                                           Pace{"10", {0, 49, 49, 122, 298, 1232}}),
                         [](const auto& instance) {
                           return "Speed" + std::string(instance.param.speed);
                         });

TEST(PlayVirtually, TellsTheTimeEverySecond) {
  const Folder folder;
  const std::string log = WriteLog(folder, TimedLog({0, 3500}, 3500));
  std::vector<std::pair<int, int>> told;
  for (const nlohmann::json& line : Play(log, {"--virtual"})) {
    if (!IsDelivery(line) && line["notification"] == 11) {
      told.emplace_back(line["wall_ms"], line["value"]);
    }
  }
  EXPECT_THAT(told, ElementsAre(std::pair(1000, 1), std::pair(2000, 2), std::pair(3000, 3)));
}

TEST(PlayVirtually, StartsAtAnOffsetWithTheRecordBehindItAtOnce) {
  const Folder folder;
  const std::string log = WriteLog(folder, TimedLog(kLogTimes, 12345));
  EXPECT_THAT(Delivered(Play(log, {"--virtual", "--from", "2"})), ElementsAre(0, 9342));
  EXPECT_THAT(Delivered(Play(log, {"--virtual", "--from", "2", "--speed", "10"})),
              ElementsAre(0, 934));
}

TEST(PlayVirtually, GivesTheRecordsBeforeTheOffsetToClientsThatAcceptThem) {
  const Folder folder;
  const std::string log = WriteLog(folder, TimedLog(kLogTimes, 12345));
  const Objects lines = Play(log, {"--virtual", "--from", "2", "--history"});
  EXPECT_THAT(Delivered(lines), ElementsAre(0, 0, 0, 0, 0, 9342));
  EXPECT_THAT(Delivered(Play(log, {"--virtual", "--history"})),
              ElementsAre(3, 500, 500, 1237, 3003, 12345));
}

TEST(PlayVirtually, ReplaysHalfAnHourAtOnce) {
  const Folder folder;
  const Objects lines = Play(WriteLog(folder, LongLog(1800)), {"--virtual"});
  const WallTimes times = Delivered(lines);
  ASSERT_EQ(times.size(), 1801U);
  for (std::uint32_t i = 0; i < times.size(); ++i) EXPECT_EQ(times[i], 1000 * i);
}

TEST(PlayVirtually, IsTheSameEveryTime) {
  const Folder folder;
  const std::string log = WriteLog(folder, LongLog(60));
  const Arguments arguments = PlayArguments(log, {"--virtual", "--speed", "10"});
  EXPECT_EQ(RunTool(arguments).out, RunTool(arguments).out);
}

// The same log in real time. The notification of the time comes from a timer of its own; the log
// leaves it room on both sides, so the order of all lines is certain.
TEST(PlayInRealTime, PrintsTheSameLinesAtTheTimesOfAVirtualRun) {
  constexpr std::int64_t kLatestMs = 300;  // after its time, on a busy machine
  const Folder folder;
  const std::string log = WriteLog(folder, TimedLog({0, 500, 500, 1990, 14000, 15000}, 15000));
  const Objects exact = Play(log, {"--speed", "10", "--virtual"});
  const Objects real = Play(log, {"--speed", "10"});
  ASSERT_EQ(real.size(), exact.size());
  for (std::size_t i = 0; i < exact.size(); ++i) {
    nlohmann::json expected = exact[i];
    nlohmann::json line = real[i];
    const std::int64_t late_ms =
        line["wall_ms"].get<std::int64_t>() - expected["wall_ms"].get<std::int64_t>();
    EXPECT_GE(late_ms, -1) << line;  // both clocks count whole milliseconds
    EXPECT_LE(late_ms, kLatestMs) << line;
    expected.erase("wall_ms");
    line.erase("wall_ms");
    EXPECT_EQ(line, expected);
  }
}

TEST(PlayUnpaced, DoesNotWait) {
  const Folder folder;
  const std::string log = WriteLog(folder, LongLog(1800));
  const Objects lines = Play(log, {"--unpaced"});
  EXPECT_EQ(Delivered(lines).size(), 1801U);
  EXPECT_EQ(lines.back()["name"], "NotifyPlaybackStopped");
}

}  // namespace
}  // namespace kestrav::test
