#include <map>
#include <utility>

#include "unit/engine/engine_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

TEST_F(EngineTest, RegistersItsInfoClientFirstUnderTheFixedId) {
  std::vector<String> clients;
  EXPECT_TRUE(engine_.GetClientsList(clients));
  EXPECT_THAT(clients, ElementsAre(L"Info Client", L"GPS", L"CAN"));
  EXPECT_EQ(gps_.client_id, kGps);
  EXPECT_EQ(can_.client_id, kCan);
}

TEST_F(EngineTest, ListsTheClientsThatTheUserMayChoose) {
  EXPECT_TRUE(engine_.SelectForLogging(L"CAN"));
  std::map<String, bool> clients;
  EXPECT_TRUE(engine_.GetLoggingClientsList(clients));
  EXPECT_THAT(clients, ElementsAre(Pair(L"CAN", true), Pair(L"GPS", false)));
}

TEST(Engine, DoesNothingBeforeItsInit) {
  const ManualClock clock;
  RecordingClient gps(L"GPS");
  KestravImpl engine;
  EXPECT_TRUE(engine.RegisterClient(&gps));
  EXPECT_TRUE(engine.SelectForLogging(L"GPS"));
  EXPECT_FALSE(engine.StartLogging());
  EXPECT_FALSE(engine.IsLogging());
  EXPECT_FALSE(engine.StartPlayback());
  EXPECT_FALSE(engine.SetPeriodicEventDuration(1));
  EXPECT_EQ(engine.GetPlaybackStatus(), PlaybackOff);
}

TEST(Engine, CannotBeInitialisedWithoutAThreadModule) {
  const ManualClock clock;
  ThreadsUnderTest threads;
  KestravImpl engine;
  EXPECT_FALSE(engine.Init(nullptr, L"Eng"));
  std::vector<String> clients;
  EXPECT_TRUE(engine.GetClientsList(clients));
  EXPECT_THAT(clients, IsEmpty());
  EXPECT_TRUE(engine.Init(&threads, L"Eng"));
}

TEST_F(EngineTest, TakesASecondInitAsANewNameUnlessItRecords) {
  EXPECT_TRUE(engine_.Init(&threads_, L"Renamed"));
  Record();
  EXPECT_THAT(threads_.Names(), ElementsAre(L"Renamed-Logging"));
  EXPECT_FALSE(engine_.Init(&threads_, L"Too late"));
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  ASSERT_TRUE(engine_.SetLoggingOutputStream(std::make_shared<BytesOutputStream>()));
  EXPECT_TRUE(engine_.StartLogging());
  EXPECT_THAT(threads_.Names(), ElementsAre(L"Renamed-Logging", L"Renamed-Logging"));
}

TEST_F(EngineTest, DoesNotStartToRecordWithNothingSelected) {
  EXPECT_TRUE(engine_.SetLoggingOutputStream(stream_));
  EXPECT_FALSE(engine_.StartLogging());
  EXPECT_THAT(threads_.Names(), IsEmpty());
  EXPECT_FALSE(engine_.IsSelectedForLogging(12));
  EXPECT_EQ(engine_.GetLoggingStatus(), LoggingOff);
}

TEST_F(EngineTest, SelectsItsInfoClientWithTheFirstOtherClient) {
  EXPECT_FALSE(engine_.IsSelectedForLogging(12));
  Record();
  EXPECT_TRUE(engine_.IsSelectedForLogging(12));
  EXPECT_TRUE(engine_.IsSelectedForLogging(kGps));
  EXPECT_FALSE(engine_.IsSelectedForLogging(kCan));
  const ParsedLog log = ParseLog(stream_->Content());
  ASSERT_FALSE(log.records.empty());
  EXPECT_EQ(log.records[0].payload, DictionaryPayload({{"GPS", kGps}, {"Info Client", 12}}));
}

TEST_F(EngineTest, KeepsItsInfoClientSelectedWhenTheThreadCannotBeStarted) {
  EXPECT_TRUE(engine_.SelectForLogging(L"GPS"));
  threads_.Refuse(true);
  EXPECT_FALSE(engine_.StartLogging());
  EXPECT_FALSE(engine_.IsLogging());
  EXPECT_TRUE(engine_.IsSelectedForLogging(12));
}

TEST_F(EngineTest, RefusesASecondStart) {
  Record();
  EXPECT_FALSE(engine_.StartLogging());
  EXPECT_THAT(threads_.Names(), ElementsAre(L"Eng-Logging"));
}

TEST_F(EngineTest, RefusesAStopWhenItDoesNotRecord) {
  EXPECT_FALSE(engine_.StopLogging());
  Record();
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_FALSE(engine_.StopLogging());
  EXPECT_THAT(notifications_.TakeIds(), ElementsAre(0, 1, 9));
}

