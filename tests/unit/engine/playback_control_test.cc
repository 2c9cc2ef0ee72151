#include "unit/engine/engine_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(EngineTest, RefusesModesThatDoNotExistAndKeepsItsPlayback) {
  Open(PlaybackModePolling);
  EXPECT_FALSE(engine_.SetPlaybackMode(static_cast<PlaybackModeType>(3)));
  EXPECT_FALSE(engine_.SetPlaybackMode(PlaybackModeNone));
  EXPECT_TRUE(engine_.StartPlayback());
  EXPECT_TRUE(engine_.PlaybackNextMessage());
  EXPECT_EQ(gps_.Deliveries().size(), 1u);
}

// Nothing implements it, and nothing remains: every playback operation is then refused.
TEST_F(EngineTest, HasNoPlaybackAfterAModeBelowTheFirst) {
  EXPECT_FALSE(engine_.SetPlaybackMode(static_cast<PlaybackModeType>(-1)));
  EXPECT_FALSE(engine_.SetPlaybackInputStream(std::make_shared<BytesInputStream>(LogWith({}))));
  EXPECT_FALSE(engine_.StartPlayback());
  EXPECT_FALSE(engine_.SetPeriodicEventDuration(1));
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
  EXPECT_EQ(engine_.GetPlaybackLogLengthMs(), 0u);
  engine_.StopPlayback(true);
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModeNormal));
  Play(PlaybackModeNormal);
}

TEST_F(EngineTest, KeepsTheInputStreamWhenTheModeIsSetAgain) {
  Open(PlaybackModePolling);
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
  EXPECT_TRUE(engine_.StartPlayback());
}

TEST_F(EngineTest, LosesTheInputStreamAndTheSettingsWithTheMode) {
  Open(PlaybackModeNormal);
  EXPECT_TRUE(engine_.SetStartPlaybackOffsetScnds(5));
  EXPECT_EQ(engine_.GetStartPlaybackOffsetScnds(), 5u);
  engine_.SetPlaybackRewindTimeScnds(77);
  EXPECT_EQ(engine_.GetPlaybackRewindTimeScnds(), 77u);
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
  EXPECT_FALSE(engine_.StartPlayback());
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModeNormal));
  EXPECT_EQ(engine_.GetStartPlaybackOffsetScnds(), 0u);
  EXPECT_NE(engine_.GetPlaybackRewindTimeScnds(), 77u);
}

