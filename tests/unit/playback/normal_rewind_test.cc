#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder EverySecond(std::uint32_t seconds = 20) {
  std::vector<At> records;
  for (std::uint32_t s = 0; s < seconds; ++s) records.push_back({1000 * s, std::to_string(s)});
  return Log(records);
}

// Plays for `ms` from the settled start on.
void PlayFor(NormalRig& rig, const LogBuilder& log, std::uint32_t ms) {
  rig.Insert(log);
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  rig.Run(ms);
  ASSERT_EQ(rig.Status(), PlaybackPlaying);
}

// Rewinds; what that brings without the notifications of it.
Entries Rewind(NormalRig& rig) {
  EXPECT_TRUE(rig.playback.RewindPlayback());
  Entries seen = rig.Settled();
  if (seen.size() < 4) return seen;
  for (std::size_t i = 0; i < seen.size(); ++i) seen[i].erase(0, seen[i].find(' ') + 1);
  EXPECT_EQ(Entries(seen.begin(), seen.begin() + 4),
            (Entries{"speed 0", "rewinds", "speed 1", "rewound"}));
  return Entries(seen.begin() + 4, seen.end());
}

TEST(NormalRewind, ThreeSecondsIntoTheLogGoesToItsBeginningAtSpeedOne) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 0);
  rig.playback.FastForward();
  rig.Run(1500);
  EXPECT_EQ(rig.Position(), 3U);
  EXPECT_THAT(Rewind(rig), ElementsAre("0"));
  EXPECT_EQ(rig.Speed(), PlaybackSpeed1x);
  EXPECT_EQ(rig.Position(), 0U);
  EXPECT_THAT(rig.Run(1999), ElementsAre("2500 1"));
}

TEST(NormalRewind, GoesBackByItsStep) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 12000);
  EXPECT_THAT(Rewind(rig), ElementsAre("7"));
  EXPECT_EQ(rig.Position(), 7U);
  rig.playback.SetRewindTimeScnds(2);
  EXPECT_EQ(rig.playback.GetRewindTimeScnds(), 2U);
  EXPECT_THAT(Rewind(rig), ElementsAre("5"));
  EXPECT_THAT(rig.Run(1000), ElementsAre("13000 6"));
}

struct StepCase {
  std::uint32_t step;
  const char* first;
};

class NormalRewindStep : public testing::TestWithParam<StepCase> {};

TEST_P(NormalRewindStep, IsTakenAsItIs) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 12200);
  rig.playback.SetRewindTimeScnds(GetParam().step);
  EXPECT_THAT(Rewind(rig), ElementsAre(GetParam().first));
}

// As signed values: a step of -1 goes one second ahead.
INSTANTIATE_TEST_SUITE_P(Seconds, NormalRewindStep,
                         testing::Values(StepCase{0, "12"}, StepCase{1, "11"}, StepCase{11, "1"},
                                         StepCase{12, "0"}, StepCase{13, "0"}, StepCase{1000, "0"},
                                         StepCase{0x7FFFFFFF, "0"}, StepCase{0x80000001, "0"},
                                         StepCase{0xFFFFFFFF, "13"}));

class NormalRewindTolerance : public testing::TestWithParam<std::pair<std::uint32_t, bool>> {};

TEST_P(NormalRewindTolerance, IsLessThanHalfASecond) {
  NormalRig rig;
  const auto [ms, matches] = GetParam();
  PlayFor(rig, Log({{0, "a"}, {ms, "b"}, {9000, "c"}, {20000, "d"}}), 10000);
  if (matches) {
    EXPECT_THAT(Rewind(rig), ElementsAre("b"));
    EXPECT_THAT(rig.Run(9000 - ms), ElementsAre(std::to_string(19000 - ms) + " c"));
  } else {
    EXPECT_THAT(Rewind(rig), ElementsAre("c"));
  }
}

// The target is at 5000.
INSTANTIATE_TEST_SUITE_P(Records, NormalRewindTolerance,
                         testing::Values(std::pair{4499U, false}, std::pair{4500U, false},
                                         std::pair{4501U, true}, std::pair{5000U, true},
                                         std::pair{5001U, true}, std::pair{8999U, true}));

// The log is walked by the records of all clients, and its target moved to the one it finds.
TEST(NormalRewind, WaitsFromTheRecordItFoundToTheNextThatIsPlayed) {
  NormalRig rig;
  PlayFor(rig,
          Log({{0, "a"}, {4800, "x", kRecordedNobody}, {5600, "b"}, {9000, "c"}, {20000, "d"}}),
          10000);
  EXPECT_THAT(Rewind(rig), IsEmpty());
  EXPECT_EQ(rig.Position(), 5U);
  EXPECT_THAT(rig.Run(799), IsEmpty());
  EXPECT_THAT(rig.Run(1), ElementsAre("10800 b"));
}

TEST(NormalRewind, DeliversRecordsOfOneTimeStampInABurst) {
  NormalRig rig;
  PlayFor(rig, Log({{0, "a"}, {5000, "b"}, {5000, "c"}, {6000, "d"}, {20000, "e"}}), 10000);
  EXPECT_THAT(Rewind(rig), ElementsAre("b", "c"));
  EXPECT_THAT(rig.Run(1000), ElementsAre("11000 d"));
}

TEST(NormalRewind, GivesNoHistory) {
  NormalRig rig;
  rig.can.accepts_offset_data = true;
  PlayFor(rig, Log({{0, "h", kRecordedCan}, {1000, "h", kRecordedCan}, {9000, "c"}, {20000, "d"}}),
          10000);
  EXPECT_THAT(Rewind(rig), ElementsAre("c"));
}

