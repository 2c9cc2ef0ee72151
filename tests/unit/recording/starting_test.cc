#include "support/short_memory.h"
#include "unit/recording/logger_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(BinaryLoggerTest, IsOffAfterConstructionAndTakesNothing) {
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_FALSE(logger_.IsLogging());
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
  EXPECT_FALSE(Write("early"));
  clock_->Settle();
  EXPECT_EQ(stream_->Writes(), 0);
}

TEST_F(BinaryLoggerTest, RefusesToStartWithoutEngineRegistryOrInfoClient) {
  EXPECT_FALSE(logger_.StartLogging(threads_, nullptr, &clients_, &info_client_, L"T"));
  EXPECT_FALSE(logger_.StartLogging(threads_, &sink_, nullptr, &info_client_, L"T"));
  EXPECT_FALSE(logger_.StartLogging(threads_, &sink_, &clients_, nullptr, L"T"));
  EXPECT_THAT(threads_.Names(), IsEmpty());
  EXPECT_FALSE(logger_.IsLogging());
}

TEST_F(BinaryLoggerTest, RefusesToStartWithoutAThreadNameOrAThread) {
  EXPECT_FALSE(logger_.StartLogging(threads_, &sink_, &clients_, &info_client_, L""));
  EXPECT_THAT(threads_.Names(), IsEmpty());
  threads_.Refuse(true);
  EXPECT_FALSE(StartLogging());
  EXPECT_FALSE(logger_.IsLogging());
  EXPECT_FALSE(Write("nobody writes it"));

  threads_.Refuse(false);
  EXPECT_TRUE(StartLogging());
  EXPECT_THAT(threads_.Names(), ElementsAre(L"Test-Logging", L"Test-Logging"));
}

TEST_F(BinaryLoggerTest, GoesFromOffOverStartingToRunningAndBack) {
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingStarting);
  EXPECT_TRUE(logger_.IsLogging());
  threads_.Release();
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingRunning);
  EXPECT_TRUE(logger_.IsLogging());
  Finish();
  EXPECT_FALSE(logger_.IsLogging());
}

TEST_F(BinaryLoggerTest, RefusesASecondStartInBothStatesOfARecording) {
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_FALSE(StartLogging());
  threads_.Release();
  clock_->Settle();
  EXPECT_FALSE(StartLogging());
  EXPECT_EQ(threads_.Names().size(), 1u);
  Finish();
  EXPECT_THAT(Log().records, ElementsAre(DictionaryAt(1000), SelectionAt(1000)));
}

