#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder ThreeRecords() { return Log({{1000, "a"}, {3000, "b"}, {5000, "c"}}); }

// Plays to the end at speed 4 from the second record on.
void PlayToTheEnd(NormalRig& rig) {
  rig.Play(ThreeRecords());
  rig.Run(1500);
  ASSERT_TRUE(rig.playback.FastForward());
  ASSERT_TRUE(rig.playback.FastForward());
  EXPECT_THAT(rig.Run(8500), ElementsAre("1500 speed 2", "1500 speed 4", "3000 b", "3500 speed 0",
                                         "3500 c", "3500 end"));
  ASSERT_EQ(rig.Status(), PlaybackFinished);
  ASSERT_EQ(rig.Speed(), PlaybackSpeedStopped);
}

TEST(NormalEnd, KeepsTheThreadAndSaysNothingMore) {
  NormalRig rig;
  PlayToTheEnd(rig);
  EXPECT_THAT(rig.Run(1000000), IsEmpty());
  EXPECT_EQ(rig.Status(), PlaybackFinished);
}

TEST(NormalEnd, IsFollowedByAStartFromTheBeginningAtTheSpeedAtWhichItCame) {
  NormalRig rig;
  PlayToTheEnd(rig);
  EXPECT_TRUE(rig.Start());
  EXPECT_THAT(rig.Run(1250),
              ElementsAre("10000 speed 4", "10000 started", "10000 speed 4", "10250 a", "10750 b",
                          "11250 speed 0", "11250 c", "11250 end"));
  EXPECT_THAT(rig.owner.Names(), ElementsAre(L"Playback"));
}

TEST(NormalEnd, IsNotTouchedByANewStartSpeed) {
  NormalRig rig;
  PlayToTheEnd(rig);
  EXPECT_TRUE(rig.SetStartSpeed(2));
  EXPECT_EQ(rig.Speed(), 0);
  EXPECT_TRUE(rig.Start());
  EXPECT_EQ(rig.Settled().front(), "10000 speed 4");
}

class NormalUnpacedRestart : public testing::TestWithParam<bool (*)(NormalRig&)> {};

TEST_P(NormalUnpacedRestart, DeliversTheWholeLogAtOnce) {
  NormalRig rig;
  PlayToTheEnd(rig);
  const Entries everything = {"10000 started", "10000 speed 0", "10000 a",  "10000 b",
                              "10000 speed 0", "10000 c",       "10000 end"};
  EXPECT_TRUE(GetParam()(rig));
  EXPECT_EQ(rig.Settled(), everything);
  EXPECT_EQ(rig.Status(), PlaybackFinished);
  EXPECT_EQ(rig.Speed(), 0);
  // The log has now ended at speed 0.
  EXPECT_TRUE(rig.Start());
  EXPECT_EQ(rig.Settled().front(), "10000 speed 0");
  EXPECT_EQ(rig.Status(), PlaybackFinished);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, NormalUnpacedRestart,
    testing::Values([](NormalRig& rig) { return rig.playback.ResumePlayback(); },
                    [](NormalRig& rig) { return rig.playback.FastForward(); }));

TEST(NormalEnd, ComesAtOnceInALogOfOneRecord) {
  NormalRig rig;
  rig.Play(Log({{40, "a"}}));
  EXPECT_THAT(rig.Run(100), ElementsAre("40 speed 0", "40 a", "40 end"));
}

TEST(NormalEnd, ComesWithoutThePlaybackInALogThatHasNoRecordToPlay) {
  NormalRig rig;
  rig.Insert(Log({{0, "x", kRecordedNobody}}));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 1", "0 started", "0 stopped"));
}

}  // namespace
}  // namespace kestrav::test