TEST(NormalRewind, FromAPausePlaysOn) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 12200);
  rig.playback.PausePlayback();
  rig.Run(5000);
  EXPECT_THAT(Rewind(rig), ElementsAre("7"));
  EXPECT_EQ(rig.Status(), PlaybackPlaying);
  EXPECT_THAT(rig.Run(1000), ElementsAre("18200 8"));
}

TEST(NormalRewind, FromTheEndCountsFromTheLastRecord) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 0);
  rig.Run(60000);
  ASSERT_EQ(rig.Status(), PlaybackFinished);
  EXPECT_THAT(Rewind(rig), ElementsAre("14"));
  EXPECT_THAT(rig.Run(1000), ElementsAre("61000 15"));
}

TEST(NormalRewind, BeforeTheStartIsServedEndsThePlayback) {
  NormalRig rig;
  rig.Insert(EverySecond());
  rig.owner.Hold();
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.playback.RewindPlayback());
  EXPECT_EQ(rig.Status(), PlaybackRewinding);
  rig.owner.Release();
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 1", "0 speed 0", "0 rewinds", "0 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
}

TEST(NormalRewind, EndsThePlaybackWhenAResumeComesBeforeIt) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 8000);
  rig.trace.on_notification = [&](const NotificationInfo& info) {
    if (info.id == NotifyRewindStarted) {
      EXPECT_TRUE(rig.playback.ResumePlayback());
    }
  };
  rig.playback.RewindPlayback();
  EXPECT_THAT(rig.Settled(), ElementsAre("8000 speed 0", "8000 rewinds", "8000 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
}

TEST(NormalRewind, ForgetsAChangedOffset) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 8000);
  rig.playback.PausePlayback();
  rig.Settled();
  EXPECT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(15));
  EXPECT_THAT(Rewind(rig), ElementsAre("3"));
  rig.playback.PausePlayback();
  rig.Settled();
  rig.playback.ResumePlayback();
  EXPECT_THAT(rig.Settled(), ElementsAre("8000 resumed", "8000 speed 1", "8000 4"));
}

TEST(NormalRewind, StopsWhenItsTargetIsBehindTheLength) {
  NormalRig rig;
  PlayFor(rig, Log({{0, "a"}, {30000, "b"}}, 9000), 15000);
  EXPECT_FALSE(rig.playback.RewindPlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("15000 speed 0", "15000 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
}

TEST(NormalRewind, EndsThePlaybackWhenNoRecordIsNearEnough) {
  NormalRig rig;
  PlayFor(rig, Log({{0, "a"}, {10400, "b"}}), 0);
  rig.Run(20000);
  rig.playback.SetRewindTimeScnds(0xFFFFFFFF);
  EXPECT_TRUE(rig.playback.RewindPlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("20000 speed 0", "20000 rewinds", "20000 stopped"));
}

TEST(NormalRewind, EndsThePlaybackWhenNoPlayedRecordFollows) {
  NormalRig rig;
  PlayFor(rig, Log({{0, "a"}, {10000, "b"}, {11000, "x", kRecordedNobody}}), 0);
  rig.Run(20000);
  rig.playback.SetRewindTimeScnds(0xFFFFFFFF);
  EXPECT_TRUE(rig.playback.RewindPlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("20000 speed 0", "20000 rewinds", "20000 stopped"));
}

TEST(NormalRewind, EndsThePlaybackWhenTheRecordFoundIsNewerThanTheNext) {
  NormalRig rig;
  PlayFor(rig,
          Log({{0, "a"}, {12000, "x", kRecordedNobody}, {11000, "b"}, {16000, "c"}, {40000, "d"}}),
          17000);
  EXPECT_TRUE(rig.playback.RewindPlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("17000 speed 0", "17000 rewinds", "17000 stopped"));
}

TEST(NormalRewind, EndsThePlaybackWhenTheStreamFails) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 8000);
  rig.stream->fail_seeks = true;
  EXPECT_TRUE(rig.playback.RewindPlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("8000 speed 0", "8000 rewinds", "8000 stopped"));
}

TEST(NormalRewind, KeepsItsStepOverAFailureAndForgetsItWithAStopAndANewStream) {
  NormalRig rig;
  PlayFor(rig, EverySecond(), 0);
  rig.playback.SetRewindTimeScnds(3);
  rig.playback.StopPlayback(true);
  EXPECT_EQ(rig.playback.GetRewindTimeScnds(), 5U);
  PlayFor(rig, EverySecond(), 0);
  rig.playback.SetRewindTimeScnds(3);
  rig.stream->fail_reads = true;
  rig.Run(2000);
  ASSERT_EQ(rig.Status(), PlaybackOff);
  EXPECT_EQ(rig.playback.GetRewindTimeScnds(), 3U);
  rig.Insert(EverySecond());
  EXPECT_EQ(rig.playback.GetRewindTimeScnds(), 5U);
}

TEST(NormalRewind, WorksInAScrambledLog) {
  NormalRig rig;
  LogBuilder log(0xF0, 0x0F);
  log.StartClock(kLogStart).Duration(60000);
  for (std::uint32_t s = 0; s < 20; ++s) {
    log.Record(s % 2 == 0 ? kRecordedGps : kRecordedNobody, 1, kLogStart + 1000 * s,
               std::to_string(s));
  }
  PlayFor(rig, log, 13000);
  EXPECT_THAT(Rewind(rig), ElementsAre("8"));
  EXPECT_THAT(rig.Run(4000), ElementsAre("15000 10", "17000 12"));
}

}  // namespace
}  // namespace kestrav::test
