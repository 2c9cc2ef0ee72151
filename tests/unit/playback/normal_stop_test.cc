#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder TwoRecords() { return Log({{1000, "a"}, {2000, "b"}}); }

TEST(NormalStop, WithWaitingReturnsWhenAllIsOver) {
  NormalRig rig;
  rig.Play(TwoRecords());
  rig.playback.StopPlayback(true);
  EXPECT_THAT(rig.trace.Take(), ElementsAre("0 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  EXPECT_EQ(rig.Speed(), 0);
  EXPECT_EQ(rig.stream.use_count(), 1);
  EXPECT_THAT(rig.Run(5000), IsEmpty());
}

TEST(NormalStop, WithoutWaitingIsSeenToByTheThread) {
  NormalRig rig;
  rig.Play(TwoRecords());
  rig.playback.StopPlayback(false);
  EXPECT_THAT(rig.Settled(), ElementsAre("0 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  rig.playback.StopPlayback(false);
  rig.playback.StopPlayback(true);
  EXPECT_THAT(rig.Settled(), IsEmpty());
}

TEST(NormalStop, BeforeTheStartIsServedGoesFirst) {
  NormalRig rig;
  rig.Insert(TwoRecords());
  rig.owner.Hold();
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  rig.playback.StopPlayback(false);
  rig.owner.Release();
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 1", "0 stopped"));
}

TEST(NormalStop, ForgetsTheSettings) {
  NormalRig rig;
  rig.Insert(TwoRecords());
  ASSERT_TRUE(rig.SetStartSpeed(4));
  ASSERT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(1));
  rig.playback.SetRewindTimeScnds(9);
  ASSERT_TRUE(rig.Start());
  rig.playback.StopPlayback(true);
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(), 0U);
  EXPECT_EQ(rig.playback.GetRewindTimeScnds(), 5U);
  rig.trace.Take();
  rig.Play(TwoRecords());  // at speed 1
}

TEST(NormalStop, WhileOffForgetsTheStartSpeedAlone) {
  NormalRig rig;
  rig.Insert(TwoRecords());
  ASSERT_TRUE(rig.SetStartSpeed(4));
  ASSERT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(1));
  rig.playback.SetRewindTimeScnds(9);
  rig.playback.StopPlayback(true);
  EXPECT_THAT(rig.trace.Take(), IsEmpty());
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(), 1U);
  EXPECT_EQ(rig.playback.GetRewindTimeScnds(), 9U);
  EXPECT_EQ(rig.stream.use_count(), 1);
}

TEST(NormalStop, NeedsANewStreamForTheNextStart) {
  NormalRig rig;
  rig.Play(TwoRecords());
  rig.playback.StopPlayback(true);
  rig.trace.Take();
  EXPECT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 1", "0 started", "0 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  rig.Play(TwoRecords());
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 a"));
}

TEST(NormalStop, LeavesNothingForTheNextPlayback) {
  NormalRig rig;
  rig.Insert(TwoRecords());
  rig.owner.Hold();
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.playback.PausePlayback());
  rig.playback.StopPlayback(false);
  rig.owner.Release();
  rig.Settled();
  rig.Play(TwoRecords());
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 a"));
}

TEST(NormalStop, RightBeforeANewStartIsOneRunAfterTheOther) {
  NormalRig rig;
  rig.Play(TwoRecords());
  for (int i = 0; i < 100; ++i) {
    rig.playback.StopPlayback(true);
    ASSERT_EQ(rig.trace.Take().size(), 1U);
    rig.Play(TwoRecords());
  }
  EXPECT_EQ(rig.owner.Names().size(), 101U);
}

TEST(NormalStart, IsRefusedWithoutAThread) {
  NormalRig rig;
  rig.Insert(TwoRecords());
  rig.owner.Refuse(true);
  EXPECT_FALSE(rig.Start());
  EXPECT_EQ(rig.Status(), PlaybackOff);
  EXPECT_THAT(rig.Settled(), IsEmpty());
  rig.owner.Refuse(false);
  EXPECT_TRUE(rig.Start());
}

TEST(NormalStart, IsRefusedWithoutAThreadName) {
  NormalRig rig;
  rig.Insert(TwoRecords());
  EXPECT_FALSE(rig.playback.StartPlayback(&rig.manager, &rig.trace, rig.owner, L""));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  EXPECT_THAT(rig.owner.Names(), IsEmpty());
}

TEST(NormalDestruction, EndsTheThreadInAnyStatus) {
  for (const std::uint32_t ms : {0U, 1500U, 2000U}) {
    NormalRig rig;
    rig.Play(TwoRecords());
    rig.Run(ms);
  }
}

}  // namespace
}  // namespace kestrav::test