TEST_F(EngineTest, RecordsTheMessagesOfSelectedClientsAlone) {
  EXPECT_FALSE(engine_.WriteData(MakeMessage(kGps, 7, "nothing is selected")));
  EXPECT_TRUE(engine_.SelectForLogging(L"GPS"));
  EXPECT_FALSE(engine_.WriteData(MakeMessage(kGps, 7, "not recording")));
  Record();
  EXPECT_TRUE(engine_.WriteData(MakeMessage(kGps, 7, "recorded")));
  EXPECT_FALSE(engine_.WriteData(MakeMessage(kCan, 7, "not selected")));
  EXPECT_FALSE(engine_.WriteData(MakeMessage(64, 7, "an id beyond every set")));
  clock_->FailMs();
  EXPECT_FALSE(engine_.WriteData(MakeMessage(kGps, 7, "no time")));
  clock_->Recover();
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_FALSE(engine_.WriteData(MakeMessage(kGps, 7, "over")));
  EXPECT_THAT(ParseLog(stream_->Content()).PayloadsOf(kGps), ElementsAre("recorded"));
}

TEST_F(EngineTest, TakesOverTheCallersReferenceOnlyToAMessageThatItTakes) {
  SmartPtr::Ptr<ILogMessage> message = MakeMessage(kGps, 7, "moved");
  const ILogMessage* const before = message.get();
  EXPECT_FALSE(engine_.WriteData(std::move(message)));  // not selected
  EXPECT_TRUE(engine_.SelectForLogging(L"GPS"));
  EXPECT_FALSE(engine_.WriteData(std::move(message)));  // not recording
  Record();
  clock_->FailMs();
  EXPECT_FALSE(engine_.WriteData(std::move(message)));
  clock_->Recover();
  EXPECT_EQ(message.get(), before);
  EXPECT_EQ(message.use_count(), 1);
  EXPECT_TRUE(engine_.WriteData(std::move(message)));
  EXPECT_EQ(message, nullptr);
  EXPECT_FALSE(engine_.WriteData(std::move(message)));
  message = MakeMessage(kGps, 7, "shared");
  EXPECT_TRUE(engine_.WriteData(message));
  EXPECT_NE(message, nullptr);
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_THAT(ParseLog(stream_->Content()).PayloadsOf(kGps), ElementsAre("moved", "shared"));
}

TEST_F(EngineTest, RefusesEveryChangeOfWhatIsRecordedWhileItRecords) {
  Record();
  RecordingClient late(L"Late");
  EXPECT_FALSE(engine_.EnableEncryption(true));
  EXPECT_FALSE(engine_.SelectForLogging(L"CAN"));
  EXPECT_FALSE(engine_.ResetLoggingSelection());
  EXPECT_FALSE(engine_.ResetLoggingSelection(L"GPS"));
  EXPECT_FALSE(engine_.RegisterClient(&late));
  EXPECT_FALSE(engine_.SetLoggingOutputStream(std::make_shared<BytesOutputStream>()));
  EXPECT_EQ(late.client_id, kNoId);
  EXPECT_TRUE(engine_.IsSelectedForLogging(kGps));
  EXPECT_FALSE(engine_.IsSelectedForLogging(kCan));

  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_EQ(ParseLog(stream_->Content()).data_key, 0);
  EXPECT_TRUE(engine_.EnableEncryption(true));
  EXPECT_TRUE(engine_.SelectForLogging(L"CAN"));
  EXPECT_TRUE(engine_.ResetLoggingSelection(L"CAN"));
  EXPECT_FALSE(engine_.ResetLoggingSelection(L"Nobody"));
  EXPECT_TRUE(engine_.ResetLoggingSelection());
  EXPECT_TRUE(engine_.RegisterClient(&late));
  EXPECT_FALSE(engine_.IsSelectedForLogging(kGps));
}

TEST_F(EngineTest, RefusesChangesAlsoWhileTheRecordingThreadStarts) {
  threads_.Hold();
  EXPECT_TRUE(engine_.SelectForLogging(L"GPS"));
  EXPECT_TRUE(engine_.SetLoggingOutputStream(stream_));
  EXPECT_TRUE(engine_.StartLogging());
  EXPECT_EQ(engine_.GetLoggingStatus(), LoggingStarting);
  EXPECT_FALSE(engine_.SelectForLogging(L"CAN"));
  EXPECT_TRUE(engine_.WriteData(MakeMessage(kGps, 7, "queued")));
  threads_.Release();
  clock_->Settle();
  EXPECT_THAT(ParseLog(stream_->Content()).PayloadsOf(kGps), ElementsAre("queued"));
}

TEST_F(EngineTest, PassesControlStringsOnWhateverItDoes) {
  EXPECT_FALSE(engine_.SendControlStringToClient(L"Nobody", L"x"));
  EXPECT_TRUE(engine_.SendControlStringToClient(L"GPS", L"idle"));
  Record();
  EXPECT_TRUE(engine_.SendControlStringToClient(L"GPS", L"recording"));
  Play(PlaybackModeNormal);
  gps_.takes_controls = false;
  EXPECT_TRUE(engine_.SendControlStringToClient(L"GPS", L"both"));
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"idle", L"recording", L"both"));
}