TEST_F(BinaryLoggerTest, StartsTheLogWithHeaderDictionaryAndSelection) {
  clock_->Advance(234);
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  const ParsedLog log = Log();
  EXPECT_EQ(log.start_time, 1'000'000'000u);
  EXPECT_EQ(log.selection, 0x9000u);  // id 12, and the mark that id 21 does not fit
  EXPECT_EQ(log.start_clock, 1234u);
  EXPECT_EQ(log.clock_rate, 1000u);
  EXPECT_EQ(log.duration_ms, 0u);
  EXPECT_EQ(log.stream_length, 0u);
  EXPECT_THAT(log.records, ElementsAre(DictionaryAt(1234), SelectionAt(1234)));
}

TEST_F(BinaryLoggerTest, WritesMessagesQueuedBeforeTheThreadRanBetweenHeaderAndDictionary) {
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_TRUE(Write("first"));
  clock_->MoveTo(30);
  EXPECT_TRUE(Write("second"));
  clock_->MoveTo(80);
  EXPECT_EQ(stream_->Writes(), 0);
  threads_.Release();
  clock_->Settle();
  EXPECT_TRUE(Write("third"));
  clock_->Settle();
  const ParsedLog log = Log();
  EXPECT_EQ(log.start_clock, 1080u);
  EXPECT_THAT(log.records, ElementsAre(ParsedRecord{kGps, 7, 1000, "first"},
                                       ParsedRecord{kGps, 7, 1030, "second"}, DictionaryAt(1080),
                                       SelectionAt(1080), ParsedRecord{kGps, 7, 1080, "third"}));
}

TEST_F(BinaryLoggerTest, TellsOfTheStartOnceTheLogRuns) {
  std::int32_t status = -1;
  std::size_t length = 0;
  bool accepted = false;
  sink_.on_notification = [&](const NotificationInfo& info) {
    if (info.id != NotifyLoggingStarted) return;
    status = logger_.GetLoggingStatus();
    length = stream_->Content().size();
    accepted = Write("from the observer");
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(status, LoggingRunning);
  EXPECT_GE(length, 128u);
  EXPECT_TRUE(accepted);
  ASSERT_EQ(sink_.log.All().size(), 1u);
  EXPECT_EQ(sink_.log.All()[0].clients.Mask(), kSelected);
  EXPECT_EQ(sink_.log.All()[0].value, 0u);
  EXPECT_EQ(sink_.log.All()[0].speed, PlaybackSpeedNone);
  EXPECT_THAT(Recorded(), ElementsAre("from the observer"));
}

TEST_F(BinaryLoggerTest, EndsInStatusOffWithoutAWriteWhenNothingIsSelected) {
  clients_.ResetLoggingSelection();
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_EQ(stream_->Writes(), 0);
  EXPECT_THAT(sink_.log.TakeIds(), IsEmpty());
}

// Every way in which a start can fail on the recording thread, and how it is set right.
struct FailedStart {
  const char* name;
  std::function<void(BinaryLogger&, BytesOutputStream&, ClientManager&, Time::ManualSource&)> fail;
};

void PrintTo(const FailedStart& cause, std::ostream* out) { *out << cause.name; }

class BinaryLoggerFailedStartTest : public BinaryLoggerTest,
                                    public ::testing::WithParamInterface<FailedStart> {};

TEST_P(BinaryLoggerFailedStartTest, IsSilentAndLeavesTheRecorderUsable) {
  logger_.EnableEncryption(true);
  GetParam().fail(logger_, *stream_, clients_, *clock_.operator->());
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  threads_.Release();
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
  EXPECT_THAT(sink_.log.TakeIds(), IsEmpty());
  EXPECT_FALSE(Write("no log"));
  EXPECT_TRUE(logger_.StopLogging());  // nobody waits for it
  clock_->Advance(25'000);             // and no timer of the failed start is left
  EXPECT_THAT(sink_.log.TakeIds(), IsEmpty());

  clock_->Recover();
  EXPECT_TRUE(clients_.SelectForLogging(L"Info Client"));
  EXPECT_TRUE(clients_.SelectForLogging(L"GPS"));
  RenewStream();
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingRunning);
  EXPECT_TRUE(Write("again"));
  Finish();
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  EXPECT_THAT(Log().records, ElementsAre(DictionaryAt(26'000), SelectionAt(26'000),
                                         ParsedRecord{kGps, 7, 26'000, "again"}));
}

FailedStart WithClockFailingAfter(const char* name, std::uint32_t readings) {
  return {name, [readings](auto&, auto&, auto&, auto& clock) { clock.FailMs(readings); }};
}

INSTANTIATE_TEST_SUITE_P(
    Causes, BinaryLoggerFailedStartTest,
    ::testing::Values(
        FailedStart{"NothingSelected",
                    [](auto&, auto&, auto& clients, auto&) { clients.ResetLoggingSelection(); }},
        FailedStart{"NoStream", [](auto& logger, auto&, auto&,
                                   auto&) { EXPECT_TRUE(logger.SetBinaryLogStream(nullptr)); }},
        FailedStart{"StreamFails",
                    [](auto&, auto& stream, auto&, auto&) { stream.FailWrites(true); }},
        FailedStart{"StreamTooShortForTheHeader",
                    [](auto&, auto& stream, auto&, auto&) { stream.SetRoom(127); }},
        FailedStart{"NoWallClock", [](auto&, auto&, auto&, auto& clock) { clock.FailWallClock(); }},
        WithClockFailingAfter("NoClock", 0), WithClockFailingAfter("NoSeedOfTheHeaderKey", 1),
        WithClockFailingAfter("NoSeedOfTheDataKey", 2),
        WithClockFailingAfter("NoTimeForTheDictionary", 3),
        WithClockFailingAfter("NoTimeForTheSelection", 4)),
    [](const auto& cause) { return cause.param.name; });

TEST_F(BinaryLoggerTest, DropsWhatWasQueuedForALogThatCouldNotStart) {
  stream_->FailWrites(true);
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_TRUE(Write("for the failed log"));
  threads_.Release();
  clock_->Settle();
  ASSERT_EQ(logger_.GetLoggingStatus(), LoggingOff);

  RenewStream();
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("for this log"));
  Finish();
  EXPECT_THAT(Recorded(), ElementsAre("for this log"));
}

TEST_F(BinaryLoggerTest, RefusesAMessageWhenMemoryIsShort) {
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  const auto message = MakeMessage(kGps, 7, "no room");
  bool accepted = true;
  EXPECT_TRUE(RanShort(0, [&] { accepted = logger_.Write(message); }));
  EXPECT_FALSE(accepted);
  EXPECT_TRUE(Write("room again"));
  threads_.Release();
  clock_->Settle();
  Finish();
  EXPECT_THAT(Recorded(), ElementsAre("room again"));
}

TEST_F(BinaryLoggerTest, RefusesToStartWhenMemoryIsShort) {
  const String name = L"Test-Logging";
  bool started = true;
  std::uint32_t grants = 0;
  const auto start = [&] {
    started = logger_.StartLogging(threads_, &sink_, &clients_, &info_client_, name);
  };
  while (RanShort(grants, start)) {
    EXPECT_FALSE(started) << grants;
    EXPECT_FALSE(logger_.IsLogging()) << grants;
    ++grants;
  }
  EXPECT_GT(grants, 0u);
  EXPECT_TRUE(started);
  clock_->Settle();
  Finish();
  EXPECT_THAT(Log().records, ElementsAre(DictionaryAt(1000), SelectionAt(1000)));
}

TEST_F(BinaryLoggerTest, ScramblesUnlessItIsSwitchedOff) {
  logger_.EnableEncryption(true);
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  const auto message = MakeMessage(kGps, 7, "in the open");
  ASSERT_TRUE(logger_.Write(message));
  Finish();
  EXPECT_NE(Log().header_key, 0);
  EXPECT_NE(Log().data_key, 0);
  EXPECT_THAT(Recorded(), ElementsAre("in the open"));
  // The payload belongs to the recorder, which scrambles it where it stands.
  EXPECT_NE(message->GetDataPointer()[0], 'i');

  RenewStream();
  logger_.EnableEncryption(false);
  ASSERT_TRUE(StartLogging());
  Finish();
  EXPECT_EQ(Log().header_key, 0);
  EXPECT_EQ(Log().data_key, 0);
}

}  // namespace
}  // namespace kestrav::test
