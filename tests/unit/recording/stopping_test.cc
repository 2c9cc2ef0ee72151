#include <atomic>
#include <optional>

#include "unit/recording/logger_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(BinaryLoggerTest, FinishesTheLogWithItsLengthAndDuration) {
  ASSERT_TRUE(StartLogging());
  clock_->Advance(1'600);
  EXPECT_TRUE(Write("hello"));
  Finish();
  const ParsedLog log = Log();
  EXPECT_EQ(log.duration_ms, 2'000u);
  EXPECT_EQ(log.stream_length, stream_->Content().size());
  EXPECT_THAT(log.records, ElementsAre(DictionaryAt(1000), SelectionAt(1000),
                                       ParsedRecord{kGps, 7, 2600, "hello"}));
}

TEST_F(BinaryLoggerTest, LetsGoOfTheStreamWhenTheLogIsFinished) {
  const std::weak_ptr<BytesOutputStream> watched = stream_;
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  stream_.reset();
  EXPECT_FALSE(watched.expired());
  Finish();
  EXPECT_TRUE(watched.expired());
}

TEST_F(BinaryLoggerTest, NeedsANewStreamForTheNextRecording) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  Finish();
  const Bytes first = stream_->Content();
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_EQ(stream_->Content(), first);
}

TEST_F(BinaryLoggerTest, TellsOfTheStopBeforeItDrainsTheQueueAndOfTheEndAfterIt) {
  struct Seen {
    std::int32_t status;
    bool accepted;
    std::uint32_t stream_length;
  };
  std::optional<Seen> at_stop;
  std::optional<Seen> at_end;
  sink_.on_notification = [&](const NotificationInfo& info) {
    if (info.id == NotifyLoggingStarted) return;
    std::optional<Seen>& seen = info.id == NotifyLoggingStopped ? at_stop : at_end;
    const bool accepted = Write(info.id == NotifyLoggingStopped ? "at the stop" : "too late");
    seen = {logger_.GetLoggingStatus(), accepted, ParseLog(stream_->Content()).stream_length};
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  Finish();
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  ASSERT_TRUE(at_stop && at_end);
  EXPECT_EQ(at_stop->status, LoggingRunning);
  EXPECT_TRUE(at_stop->accepted);
  EXPECT_EQ(at_stop->stream_length, 0u);
  EXPECT_EQ(at_end->status, LoggingOff);
  EXPECT_FALSE(at_end->accepted);
  EXPECT_EQ(at_end->stream_length, stream_->Content().size());
  EXPECT_THAT(Recorded(), ElementsAre("at the stop"));
}

TEST_F(BinaryLoggerTest, GivesBothNotificationsOfAStopTheSelectionOfItsBeginning) {
  sink_.on_notification = [this](const NotificationInfo& info) {
    if (info.id == NotifyLoggingStopped) clients_.ResetLoggingSelection(L"GPS");
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(clients_.SelectForLogging(L"CAN"));
  Finish();
  const std::vector<NotificationInfo> all = sink_.log.All();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].clients.Mask(), kSelected);
  EXPECT_EQ(all[1].clients.Mask(), kSelected | std::uint64_t{1} << kCan);
  EXPECT_EQ(all[2].clients.Mask(), kSelected | std::uint64_t{1} << kCan);
}

TEST_F(BinaryLoggerTest, WritesEveryMessageThatIsQueuedWhenTheStopComes) {
  std::vector<std::string> expected;
  sink_.on_notification = [&](const NotificationInfo& info) {
    if (info.id != NotifyLoggingStopped) return;
    for (int i = 0; i < 1000; ++i) {
      expected.push_back(std::to_string(i));
      EXPECT_TRUE(Write(expected.back()));
    }
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  Finish();
  EXPECT_EQ(expected.size(), 1000u);
  EXPECT_EQ(Recorded(), expected);
}

TEST_F(BinaryLoggerTest, WritesAWholeLogWhenTheStopOvertakesTheStart) {
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_TRUE(Write("accepted"));
  EXPECT_TRUE(logger_.StopLogging());
  EXPECT_TRUE(Write("accepted too"));
  threads_.Release();
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_FALSE(Write("refused"));
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  const ParsedLog log = Log();
  EXPECT_EQ(log.stream_length, stream_->Content().size());
  EXPECT_THAT(log.records, ElementsAre(ParsedRecord{kGps, 7, 1000, "accepted"},
                                       ParsedRecord{kGps, 7, 1000, "accepted too"},
                                       DictionaryAt(1000), SelectionAt(1000)));
}

TEST_F(BinaryLoggerTest, IsSilentWhenTheStopOvertakesAStartThatFails) {
  stream_->FailWrites(true);
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_TRUE(logger_.StopLogging());
  threads_.Release();
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_THAT(sink_.log.TakeIds(), IsEmpty());
}

TEST_F(BinaryLoggerTest, StopsAsOneHoweverOftenItIsAsked) {
  EXPECT_TRUE(logger_.StopLogging());
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingRunning);  // the early stop is forgotten
  EXPECT_TRUE(logger_.StopLogging());
  EXPECT_TRUE(logger_.StopLogging());
  clock_->Settle();
  EXPECT_TRUE(logger_.StopLogging());
  clock_->Settle();
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
}

