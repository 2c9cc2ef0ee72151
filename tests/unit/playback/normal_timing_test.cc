#include <algorithm>

#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(NormalTiming, DeliversARecordWhenItsTimeHasPassed) {
  NormalRig rig;
  rig.Play(Log({{300, "a"}, {1000, "b"}, {1001, "c"}}));
  EXPECT_THAT(rig.Run(299), IsEmpty());
  EXPECT_THAT(rig.Run(1), ElementsAre("300 a"));
  EXPECT_THAT(rig.Run(699), IsEmpty());
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 b", "1001 speed 0", "1001 c", "1001 end"));
}

TEST(NormalTiming, DeliversAFirstRecordAtTheLogsStartAtOnce) {
  NormalRig rig;
  rig.Insert(Log({{0, "a"}, {1000, "b"}}));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 1", "0 started", "0 speed 1", "0 a"));
}

TEST(NormalTiming, DeliversEqualTimeStampsInOneBurst) {
  NormalRig rig;
  rig.Play(Log({{700, "a"}, {700, "b", kRecordedCan}, {700, "c"}, {700, "d", kRecordedCan}}));
  EXPECT_THAT(rig.Run(699), IsEmpty());
  EXPECT_THAT(rig.Run(1),
              ElementsAre("700 a", "700 b", "700 c", "700 speed 0", "700 d", "700 end"));
}

TEST(NormalTiming, WaitsNoTimeForARecordOfAClientThatIsNotPlayed) {
  NormalRig rig;
  rig.Play(Log({{100, "x", kRecordedNobody}, {400, "a"}, {500, "y", kRecordedNobody}, {900, "b"}}));
  EXPECT_THAT(rig.Run(900), ElementsAre("400 a", "900 speed 0", "900 b", "900 end"));
}

class NormalSpeed : public testing::TestWithParam<int> {};

TEST_P(NormalSpeed, DividesEachWaitAndDropsTheRest) {
  const std::vector<std::uint32_t> times = {7, 1000, 1999, 2000, 2000, 2003, 4321, 59999};
  const auto speed = static_cast<std::uint32_t>(GetParam());
  std::vector<At> records;
  Entries expected;
  std::uint32_t at = 0;
  std::uint32_t before = 0;
  for (const std::uint32_t time : times) {
    at += (time - before) / speed;
    before = time;
    const std::string name = "r" + std::to_string(records.size());
    records.push_back({time, name});
    expected.push_back(std::to_string(at) + " " + name);
  }
  const std::string end = std::to_string(at);
  expected.insert(expected.end() - 1, end + " speed 0");
  expected.push_back(end + " end");

  NormalRig rig;
  rig.Insert(Log(records));
  ASSERT_TRUE(rig.SetStartSpeed(GetParam()));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  Entries seen = rig.Run(60000);
  seen.erase(seen.begin(), std::find(seen.begin(), seen.end(), "0 started") + 2);
  EXPECT_EQ(seen, expected);
}

INSTANTIATE_TEST_SUITE_P(Factors, NormalSpeed, testing::Values(1, 2, 3, 4, 5, 7, 10));

TEST(NormalSpeedChange, LeavesTheScheduledWaitAndCountsFromTheNextRecordOn) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}, {2000, "b"}, {3000, "c"}}));
  EXPECT_THAT(rig.Run(400), IsEmpty());
  EXPECT_TRUE(rig.playback.FastForward());
  EXPECT_THAT(rig.Settled(), ElementsAre("400 speed 2"));
  EXPECT_THAT(rig.Run(1100), ElementsAre("1000 a", "1500 b"));
  EXPECT_TRUE(rig.playback.FastForward());
  EXPECT_THAT(rig.Run(600), ElementsAre("1500 speed 4", "2000 speed 0", "2000 c", "2000 end"));
}

TEST(NormalSpeedChange, StepsThroughOneTwoFourTenAndBackToOne) {
  NormalRig rig;
  rig.Play(Log({{50000, "a"}}));
  for (const int speed : {2, 4, 10, 1, 2}) {
    EXPECT_TRUE(rig.playback.FastForward());
    EXPECT_EQ(rig.Speed(), speed);
    EXPECT_EQ(rig.Status(), PlaybackPlaying);
    EXPECT_THAT(rig.Settled(), ElementsAre("0 speed " + std::to_string(speed)));
  }
}

