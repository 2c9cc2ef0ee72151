#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder EverySecond() {
  return Log({{1000, "a"}, {2000, "b"}, {3000, "c"}, {4000, "d"}, {5000, "e"}});
}

void PauseAt(NormalRig& rig, std::uint32_t ms) {
  rig.Run(ms);
  ASSERT_TRUE(rig.playback.PausePlayback());
  rig.Settled();
  ASSERT_EQ(rig.Status(), PlaybackPaused);
  ASSERT_EQ(rig.Speed(), PlaybackSpeedStopped);
}

TEST(NormalPause, HoldsThePendingRecordUntilTheResume) {
  NormalRig rig;
  rig.Play(EverySecond());
  PauseAt(rig, 1300);
  EXPECT_THAT(rig.Run(100000), IsEmpty());
  EXPECT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Run(1000),
              ElementsAre("101300 resumed", "101300 speed 1", "101300 b", "102300 c"));
}

class NormalResumer : public testing::TestWithParam<bool (*)(NormalRig&)> {};

TEST_P(NormalResumer, GoesOnAtTheSpeedBeforeThePause) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.playback.FastForward();
  rig.playback.FastForward();
  PauseAt(rig, 1000);
  EXPECT_TRUE(GetParam()(rig));
  EXPECT_THAT(rig.Run(250), ElementsAre("1000 resumed", "1000 speed 4", "1000 b", "1250 c"));
  EXPECT_EQ(rig.Status(), PlaybackPlaying);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, NormalResumer,
    testing::Values([](NormalRig& rig) { return rig.playback.ResumePlayback(); },
                    [](NormalRig& rig) { return rig.playback.FastForward(); },
                    [](NormalRig& rig) { return rig.Start(); }));

TEST(NormalPause, IsLeftByAStartWithoutAChangeOfStatusOrSpeedAtTheCall) {
  NormalRig rig;
  rig.Play(EverySecond());
  PauseAt(rig, 1300);
  PlaybackStatusType status = PlaybackOff;
  PlaybackSpeedType speed = PlaybackSpeed10x;
  rig.trace.on_notification = [&](const NotificationInfo& info) {
    if (info.id != NotifyPlaybackResumed) return;
    status = rig.Status();
    speed = rig.Speed();
  };
  EXPECT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("1300 resumed", "1300 speed 1", "1300 b"));
  EXPECT_EQ(status, PlaybackPlaying);
  EXPECT_EQ(speed, PlaybackSpeedStopped);
}

TEST(NormalPause, RightAfterAStartFollowsTheStart) {
  NormalRig rig;
  rig.Insert(EverySecond());
  rig.owner.Hold();
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.playback.PausePlayback());
  rig.owner.Release();
  EXPECT_THAT(rig.Run(5000),
              ElementsAre("0 speed 1", "0 started", "0 speed 1", "0 speed 0", "0 paused"));
}

// The pause made the speed before it 0, which a resume then applies.
class NormalStall : public testing::Test {
 protected:
  NormalStall() {
    rig_.Play(EverySecond());
    PauseAt(rig_, 1300);
    EXPECT_TRUE(rig_.SetStartSpeed(4));
    EXPECT_EQ(rig_.Speed(), 4);
    EXPECT_TRUE(rig_.playback.ResumePlayback());
    EXPECT_THAT(rig_.Run(100000), ElementsAre("1300 resumed", "1300 speed 0", "1300 b"));
    EXPECT_EQ(rig_.Status(), PlaybackPlaying);
    EXPECT_EQ(rig_.Speed(), 0);
  }

  NormalRig rig_;
};

TEST_F(NormalStall, CannotBeLeftByFastForward) {
  EXPECT_FALSE(rig_.playback.FastForward());
  EXPECT_FALSE(rig_.playback.ResumePlayback());
  EXPECT_THAT(rig_.Run(100000), IsEmpty());
}

TEST_F(NormalStall, GivesOneRecordAResume) {
  for (const char* next : {"101300 c", "101300 d"}) {
    EXPECT_TRUE(rig_.playback.PausePlayback());
    EXPECT_THAT(rig_.Settled(), ElementsAre("101300 speed 0", "101300 paused"));
    EXPECT_TRUE(rig_.playback.ResumePlayback());
    EXPECT_THAT(rig_.Settled(), ElementsAre("101300 resumed", "101300 speed 0", next));
  }
}

TEST_F(NormalStall, IsLeftByARewind) {
  EXPECT_TRUE(rig_.playback.RewindPlayback());
  EXPECT_THAT(rig_.Run(1000), ElementsAre("101300 speed 0", "101300 rewinds", "101300 speed 1",
                                          "101300 rewound", "101300 a", "102300 b"));
}

TEST_F(NormalStall, IsLeftByAStop) {
  rig_.playback.StopPlayback(true);
  EXPECT_THAT(rig_.trace.Take(), ElementsAre("101300 stopped"));
}

TEST(NormalPause, BeforeAnUnpacedStartStaysUnpaced) {
  NormalRig rig;
  rig.Insert(EverySecond());
  ASSERT_TRUE(rig.SetStartSpeed(0));
  ASSERT_TRUE(rig.Start());
  rig.Settled();
  EXPECT_EQ(rig.Status(), PlaybackFinished);
  EXPECT_FALSE(rig.playback.PausePlayback());
}

}  // namespace
}  // namespace kestrav::test
