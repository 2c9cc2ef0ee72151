#include <thread>

#include "unit/engine/engine_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr int kRecording = 10;
constexpr int kPlaying = 11;

TEST_F(EngineTest, TellsTheRecordingTimeEverySecondUntilItStops) {
  Record();
  clock_->Advance(999);
  EXPECT_THAT(TakeTimes(), IsEmpty());
  clock_->Advance(1);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1)));
  EXPECT_EQ(engine_.GetRecordingTimeScnds(), 1u);
  clock_->Advance(2'999);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 2), Pair(kRecording, 3)));
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Advance(10'000);
  EXPECT_THAT(TakeTimes(), IsEmpty());
  EXPECT_EQ(engine_.GetRecordingTimeScnds(), 0u);
}

TEST_F(EngineTest, SendsTimesWithoutClientsAndSpeed) {
  Record();
  notifications_.TakeIds();
  clock_->Advance(1'000);
  const std::vector<NotificationInfo> all = notifications_.All();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_TRUE(all[0].clients.IsEmpty());
  EXPECT_EQ(all[0].speed, PlaybackSpeedNone);
}

TEST_F(EngineTest, TellsThePlaybackTimeEverySecondUntilItStops) {
  Play(PlaybackModeNormal);
  clock_->Advance(2'500);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kPlaying, 1), Pair(kPlaying, 2)));
  engine_.StopPlayback(true);
  clock_->Advance(10'000);
  EXPECT_THAT(TakeTimes(), IsEmpty());
}

TEST_F(EngineTest, TellsRecordingTimeBeforePlaybackTimeInOneTick) {
  Record();
  clock_->Advance(300);
  Play(PlaybackModeNormal);
  clock_->Advance(700);
  // The playback is 0.7 s old.
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1), Pair(kPlaying, 1)));

  engine_.StopPlayback(true);
  clock_->Advance(1'000);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 2)));
  Play(PlaybackModeNormal);
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Advance(1'000);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kPlaying, 1)));
  engine_.StopPlayback(true);
  clock_->Advance(5'000);
  EXPECT_THAT(TakeTimes(), IsEmpty());
}

TEST_F(EngineTest, CountsEveryStartOfTheTimerAndSetsItOnce) {
  Record();
  EXPECT_TRUE(engine_.StartUpdateTimer());
  clock_->Advance(1'000);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1)));
  engine_.StopUpdateTimer();
  clock_->Advance(1'000);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 2)));
  engine_.StopUpdateTimer();
  clock_->Advance(5'000);
  EXPECT_THAT(TakeTimes(), IsEmpty());
}

// A tally of starts and stops, not of what runs: the second start leaves the timer with a user when
// the playback stops, and a recording is then told its time at the old beat.
TEST_F(EngineTest, CountsAStartThatResumesAPlaybackAsAnotherUserOfTheTimer) {
  Play(PlaybackModeNormal);
  EXPECT_TRUE(engine_.PausePlayback());
  clock_->Settle();
  EXPECT_TRUE(engine_.StartPlayback());
  engine_.StopPlayback(true);
  clock_->Advance(500);
  Record();
  clock_->Advance(500);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1)));
}

TEST_F(EngineTest, IgnoresAStopOfTheTimerThatNobodyUses) {
  engine_.StopUpdateTimer();
  EXPECT_FALSE(engine_.StopLogging());
  engine_.StopPlayback(true);
  Record();
  clock_->Advance(1'000);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1)));
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_FALSE(engine_.StopLogging());
  engine_.StopUpdateTimer();
  EXPECT_TRUE(engine_.StartUpdateTimer());
}

TEST_F(EngineTest, CannotStartTheTimerWithoutAClock) {
  clock_->FailMs();
  EXPECT_FALSE(engine_.StartUpdateTimer());
  clock_->Recover();
  EXPECT_TRUE(engine_.StartUpdateTimer());
}

class CallerPacedEngineTest : public EngineTest,
                              public ::testing::WithParamInterface<PlaybackModeType> {
 protected:
  void Start() {
    if (GetParam() == PlaybackModePolling) {
      Open(PlaybackModePolling);
    } else {
      EXPECT_TRUE(engine_.SetPlaybackMode(GetParam()));
    }
    EXPECT_TRUE(engine_.StartPlayback());
    EXPECT_NE(engine_.GetPlaybackStatus(), PlaybackOff);
  }
};

TEST_P(CallerPacedEngineTest, NeedsNoTimer) {
  Start();
  clock_->Advance(5'000);
  EXPECT_THAT(TakeTimes(), IsEmpty());
}

// Its start takes no hold on the timer and its stop drops one, the recording's.
TEST_P(CallerPacedEngineTest, TakesTheTimeOfARecordingAwayWhenItStops) {
  Record();
  Start();
  clock_->Advance(1'000);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1), Pair(kPlaying, 0)));
  engine_.StopPlayback(false);
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
  clock_->Advance(5'000);
  EXPECT_THAT(TakeTimes(), IsEmpty());
  EXPECT_TRUE(engine_.IsLogging());
  EXPECT_EQ(engine_.GetRecordingTimeScnds(), 6u);
}

INSTANTIATE_TEST_SUITE_P(Modes, CallerPacedEngineTest,
                         ::testing::Values(PlaybackModePolling, PlaybackModePassThrough));

TEST_F(EngineTest, MayBeStoppedFromInsideATimeNotification) {
  on_notification_ = [this](const NotificationInfo& info) {
    if (info.id == NotifyRecordingTime) engine_.StopLogging();
  };
  Record();
  clock_->Advance(5'000);
  EXPECT_THAT(notifications_.TakeIds(), ElementsAre(0, 10, 1, 9));
}

TEST_F(EngineTest, TicksFromTheMomentOfEachStart) {
  Record();
  clock_->Advance(1'700);
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  TakeTimes();
  stream_ = std::make_shared<BytesOutputStream>();
  Record();
  clock_->Advance(999);
  EXPECT_THAT(TakeTimes(), IsEmpty());
  clock_->Advance(1);
  EXPECT_THAT(TakeTimes(), ElementsAre(Pair(kRecording, 1)));
}

TEST_F(EngineTest, CallsAllObserversOnTheThreadThatSends) {
  std::vector<int> order;
  std::thread::id sender;
  const std::uint32_t first = engine_.notifier.Connect([&](const NotificationInfo& info) {
    order.push_back(static_cast<int>(info.value));
    sender = std::this_thread::get_id();
  });
  ASSERT_NE(engine_.notifier.Connect([&](const NotificationInfo&) { order.push_back(-1); }), 0u);
  engine_.SendNotification({NotifyPeriodicEvent, 4u});
  EXPECT_THAT(order, ElementsAre(4, -1));
  EXPECT_EQ(sender, std::this_thread::get_id());
  EXPECT_TRUE(engine_.notifier.Disconnect(first));
  engine_.SendNotification({NotifyPeriodicEvent, 5u});
  EXPECT_THAT(order, ElementsAre(4, -1, -1));
}

}  // namespace
}  // namespace kestrav::test