TEST_F(EngineTest, TakesAnOutputStreamWhileItPlays) {
  Play(PlaybackModeNormal);
  EXPECT_TRUE(engine_.SetLoggingOutputStream(stream_));
}

TEST_F(EngineTest, StopsTheRecordingWhenNoSelectedClientIsLeft) {
  Record();
  EXPECT_TRUE(engine_.UnRegisterClient(&gps_));
  clock_->Settle();
  EXPECT_TRUE(engine_.IsLogging());  // the info client is selected still
  EXPECT_TRUE(engine_.UnRegisterClient(L"Info Client"));
  clock_->Settle();
  EXPECT_FALSE(engine_.IsLogging());
  EXPECT_THAT(notifications_.TakeIds(), ElementsAre(0, 1, 9));
  clock_->Advance(5'000);
  EXPECT_THAT(notifications_.TakeIds(), IsEmpty());
}

TEST_F(EngineTest, StopsAPlaybackWithoutSelectedClientsAlsoWhenTheUnregistrationFails) {
  Play(PlaybackModeNormal);
  EXPECT_FALSE(engine_.UnRegisterClient(L"Nobody"));
  clock_->Settle();
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackPlaying);
  EXPECT_TRUE(engine_.UnRegisterClient(L"GPS"));
  clock_->Settle();
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
}

// The registry answers false for a client that it does not know; what has nobody left to serve is
// stopped all the same.
TEST_F(EngineTest, StopsWhatHasNobodyToServeThoughTheClientWasNotKnown) {
  RecordingClient stranger(L"Stranger");
  EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePassThrough));
  EXPECT_TRUE(engine_.StartPlayback());
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackStarting);
  EXPECT_FALSE(engine_.UnRegisterClient(&stranger));
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
  EXPECT_TRUE(engine_.StartPlayback());
  EXPECT_FALSE(engine_.UnRegisterClient(L"Stranger"));
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
}

TEST_F(EngineTest, RefusesToRegisterAClientWhilePlaybackIsNotOff) {
  Play(PlaybackModeNormal);
  RecordingClient late(L"Late");
  EXPECT_FALSE(engine_.RegisterClient(&late));
  EXPECT_TRUE(engine_.PausePlayback());
  clock_->Settle();
  EXPECT_FALSE(engine_.RegisterClient(&late));
  engine_.StopPlayback(true);
  EXPECT_TRUE(engine_.RegisterClient(&late));
}

TEST_F(EngineTest, CanBeStartedAgainFromInsideTheNotificationOfTheEnd) {
  const auto second = std::make_shared<BytesOutputStream>();
  int ends = 0;
  on_notification_ = [&](const NotificationInfo& info) {
    if (info.id != NotifyLoggingFinished || ++ends > 1) return;
    EXPECT_TRUE(engine_.SetLoggingOutputStream(second));
    EXPECT_TRUE(engine_.StartLogging());
  };
  Record();
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_TRUE(engine_.WriteData(MakeMessage(kGps, 7, "second log")));
  EXPECT_TRUE(engine_.StopLogging());
  clock_->Settle();
  EXPECT_THAT(notifications_.TakeIds(), ElementsAre(0, 1, 9, 0, 1, 9));
  EXPECT_THAT(ParseLog(second->Content()).PayloadsOf(kGps), ElementsAre("second log"));
}

TEST_F(EngineTest, FinishesTheLogAndTellsOfItWhenItIsDestroyedWhileRecording) {
  NotificationLog notifications;
  {
    KestravImpl engine;
    RecordingClient gps(L"GPS");
    ASSERT_TRUE(engine.Init(&threads_, L"Short"));
    ASSERT_TRUE(engine.RegisterClient(&gps));
    ASSERT_TRUE(engine.SelectForLogging(L"GPS"));
    ASSERT_TRUE(engine.SetLoggingOutputStream(stream_));
    const auto observer = [&](const NotificationInfo& info) {
      notifications.SendNotification(info);
    };
    ASSERT_NE(engine.notifier.Connect(observer), 0u);
    ASSERT_TRUE(engine.StartLogging());
    clock_->Settle();
    EXPECT_TRUE(engine.WriteData(MakeMessage(kGps, 7, "last words")));
  }
  EXPECT_THAT(notifications.TakeIds(), ElementsAre(0, 1, 9));
  const ParsedLog log = ParseLog(stream_->Content());
  EXPECT_EQ(log.error, "");
  EXPECT_EQ(log.stream_length, stream_->Content().size());
  EXPECT_THAT(log.PayloadsOf(kGps), ElementsAre("last words"));
  clock_->Advance(5'000);  // no timer is left
  EXPECT_THAT(notifications.TakeIds(), IsEmpty());
}

}  // namespace
}  // namespace kestrav::test