TEST_F(BinaryLoggerTest, WaitsForTheThreadWhenAskedTo) {
  EXPECT_TRUE(logger_.StopLoggingThread());
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("last"));
  EXPECT_TRUE(logger_.StopLoggingThread());
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  EXPECT_THAT(Recorded(), ElementsAre("last"));
}

TEST_F(BinaryLoggerTest, CanBeStartedAgainFromInsideTheNotificationOfTheEnd) {
  const auto second = std::make_shared<BytesOutputStream>();
  std::atomic<int> restarts = 0;
  sink_.on_notification = [&](const NotificationInfo& info) {
    if (info.id != NotifyLoggingFinished || restarts++ > 0) return;
    EXPECT_TRUE(logger_.SetBinaryLogStream(second));
    EXPECT_TRUE(StartLogging());
    EXPECT_TRUE(Write("queued at once"));
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("first log"));
  EXPECT_TRUE(logger_.StopLogging());
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingRunning);
  EXPECT_TRUE(Write("second log"));
  Finish();
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9, 0, 1, 9));
  EXPECT_THAT(Recorded(), ElementsAre("first log"));
  const ParsedLog log = ParseLog(second->Content());
  EXPECT_EQ(log.error, "");
  EXPECT_THAT(log.PayloadsOf(kGps), ElementsAre("queued at once", "second log"));
}

TEST_F(BinaryLoggerTest, CanBeStoppedFromInsideTheNotificationOfTheStart) {
  sink_.on_notification = [this](const NotificationInfo& info) {
    if (info.id != NotifyLoggingStarted) return;
    EXPECT_TRUE(logger_.StopLogging());
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  EXPECT_THAT(Log().records, ElementsAre(DictionaryAt(1000), SelectionAt(1000)));
}

TEST_F(BinaryLoggerTest, CanBeStoppedByItsOwnThreadWithoutADeadlock) {
  sink_.on_notification = [this](const NotificationInfo& info) {
    if (info.id != NotifyLoggingStarted) return;
    EXPECT_TRUE(logger_.StopLoggingThread());
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
}

TEST_F(BinaryLoggerTest, NumbersTheRecordsOfEachLogFromZero) {
  for (int run = 0; run < 3; ++run) {
    RenewStream();
    ASSERT_TRUE(StartLogging());
    clock_->Settle();
    EXPECT_TRUE(Write(std::to_string(run)));
    Finish();
    EXPECT_THAT(Recorded(), ElementsAre(std::to_string(run)));
  }
}

TEST_F(BinaryLoggerTest, EndsTheStopAlsoWhenTheFinalHeaderCannotBeWritten) {
  ASSERT_TRUE(StartLogging());
  clock_->Advance(5'000);
  EXPECT_TRUE(Write("kept"));
  stream_->FailSeeks(true);
  Finish();
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  const ParsedLog log = Log();
  EXPECT_EQ(log.duration_ms, 0u);
  EXPECT_EQ(log.stream_length, 0u);
  EXPECT_THAT(log.PayloadsOf(kGps), ElementsAre("kept"));
}

TEST_F(BinaryLoggerTest, FinishesTheLogWhenItIsDestroyedWhileRecording) {
  {
    BinaryLogger logger(stream_);
    logger.EnableEncryption(false);
    ASSERT_TRUE(logger.StartLogging(threads_, &sink_, &clients_, &info_client_, L"Short-Logging"));
    clock_->Settle();
    EXPECT_TRUE(logger.Write(MakeMessage(kGps, 7, "last words")));
  }
  EXPECT_THAT(sink_.log.TakeIds(), ElementsAre(0, 1, 9));
  EXPECT_EQ(Log().stream_length, stream_->Content().size());
  EXPECT_THAT(Recorded(), ElementsAre("last words"));
  clock_->Advance(30'000);  // no dictionary timer is left to call a dead recorder
  EXPECT_EQ(Log().stream_length, stream_->Content().size());
}

TEST_F(BinaryLoggerTest, FinishesTheLogWhenItIsDestroyedRightAfterTheStart) {
  {
    BinaryLogger logger(stream_);
    logger.EnableEncryption(false);
    ASSERT_TRUE(logger.StartLogging(threads_, &sink_, &clients_, &info_client_, L"Short-Logging"));
    EXPECT_TRUE(logger.Write(MakeMessage(kGps, 7, "accepted")));
  }
  EXPECT_THAT(Recorded(), ElementsAre("accepted"));
}

}  // namespace
}  // namespace kestrav::test
