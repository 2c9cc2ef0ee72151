#include "normal_rig.h"

namespace kestrav::test {
namespace {

TEST(NormalPosition, IsTheTimePlayedRoundedToTheNearestSecond) {
  NormalRig rig;
  rig.Play(Log({{30000, "a"}}));
  EXPECT_EQ(rig.Position(), 0U);
  rig.Run(499);
  EXPECT_EQ(rig.Position(), 0U);
  rig.Run(1);
  EXPECT_EQ(rig.Position(), 1U);
  rig.Run(999);
  EXPECT_EQ(rig.Position(), 1U);
  rig.Run(1);
  EXPECT_EQ(rig.Position(), 2U);
}

TEST(NormalPosition, CountsEachPartAtItsSpeed) {
  NormalRig rig;
  rig.Play(Log({{50000, "a"}}));
  rig.Run(1100);
  for (int i = 0; i < 2; ++i) rig.playback.FastForward();
  EXPECT_EQ(rig.Position(), 1U);
  rig.Run(350);  // 1100 + 4 * 350 = 2500
  EXPECT_EQ(rig.Position(), 3U);
  rig.playback.FastForward();
  rig.Run(99);  // 2500 + 990 = 3490
  EXPECT_EQ(rig.Position(), 3U);
  rig.Run(1);  // 3500
  EXPECT_EQ(rig.Position(), 4U);
}

TEST(NormalPosition, NeverPassesTheNextRecord) {
  NormalRig rig;
  rig.Play(Log({{10400, "a"}, {60000, "b"}}));
  rig.Run(100);
  for (int i = 0; i < 3; ++i) rig.playback.FastForward();
  ASSERT_EQ(rig.Speed(), 10);
  rig.Run(1000);
  EXPECT_EQ(rig.Position(), 10U);
  rig.Run(9299);
  EXPECT_EQ(rig.Position(), 10U);
  // Once that record is out the position runs on from where the clock has brought it.
  rig.Run(1);
  EXPECT_EQ(rig.Position(), 60U);
}

TEST(NormalPosition, StandsStillWhilePaused) {
  NormalRig rig;
  rig.Play(Log({{30000, "a"}}));
  rig.Run(1600);
  rig.playback.PausePlayback();
  rig.Run(20000);
  EXPECT_EQ(rig.Position(), 2U);
}

TEST(NormalPosition, GoesOnFromThePauseAfterAResume) {
  NormalRig rig;
  rig.Play(Log({{2000, "a"}, {30000, "b"}}));
  rig.Run(1600);
  rig.playback.PausePlayback();
  rig.Run(20000);
  rig.playback.ResumePlayback();
  rig.Run(899);  // the pending record goes out at once, but the time played is 2499
  EXPECT_EQ(rig.Position(), 2U);
  rig.Run(1);
  EXPECT_EQ(rig.Position(), 3U);
}

TEST(NormalPosition, StaysAtTheLastRecordWhenFinished) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}, {3600, "b"}}));
  rig.Run(3600);
  ASSERT_EQ(rig.Status(), PlaybackFinished);
  EXPECT_EQ(rig.Position(), 4U);
  rig.Run(100000);
  EXPECT_EQ(rig.Position(), 4U);
}

TEST(NormalPosition, StartsAtTheOffset) {
  NormalRig rig;
  rig.Insert(Log({{1000, "a"}, {20000, "b"}, {30000, "c"}}));
  ASSERT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(12));
  ASSERT_TRUE(rig.Start());
  rig.Settled();
  EXPECT_EQ(rig.Position(), 12U);
  rig.Run(1500);
  EXPECT_EQ(rig.Position(), 14U);
}

TEST(NormalPosition, IsThatOfTheLastDeliveredRecordWhileRewinding) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}, {20000, "b"}}));
  rig.Run(8000);
  EXPECT_EQ(rig.Position(), 8U);
  std::uint32_t while_rewinding = 0;
  rig.trace.on_notification = [&](const NotificationInfo& info) {
    if (info.id == NotifyRewindStarted) while_rewinding = rig.Position();
  };
  EXPECT_TRUE(rig.playback.RewindPlayback());
  rig.Settled();
  EXPECT_EQ(while_rewinding, 1U);
}

class NormalPositionOutside : public testing::TestWithParam<PlaybackStatusType> {};

TEST_P(NormalPositionOutside, IsZero) {
  NormalRig rig;
  rig.Play(Log({{30000, "a"}}));
  rig.Run(5000);
  rig.playback.SetPlaybackStatus(GetParam());
  EXPECT_EQ(rig.Position(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Statuses, NormalPositionOutside,
                         testing::Values(PlaybackOff, PlaybackStarting));

TEST(NormalPosition, IsZeroWhileTheClockCannotBeRead) {
  NormalRig rig;
  rig.Play(Log({{30000, "a"}}));
  rig.Run(5000);
  rig.clock->FailMs();
  EXPECT_EQ(rig.Position(), 0U);
  rig.clock->Recover();
  EXPECT_EQ(rig.Position(), 5U);
}

// A clock base of 0 stands for no timing yet, also when the clock did read 0.
TEST(NormalPosition, IsZeroWhenTimingBeganAtClockZero) {
  NormalRig rig(0);
  rig.Play(Log({{30000, "a"}}));
  rig.Run(5000);
  EXPECT_EQ(rig.Position(), 0U);
  rig.playback.FastForward();
  EXPECT_EQ(rig.Position(), 5U);
}

TEST(NormalPosition, CountsOverTheWrapOfTheClock) {
  NormalRig rig(0xFFFFFFFF - 1000);
  rig.Play(Log({{30000, "a"}}));
  rig.Run(3000);
  EXPECT_EQ(rig.Position(), 3U);
}

TEST(NormalPosition, IsZeroAfterAStop) {
  NormalRig rig;
  rig.Play(Log({{30000, "a"}}));
  rig.Run(3000);
  rig.playback.StopPlayback(true);
  EXPECT_EQ(rig.Position(), 0U);
}

}  // namespace
}  // namespace kestrav::test