TEST_F(EngineTest, EndsARunningPlaybackThatIsReplaced) {
  Play(PlaybackModeNormal);
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
  clock_->Advance(120'000);
  EXPECT_EQ(gps_.Deliveries().size(), 1u);
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
}

TEST_F(EngineTest, DoesNotReplaceAPlaybackOnThePlaybackThread) {
  std::vector<bool> replaced;
  const auto replace = [&] { replaced.push_back(engine_.SetPlaybackMode(PlaybackModePolling)); };
  gps_.on_delivery = [&](const ILogMessage&) {
    replace();
    return true;
  };
  on_notification_ = [&](const NotificationInfo& info) {
    if (info.id == NotifyEndOfLog) replace();
  };
  Play(PlaybackModeNormal);
  EXPECT_THAT(replaced, ElementsAre(false));
  clock_->Advance(60'000);
  EXPECT_THAT(replaced, ElementsAre(false, false, false)) << "two deliveries and the end";
  EXPECT_TRUE(engine_.StartPlayback()) << "the playback is the same";
  clock_->Advance(60'000);
  EXPECT_EQ(gps_.Deliveries().size(), 4u);
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
}

TEST_F(EngineTest, EndsARunningPlaybackWhenItIsDestroyed) {
  RecordingClient gps(L"GPS");
  {
    KestravImpl engine;
    ASSERT_TRUE(engine.Init(&threads_, L"Short"));
    ASSERT_TRUE(engine.RegisterClient(&gps));
    const auto stream = std::make_shared<BytesInputStream>(LogWith({1000, 2000}));
    ASSERT_TRUE(engine.SetPlaybackInputStream(stream));
    unsigned int length_ms = 0;
    unsigned int size = 0;
    std::vector<String> clients;
    ASSERT_TRUE(engine.GetPlaybackAttributes(length_ms, size, clients));
    ASSERT_TRUE(engine.SelectForPlayback(L"GPS"));
    ASSERT_TRUE(engine.StartPlayback());
    clock_->Settle();
  }
  clock_->Advance(60'000);
  EXPECT_EQ(gps.Deliveries().size(), 1u);
}

TEST_F(EngineTest, NamesThePlaybackThreadAfterItself) {
  Play(PlaybackModeNormal);
  EXPECT_THAT(threads_.Names(), ElementsAre(L"Eng-Playback"));
}

TEST_F(EngineTest, RefusesToStartAPlaybackThatPlaysAndStartsOneThatIsPausedOrFinished) {
  Play(PlaybackModeNormal);
  EXPECT_FALSE(engine_.StartPlayback());
  EXPECT_TRUE(engine_.PausePlayback());
  clock_->Settle();
  ASSERT_EQ(engine_.GetPlaybackStatus(), PlaybackPaused);
  EXPECT_TRUE(engine_.StartPlayback());
  clock_->Advance(60'000);
  ASSERT_EQ(engine_.GetPlaybackStatus(), PlaybackFinished);
  EXPECT_EQ(gps_.Deliveries().size(), 2u);
  EXPECT_TRUE(engine_.StartPlayback());
  clock_->Settle();
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackPlaying);
  EXPECT_EQ(gps_.Deliveries().size(), 3u);
}

TEST_F(EngineTest, DoesNotStartAPlaybackWithoutSelectionOrStream) {
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
  EXPECT_FALSE(engine_.StartPlayback());
  Open(PlaybackModePolling);
  EXPECT_TRUE(engine_.ResetPlaybackSelection());
  EXPECT_FALSE(engine_.StartPlayback());
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
  EXPECT_THAT(notifications_.TakeIds(), IsEmpty());
}

TEST_F(EngineTest, DoesNothingWhenAPlaybackThatIsOffIsStopped) {
  Open(PlaybackModePolling);
  engine_.StopPlayback(false);
  engine_.StopPlayback(true);
  EXPECT_THAT(notifications_.TakeIds(), IsEmpty());
  EXPECT_TRUE(engine_.StartPlayback());  // the stream is still there
}

TEST_F(EngineTest, ChangesThePlaybackSelectionOnlyWhilePlaybackIsOff) {
  Play(PlaybackModePolling);
  EXPECT_FALSE(engine_.SelectForPlayback(L"GPS"));
  EXPECT_FALSE(engine_.ResetPlaybackSelection());
  EXPECT_TRUE(engine_.IsSelectedForPlayback(kGps));
  engine_.StopPlayback(false);
  EXPECT_FALSE(engine_.SelectForPlayback(L"CAN"));  // not in the log
  EXPECT_TRUE(engine_.SelectForPlayback(L"GPS"));
  EXPECT_TRUE(engine_.ResetPlaybackSelection());
  EXPECT_FALSE(engine_.IsSelectedForPlayback(kGps));
}

TEST_F(EngineTest, RewindsOnlyAPlaybackThatIsNotOff) {
  Open(PlaybackModeNormal);
  EXPECT_FALSE(engine_.RewindPlayback());
  EXPECT_TRUE(engine_.StartPlayback());
  clock_->Advance(10'000);
  EXPECT_TRUE(engine_.RewindPlayback());
}

TEST_F(EngineTest, AnswersFalseOrZeroForWhatPollingPlaybackCannotDo) {
  Play(PlaybackModePolling);
  EXPECT_FALSE(engine_.FastForwardPlayback());
  EXPECT_FALSE(engine_.PausePlayback());
  EXPECT_FALSE(engine_.ResumePlayback());
  EXPECT_FALSE(engine_.RewindPlayback());
  EXPECT_FALSE(engine_.SetStartPlaybackSpeed(PlaybackSpeed2x));
  EXPECT_FALSE(engine_.PlaybackData(Memory::MemBlock()));
  EXPECT_EQ(engine_.GetPlaybackSpeed(), PlaybackSpeedStopped);
  EXPECT_EQ(engine_.GetPlaybackTimeScnds(), 0u);
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackPlaying);
}

TEST_F(EngineTest, ForwardsWhatTheLogSaysAboutItself) {
  Open(PlaybackModePolling);
  EXPECT_EQ(engine_.GetPlaybackLogLengthMs(), 60'000u);
  EXPECT_EQ(engine_.GetPlaybackLogSize(), LogWith({1000, 61'000}).size());
  EXPECT_TRUE(engine_.IsValidPlaybackOffset(60));
  EXPECT_FALSE(engine_.IsValidPlaybackOffset(61));
}

TEST_F(EngineTest, TellsOfPeriodsInPollingPlaybackAlone) {
  EXPECT_FALSE(engine_.SetPeriodicEventDuration(1000));
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePassThrough));
  EXPECT_FALSE(engine_.SetPeriodicEventDuration(1000));
  Open(PlaybackModePolling, {1000, 3500});
  EXPECT_TRUE(engine_.StartPlayback());
  EXPECT_TRUE(engine_.PlaybackNextMessage());
  EXPECT_TRUE(engine_.SetPeriodicEventDuration(1000));
  notifications_.TakeIds();
  EXPECT_TRUE(engine_.PlaybackNextMessage());
  EXPECT_THAT(notifications_.TakeIds(), ElementsAre(13, 13, 13));  // 1000, 2000, 3000
}

// What a log must hold to be opened.
struct AttributeCase {
  const char* name;
  Bytes log;
  bool opens;
  std::vector<String> clients;
};

void PrintTo(const AttributeCase& log, std::ostream* out) { *out << log.name; }

class EngineAttributesTest : public EngineTest,
                             public ::testing::WithParamInterface<AttributeCase> {};

TEST_P(EngineAttributesTest, EmptiesTheSelectionAndTellsWhoIsInTheLog) {
  Open(PlaybackModePolling);
  ASSERT_TRUE(engine_.IsSelectedForPlayback(kGps));
  ASSERT_TRUE(engine_.SetPlaybackInputStream(std::make_shared<BytesInputStream>(GetParam().log)));
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  EXPECT_EQ(engine_.GetPlaybackAttributes(length_ms, size, clients), GetParam().opens);
  EXPECT_FALSE(engine_.IsSelectedForPlayback(kGps));
  EXPECT_EQ(clients, GetParam().clients);
}

LogBuilder Header(std::uint16_t selection) {
  LogBuilder log;
  log.StartClock(1000).Duration(2000).Selection(selection);
  return log;
}

INSTANTIATE_TEST_SUITE_P(
    Logs, EngineAttributesTest,
    ::testing::Values(
        AttributeCase{
            "WithADictionary", Header(8).Dictionary({{"GPS", 3}}, 1000).Build(), true, {L"GPS"}},
        AttributeCase{
            "OfUnknownClients", Header(8).Dictionary({{"Old", 3}}, 1000).Build(), false, {}},
        AttributeCase{"WithoutADictionaryAndWithoutAMask",
                      Header(0).Record(3, 7, 1000, "x").Build(),
                      false,
                      {}},
        AttributeCase{"WithABrokenDictionary",
                      Header(8).Record(12, 1200, 1000, std::string(6, '\0')).Build(),
                      false,
                      {}},
        AttributeCase{"WithoutARecord", Header(8).Build(), false, {}},
        AttributeCase{"OfLengthZero",
                      Header(8).Dictionary({{"GPS", 3}}, 1000).Zero(16, 4).Build(),
                      false,
                      {}},
        AttributeCase{"ThatIsNone", Bytes(500, 0x4C), false, {}},
        AttributeCase{"ThatIsEmpty", Bytes(), false, {}}),
    [](const auto& log) { return log.param.name; });

TEST_F(EngineTest, DoesNotOpenALogWhileItPlays) {
  Play(PlaybackModePolling);
  unsigned int length_ms = 1;
  unsigned int size = 2;
  std::vector<String> clients{L"untouched"};
  EXPECT_FALSE(engine_.GetPlaybackAttributes(length_ms, size, clients));
  EXPECT_EQ(length_ms, 1u);
  EXPECT_EQ(size, 2u);
  EXPECT_THAT(clients, ElementsAre(L"untouched"));
  EXPECT_TRUE(engine_.IsSelectedForPlayback(kGps));
}

TEST_F(EngineTest, TellsLengthAndSizeOfALog) {
  Open(PlaybackModeNormal);
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  EXPECT_TRUE(engine_.GetPlaybackAttributes(length_ms, size, clients));
  EXPECT_EQ(length_ms, 60'000u);
  EXPECT_EQ(size, LogWith({1000, 61'000}).size());
}

// The search wants the id under which the client is registered now.
TEST_F(EngineTest, SearchesALogForClientsInItWhileItDoesNotPlay) {
  LogBuilder log;
  log.StartClock(1000).Duration(9000).Selection(0x1000);
  log.Dictionary({{"GPS", kGps}, {"Info Client", 12}}, 1000).Record(kGps, 7, 2000, "found");
  const auto stream = std::make_shared<BytesInputStream>(log.Build());
  ASSERT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
  ASSERT_TRUE(engine_.SetPlaybackInputStream(stream));
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  ASSERT_TRUE(engine_.GetPlaybackAttributes(length_ms, size, clients));
  ASSERT_TRUE(engine_.SelectForPlayback(L"GPS"));

  Memory::MemBlock data;
  EXPECT_FALSE(engine_.SearchAndGetClientData(data, L"CAN", 7, 5));
  EXPECT_FALSE(engine_.SearchAndGetClientData(data, L"Nobody", 7, 5));
  EXPECT_FALSE(engine_.SearchAndGetClientData(data, L"GPS", 8, 5));
  EXPECT_TRUE(data.IsEmpty());
  EXPECT_TRUE(engine_.SearchAndGetClientData(data, L"GPS", 7, 5));
  EXPECT_EQ(std::string(data.Data(), data.Data() + data.Size()), "found");

  EXPECT_TRUE(engine_.StartPlayback());
  EXPECT_FALSE(engine_.SearchAndGetClientData(data, L"GPS", 7, 5));
}

}  // namespace
}  // namespace kestrav::test
