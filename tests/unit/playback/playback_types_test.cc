#include "kestrav/types/playback_types.h"

#include <gtest/gtest.h>

#include <memory>

#include "kestrav/host/thread/thread_module.h"
#include "kestrav/playback/binary_playback.h"

namespace kestrav::test {
namespace {

// Applications and stored settings know these by value.
static_assert(PlaybackModeNormal == 0 && PlaybackModePolling == 1 && PlaybackModePassThrough == 2);
static_assert(PlaybackOff == 0 && PlaybackStarting == 1 && PlaybackPlaying == 2);
static_assert(PlaybackPaused == 3 && PlaybackRewinding == 4 && PlaybackFinished == 5);
static_assert(PlaybackSpeedStopped == 0 && PlaybackSpeed1x == 1 && PlaybackSpeed2x == 2);
static_assert(PlaybackSpeed4x == 4 && PlaybackSpeed10x == 10);
static_assert(sizeof(PlaybackModeType) == 4 && sizeof(PlaybackStatusType) == 4 &&
              sizeof(PlaybackSpeedType) == 4);

// A mode that has nothing but what every mode must have.
class BarePlayback final : public IBinaryPlayback {
 public:
  PlaybackStatusType GetPlaybackStatus() const override { return status_; }
  bool StartPlayback(ClientManager*, INotificationSink*, Thread::ThreadModule&,
                     const String&) override {
    return true;
  }
  void SetPlaybackStatus(const PlaybackStatusType& status) override { status_ = status; }
  void StopPlayback(bool) override {}
};

TEST(PlaybackDefaults, AnswerFalseToWhatWouldChangeThePlayback) {
  BarePlayback playback;
  EXPECT_FALSE(playback.FastForward());
  EXPECT_FALSE(playback.PausePlayback());
  EXPECT_FALSE(playback.PlaybackNextMessage());
  EXPECT_FALSE(playback.ResumePlayback());
  EXPECT_FALSE(playback.RewindPlayback());
  EXPECT_FALSE(playback.SetInputStream(nullptr));
  EXPECT_FALSE(playback.SetStartPlaybackOffsetScnds(0));
  EXPECT_FALSE(playback.SetStartPlaybackSpeed(PlaybackSpeed1x));
  EXPECT_FALSE(playback.SetPeriodicEventDuration(1000));
  EXPECT_FALSE(playback.PlaybackData(Memory::MemBlock()));
  EXPECT_EQ(playback.GetPlaybackStatus(), PlaybackOff);
}

TEST(PlaybackDefaults, AnswerNothingToQuestions) {
  BarePlayback playback;
  playback.SetRewindTimeScnds(30);
  EXPECT_EQ(playback.GetRewindTimeScnds(), 0U);
  EXPECT_EQ(playback.GetPlaybackLogLengthMs(), 0U);
  EXPECT_EQ(playback.GetPlaybackLogSize(), 0U);
  EXPECT_EQ(playback.GetPlaybackSpeed(), PlaybackSpeedStopped);
  EXPECT_EQ(playback.GetPlaybackTimeScnds(), 0U);
  EXPECT_EQ(playback.GetStartPlaybackOffsetScnds(), 0U);
  EXPECT_FALSE(playback.IsValidPlaybackOffset(0));
}

TEST(PlaybackDefaults, SetTheAttributesToZeroAndLeaveTheData) {
  const BarePlayback playback;
  std::uint32_t length_ms = 1;
  std::uint32_t size = 2;
  std::uint16_t mask = 3;
  Memory::MemBlock data;
  ASSERT_TRUE(data.Resize(4));
  EXPECT_FALSE(playback.GetPlaybackAttributes(length_ms, size, mask, data, 12));
  EXPECT_EQ(length_ms, 0U);
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(mask, 0U);
  EXPECT_EQ(data.Size(), 4U);
}

TEST(PlaybackDefaults, FindNoClientData) {
  const BarePlayback playback;
  Memory::MemBlock data;
  ASSERT_TRUE(data.Resize(4));
  EXPECT_FALSE(playback.SearchAndGetClientData(data, 12, 1200, 0));
  EXPECT_EQ(data.Size(), 4U);
}

class PlaybackOffStatus : public testing::TestWithParam<PlaybackStatusType> {};

TEST_P(PlaybackOffStatus, IsTheOnlyOneThatIsOff) {
  BarePlayback playback;
  playback.SetPlaybackStatus(GetParam());
  EXPECT_EQ(playback.IsPlaybackOff(), GetParam() == PlaybackOff);
}

INSTANTIATE_TEST_SUITE_P(All, PlaybackOffStatus,
                         testing::Values(PlaybackOff, PlaybackStarting, PlaybackPlaying,
                                         PlaybackPaused, PlaybackRewinding, PlaybackFinished));

}  // namespace
}  // namespace kestrav::test