class NormalOddSpeed : public testing::TestWithParam<int> {};

TEST_P(NormalOddSpeed, IsNotLeftByFastForward) {
  NormalRig rig;
  rig.Insert(Log({{50000, "a"}, {51000, "b"}}));
  ASSERT_TRUE(rig.SetStartSpeed(GetParam()));
  ASSERT_TRUE(rig.Start());
  rig.Settled();
  ASSERT_EQ(rig.Status(), PlaybackPlaying);
  EXPECT_FALSE(rig.playback.FastForward());
  EXPECT_EQ(rig.Speed(), GetParam());
  EXPECT_THAT(rig.Settled(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Factors, NormalOddSpeed, testing::Values(3, 5, 6, 7, 8, 9));

struct StartSpeedCase {
  int speed;
  bool accepted;
};

class NormalStartSpeed : public testing::TestWithParam<StartSpeedCase> {};

TEST_P(NormalStartSpeed, IsAnyNumberBelowEleven) {
  NormalRig rig;
  rig.Insert(Log({{5, "a"}, {10, "b"}}));
  EXPECT_EQ(rig.SetStartSpeed(GetParam().speed), GetParam().accepted);
  EXPECT_EQ(rig.Speed(), 0);
  ASSERT_TRUE(rig.Start());
  const int speed = GetParam().accepted ? GetParam().speed : 1;
  EXPECT_EQ(rig.Run(0).front(), "0 speed " + std::to_string(speed));
}

INSTANTIATE_TEST_SUITE_P(Numbers, NormalStartSpeed,
                         testing::Values(StartSpeedCase{-1, true}, StartSpeedCase{0, true},
                                         StartSpeedCase{1, true}, StartSpeedCase{9, true},
                                         StartSpeedCase{10, true}, StartSpeedCase{11, false},
                                         StartSpeedCase{255, false},
                                         StartSpeedCase{0x7FFFFFFF, false}));

TEST(NormalSpeedZero, DeliversEverythingAtOnce) {
  NormalRig rig;
  rig.Insert(Log({{500, "a"}, {9000, "b"}, {20000, "c"}}));
  ASSERT_TRUE(rig.SetStartSpeed(0));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 0", "0 started", "0 speed 0", "0 a", "0 b",
                                         "0 speed 0", "0 c", "0 end"));
}

TEST(NormalTiming, HoldsOverTheWrapOfTheClock) {
  NormalRig rig(0xFFFFFFFF - 700);
  rig.Play(Log({{600, "a"}, {1600, "b"}, {2600, "c"}}));
  EXPECT_THAT(rig.Run(3000), ElementsAre("600 a", "1600 b", "2600 speed 0", "2600 c", "2600 end"));
}

// A wrapped time stamp lies before the start of the log, as a record to be skipped does.
TEST(NormalTiming, EndsWhereTheTimeStampsWrap) {
  NormalRig rig;
  rig.Insert(Log({{0, "a"}, {600, "b"}, {1600, "c"}}, 60000, 0xFFFFFFFF - 700));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_THAT(rig.Run(2000), ElementsAre("0 speed 1", "0 started", "0 speed 1", "0 a", "600 b",
                                         "1600 speed 0", "1600 stopped"));
}

TEST(NormalTiming, ServesATimeOutBeforeACallOfTheSameMillisecond) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}, {2000, "b"}, {3000, "c"}}));
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 a"));
  EXPECT_TRUE(rig.playback.PausePlayback());
  EXPECT_THAT(rig.Run(500), ElementsAre("1000 speed 0", "1000 paused"));
  EXPECT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Run(999), ElementsAre("1500 resumed", "1500 speed 1", "1500 b"));
  EXPECT_THAT(rig.Run(1), ElementsAre("2500 speed 0", "2500 c", "2500 end"));
  EXPECT_FALSE(rig.playback.PausePlayback());
}

}  // namespace
}  // namespace kestrav::test
