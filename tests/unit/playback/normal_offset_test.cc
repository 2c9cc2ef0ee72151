#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;

// Inserts the log and starts it at the offset; what that brings, without the notifications of it.
Entries StartAt(NormalRig& rig, const LogBuilder& log, std::uint32_t offset_scnds, int speed = 1) {
  rig.Insert(log);
  EXPECT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(offset_scnds));
  EXPECT_TRUE(rig.SetStartSpeed(speed));
  rig.trace.StartNow();
  EXPECT_TRUE(rig.Start());
  Entries seen = rig.Settled();
  const std::string told_speed = "0 speed " + std::to_string(speed);
  const Entries expected = {told_speed, "0 started", told_speed};
  EXPECT_EQ(Entries(seen.begin(), seen.begin() + 3), expected);
  return Entries(seen.begin() + 3, seen.end());
}

LogBuilder Drive() {
  return Log({{0, "a"},
              {500, "h1", kRecordedCan},
              {1000, "b"},
              {2999, "h2", kRecordedCan},
              {3200, "c"},
              {3700, "h3", kRecordedCan},
              {4700, "d"}});
}

TEST(NormalOffset, GivesTheHistoryAtOnceToClientsThatAcceptItAndToNobodyElse) {
  NormalRig rig;
  rig.can.accepts_offset_data = true;
  // The record that ends the skip goes out at once too; from there on the log is paced.
  EXPECT_THAT(StartAt(rig, Drive(), 3), ElementsAre("0 h1", "0 h2", "0 c"));
  EXPECT_THAT(rig.Run(2000), ElementsAre("500 h3", "1500 speed 0", "1500 d", "1500 end"));
}

TEST(NormalOffset, GivesNothingFromBeforeItWhenNobodyAcceptsIt) {
  NormalRig rig;
  EXPECT_THAT(StartAt(rig, Drive(), 3), ElementsAre("0 c"));
}

TEST(NormalOffset, AsksTheFirstInstanceOfAClientWhetherItAcceptsIt) {
  NormalRig rig;
  RecordingClient second(L"CAN");
  second.accepts_offset_data = true;
  ASSERT_TRUE(rig.manager.RegisterClient(&second));
  EXPECT_THAT(StartAt(rig, Drive(), 3), ElementsAre("0 c"));
  rig.playback.StopPlayback(true);
}

TEST(NormalOffset, WaitsForAFirstRecordBehindIt) {
  NormalRig rig;
  EXPECT_THAT(StartAt(rig, Log({{5000, "a"}, {6000, "b"}}), 3, 4), ElementsAre());
  EXPECT_EQ(rig.Position(), 3U);
  EXPECT_THAT(rig.Run(499), ElementsAre());
  EXPECT_THAT(rig.Run(251), ElementsAre("500 a", "750 speed 0", "750 b", "750 end"));
}

TEST(NormalOffset, DeliversARecordExactlyAtItAtOnce) {
  NormalRig rig;
  EXPECT_THAT(StartAt(rig, Log({{3000, "a"}, {3100, "b"}}), 3), ElementsAre("0 a"));
  EXPECT_THAT(rig.Run(100), ElementsAre("100 speed 0", "100 b", "100 end"));
}

TEST(NormalOffset, OfZeroGivesEverythingAtItsTime) {
  NormalRig rig;
  rig.can.accepts_offset_data = true;
  EXPECT_THAT(StartAt(rig, Log({{250, "a"}, {500, "h", kRecordedCan}}), 0, 2), ElementsAre());
  EXPECT_THAT(rig.Run(1000), ElementsAre("125 a", "250 speed 0", "250 h", "250 end"));
}

