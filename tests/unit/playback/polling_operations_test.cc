#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "polling_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder LongLog() {
  return LogBuilder()
      .Duration(10000)
      .Record(kGps, 1, 1000, "first")
      .Record(kGps, 1, 9000, "second");
}

class PollingStatus : public testing::TestWithParam<PlaybackStatusType> {
 protected:
  // A playback of `LongLog` in the status of the test.
  void Bring(PollingRig& rig) {
    rig.Play(LongLog());
    rig.playback.SetPlaybackStatus(GetParam());
  }
};

using PollingNotOff = PollingStatus;

TEST_P(PollingNotOff, RefusesAStream) {
  PollingRig rig;
  Bring(rig);
  EXPECT_FALSE(rig.playback.SetInputStream(nullptr));
  EXPECT_FALSE(rig.playback.SetInputStream(std::make_shared<BytesInputStream>(Bytes())));
  EXPECT_FALSE(rig.IsStreamReleased());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(All, PollingNotOff,
                         testing::Values(PlaybackStarting, PlaybackPlaying, PlaybackFinished));

using PollingAnyStatus = PollingStatus;

TEST_P(PollingAnyStatus, AnswersWhatItsModeDoesNotHave) {
  PollingRig rig;
  Bring(rig);
  IBinaryPlayback& playback = rig.playback;
  EXPECT_FALSE(playback.RewindPlayback());
  EXPECT_FALSE(playback.PausePlayback());
  EXPECT_FALSE(playback.ResumePlayback());
  EXPECT_FALSE(playback.FastForward());
  EXPECT_FALSE(playback.SetStartPlaybackSpeed(PlaybackSpeed2x));
  EXPECT_EQ(playback.GetPlaybackSpeed(), PlaybackSpeedStopped);
  EXPECT_EQ(playback.GetPlaybackTimeScnds(), 0U);
  playback.SetRewindTimeScnds(30);
  EXPECT_EQ(playback.GetRewindTimeScnds(), 0U);
  Memory::MemBlock piece;
  ASSERT_TRUE(piece.Resize(128));
  EXPECT_FALSE(playback.PlaybackData(piece));

  EXPECT_EQ(playback.GetPlaybackStatus(), GetParam());
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
  EXPECT_THAT(rig.gps.Deliveries(), IsEmpty());
}

TEST_P(PollingAnyStatus, ChecksAnOffsetUnlessItPlays) {
  PollingRig rig;
  Bring(rig);
  EXPECT_EQ(rig.playback.SetStartPlaybackOffsetScnds(10), GetParam() != PlaybackPlaying);
  EXPECT_FALSE(rig.playback.SetStartPlaybackOffsetScnds(11));
  EXPECT_EQ(rig.playback.GetStartPlaybackOffsetScnds(), 0U);
}

INSTANTIATE_TEST_SUITE_P(All, PollingAnyStatus,
                         testing::Values(PlaybackOff, PlaybackStarting, PlaybackPlaying,
                                         PlaybackFinished));

TEST(PollingOperations, PlaysFromTheFirstRecordWhateverTheOffset) {
  PollingRig rig;
  rig.Play(LongLog());
  rig.playback.StopPlayback(false);
  ASSERT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(5));
  rig.notifications.TakeIds();
  rig.Play(LongLog());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("first"));
}

TEST(PollingOperations, TakesAnOffsetUpToTheLengthOfTheLog) {
  PollingRig rig;
  rig.Play(LongLog());
  EXPECT_TRUE(rig.playback.IsValidPlaybackOffset(0));
  EXPECT_TRUE(rig.playback.IsValidPlaybackOffset(10));
  EXPECT_FALSE(rig.playback.IsValidPlaybackOffset(11));
  // The product with 1000 wraps at 32 bits: to 4294967000 and to 704.
  EXPECT_FALSE(rig.playback.IsValidPlaybackOffset(4294967));
  EXPECT_TRUE(rig.playback.IsValidPlaybackOffset(4294968));
}

TEST(PollingOperations, KnowsTheLogFromItsStartOn) {
  PollingRig rig;
  const LogBuilder log = LongLog();
  rig.Select();
  ASSERT_TRUE(rig.Insert(log.Build()));
  EXPECT_EQ(rig.playback.GetPlaybackLogLengthMs(), 0U);
  EXPECT_EQ(rig.playback.GetPlaybackLogSize(), 0U);
  EXPECT_TRUE(rig.playback.IsValidPlaybackOffset(0));
  EXPECT_FALSE(rig.playback.IsValidPlaybackOffset(1));

  ASSERT_TRUE(rig.Start());
  EXPECT_EQ(rig.playback.GetPlaybackLogLengthMs(), 10000U);
  EXPECT_EQ(rig.playback.GetPlaybackLogSize(), log.Size());
  rig.playback.StopPlayback(false);
  EXPECT_EQ(rig.playback.GetPlaybackLogLengthMs(), 10000U);
  EXPECT_EQ(rig.playback.GetPlaybackLogSize(), log.Size());
}

TEST(PollingOperations, ReplacesTheStreamWhileOff) {
  PollingRig rig;
  ASSERT_TRUE(rig.Insert(LongLog().Build()));
  const auto first = rig.stream;
  ASSERT_TRUE(rig.Insert(LongLog().Build()));
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_TRUE(rig.playback.SetInputStream(nullptr));
  EXPECT_TRUE(rig.IsStreamReleased());
}

TEST(PollingOperations, LetsTheStreamGoAtItsEnd) {
  const auto stream = std::make_shared<BytesInputStream>(LongLog().Build());
  {
    BinaryPlaybackPollingImpl playback;
    ASSERT_TRUE(playback.SetInputStream(stream));
  }
  EXPECT_EQ(stream.use_count(), 1);
}

TEST(PollingOperations, NotifiesNobodyAtItsEnd) {
  PollingRig rig;
  rig.Select();
  {
    BinaryPlaybackPollingImpl playback;
    ASSERT_TRUE(playback.SetInputStream(std::make_shared<BytesInputStream>(LongLog().Build())));
    ASSERT_TRUE(playback.StartPlayback(&rig.manager, &rig.notifications, rig.owner, L"Playback"));
  }
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStarted));
}

}  // namespace
}  // namespace kestrav::test