// The log is longer than its last record says: the skip meets the end and there is nothing to play.
TEST(NormalOffset, BehindTheLastRecordEndsThePlayback) {
  NormalRig rig;
  rig.can.accepts_offset_data = true;
  EXPECT_THAT(StartAt(rig, Drive(), 30),
              ElementsAre("0 h1", "0 h2", "0 h3", "0 speed 0", "0 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
}

TEST(NormalOffset, IsDeliveredOnceMoreWhenAClientRefusesItsHistory) {
  NormalRig rig;
  rig.can.accepts_offset_data = true;
  rig.react = [](const std::string& payload) { return payload != "h1"; };
  EXPECT_THAT(StartAt(rig, Drive(), 3), ElementsAre("0 h1", "0 h1", "0 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
}

// The second try counts as a delivery in the midst of the log; what stands between it and the
// offset is then passed over, also for those who accept it.
TEST(NormalOffset, GoesOnWhenTheSecondTryIsTaken) {
  NormalRig rig;
  rig.can.accepts_offset_data = true;
  int tries = 0;
  rig.react = [&tries](const std::string& payload) { return payload != "h1" || ++tries > 1; };
  EXPECT_THAT(StartAt(rig, Drive(), 3), ElementsAre("0 h1", "0 h1"));
  EXPECT_THAT(rig.Run(499), ElementsAre());
  EXPECT_THAT(rig.Run(1), ElementsAre("500 c"));
  EXPECT_THAT(rig.Run(500), ElementsAre("1000 h3"));
}

TEST(NormalOffset, IsKeptForAStartFromTheEnd) {
  NormalRig rig;
  StartAt(rig, Drive(), 3);
  EXPECT_THAT(rig.Run(2000), ElementsAre("500 h3", "1500 speed 0", "1500 d", "1500 end"));
  EXPECT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("2000 speed 1", "2000 started", "2000 speed 1", "2000 c"));
}

TEST(NormalOffset, IsForgottenByAStopAndByANewStream) {
  NormalRig rig;
  StartAt(rig, Drive(), 3);
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(), 3U);
  rig.playback.StopPlayback(true);
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(), 0U);
  rig.Insert(Drive());
  rig.playback.SetStartPlaybackOffsetScnds(2);
  rig.Insert(Drive());
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(), 0U);
}

// A pause stands at speed 0, and so does the start from there: what is due goes out, and no more.
TEST(NormalOffset, ChangedWhilePausedStartsThereAndStandsStill) {
  NormalRig rig;
  rig.Play(Drive());
  rig.Run(600);
  rig.playback.PausePlayback();
  EXPECT_THAT(rig.Settled(), ElementsAre("600 speed 0", "600 paused"));
  EXPECT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(3));
  EXPECT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Run(10000), ElementsAre("600 started", "600 speed 0", "600 c"));
  EXPECT_EQ(rig.Position(), 3U);
  EXPECT_TRUE(rig.playback.RewindPlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("10600 speed 0", "10600 rewinds", "10600 speed 1",
                                         "10600 rewound", "10600 a"));
}

TEST(NormalOffset, ChangedWhilePausedStartsThereAtANewStartSpeed) {
  NormalRig rig;
  rig.Play(Drive());
  rig.Run(600);
  rig.playback.PausePlayback();
  rig.Settled();
  EXPECT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(3));
  EXPECT_TRUE(rig.SetStartSpeed(10));
  EXPECT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Run(60), ElementsAre("600 started", "600 speed 10", "600 c", "650 h3"));
}

struct OffsetCase {
  std::uint32_t length_ms;
  std::uint32_t offset_scnds;
  bool valid;
};

class NormalValidOffset : public testing::TestWithParam<OffsetCase> {};

TEST_P(NormalValidOffset, IsNotBehindTheEndOfTheLog) {
  NormalRig rig;
  rig.Insert(Log({{0, "a"}}, GetParam().length_ms));
  EXPECT_EQ(rig.playback.GetPlaybackLogLengthMs(), GetParam().length_ms);
  EXPECT_EQ(rig.playback.IsValidPlaybackOffset(GetParam().offset_scnds), GetParam().valid);
  EXPECT_EQ(rig.playback.SetStartPlaybackOffsetScnds(GetParam().offset_scnds), GetParam().valid);
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(),
            GetParam().valid ? GetParam().offset_scnds : 0);
}

// 4294968 s are 704 ms in 32 bits.
INSTANTIATE_TEST_SUITE_P(Seconds, NormalValidOffset,
                         testing::Values(OffsetCase{59999, 59, true}, OffsetCase{59999, 60, false},
                                         OffsetCase{60000, 60, true}, OffsetCase{60000, 61, false},
                                         OffsetCase{0, 0, true}, OffsetCase{999, 1, false},
                                         OffsetCase{704, 4294968, true},
                                         OffsetCase{703, 4294968, false},
                                         OffsetCase{0xFFFFFFFF, 4294967, true}));

}  // namespace
}  // namespace kestrav::test
