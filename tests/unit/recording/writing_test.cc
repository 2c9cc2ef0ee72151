#include <condition_variable>
#include <limits>
#include <mutex>

#include "unit/recording/logger_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RunningBinaryLoggerTest : public BinaryLoggerTest {
 protected:
  RunningBinaryLoggerTest() {
    EXPECT_TRUE(StartLogging());
    clock_->Settle();
    EXPECT_EQ(logger_.GetLoggingStatus(), LoggingRunning);
  }

  // When the dictionary was recorded.
  std::vector<std::uint32_t> DictionaryTimes() const {
    std::vector<std::uint32_t> times;
    for (const ParsedRecord& record : Log().records) {
      if (record == DictionaryAt(record.time_ms)) times.push_back(record.time_ms);
    }
    return times;
  }
};

TEST_F(RunningBinaryLoggerTest, StampsAMessageWithTheTimeAtWhichItIsQueued) {
  clock_->Advance(111);
  EXPECT_TRUE(Write("a", 0));
  clock_->Advance(1);
  EXPECT_TRUE(Write("b", 5));
  clock_->Advance(8'000);
  EXPECT_TRUE(Write("c", std::numeric_limits<std::uint32_t>::max()));
  clock_->Settle();
  EXPECT_THAT(Log().records,
              ElementsAre(DictionaryAt(1000), SelectionAt(1000), ParsedRecord{kGps, 7, 1111, "a"},
                          ParsedRecord{kGps, 7, 1112, "b"}, ParsedRecord{kGps, 7, 9112, "c"}));
}

TEST_F(RunningBinaryLoggerTest, KeepsTheQueueOrderOfAllClients) {
  EXPECT_TRUE(logger_.Write(MakeMessage(kCan, 1, "c1")));
  EXPECT_TRUE(logger_.Write(MakeMessage(kGps, 2, "g1")));
  EXPECT_TRUE(logger_.Write(MakeMessage(kCan, 3, "c2")));
  clock_->Settle();
  EXPECT_THAT(Log().records,
              ElementsAre(DictionaryAt(1000), SelectionAt(1000), ParsedRecord{kCan, 1, 1000, "c1"},
                          ParsedRecord{kGps, 2, 1000, "g1"}, ParsedRecord{kCan, 3, 1000, "c2"}));
}

TEST_F(RunningBinaryLoggerTest, RefusesAnEmptyPointerAndForeignMessages) {
  class ForeignMessage final : public ILogMessage {
   public:
    std::uint16_t GetClientID() const override { return kGps; }
    std::uint16_t GetDataID() const override { return 7; }
    std::uint8_t* GetDataPointer() override { return &byte_; }
    const std::uint8_t* GetDataPointer() const override { return &byte_; }
    std::uint32_t GetDataSize() const override { return 1; }

   private:
    std::uint8_t byte_ = 0;
  };
  EXPECT_FALSE(logger_.Write(nullptr));
  EXPECT_FALSE(logger_.Write(std::make_shared<ForeignMessage>()));
  EXPECT_TRUE(Write("still taken"));
  clock_->Settle();
  EXPECT_THAT(Recorded(), ElementsAre("still taken"));
}

TEST_F(RunningBinaryLoggerTest, RecordsAMessageAgainEachTimeItIsHandedIn) {
  const auto message = MakeMessage(kGps, 7, "same");
  EXPECT_TRUE(logger_.Write(message));
  clock_->Settle();
  EXPECT_TRUE(logger_.Write(message));
  clock_->Settle();
  EXPECT_THAT(Recorded(), ElementsAre("same", "same"));
}

TEST_F(RunningBinaryLoggerTest, LetsGoOfAMessageOnceItIsWritten) {
  auto message = MakeMessage(kGps, 7, "short-lived");
  const std::weak_ptr<LogMessage> watched = message;
  EXPECT_TRUE(logger_.Write(std::move(message)));
  clock_->Settle();
  EXPECT_TRUE(watched.expired());
}

TEST_F(RunningBinaryLoggerTest, RepeatsTheDictionaryEveryTenSecondsToTheMillisecond) {
  clock_->Advance(9'999);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000));
  clock_->Advance(1);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000, 11'000));
  clock_->Advance(20'500);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000, 11'000, 21'000, 31'000));
  Finish();
  clock_->Advance(60'000);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000, 11'000, 21'000, 31'000));
}

TEST_F(RunningBinaryLoggerTest, CountsTheTenSecondsFromTheStartOfEachRecording) {
  clock_->Advance(15'000);
  Finish();
  clock_->Advance(2'345);
  RenewStream();
  ASSERT_TRUE(StartLogging());
  clock_->Advance(10'000);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(18'345, 28'345));
}

TEST_F(RunningBinaryLoggerTest, RepeatsTheDictionaryOfTheStartWhateverTheRegistrySaysMeanwhile) {
  EXPECT_TRUE(clients_.UnRegisterClient(&gps_));
  EXPECT_TRUE(clients_.SelectForLogging(L"CAN"));
  clock_->Advance(10'000);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000, 11'000));
}

TEST_F(RunningBinaryLoggerTest, LeavesOutADictionaryWhoseTimeCannotBeRead) {
  clock_->Advance(9'999);
  clock_->FailMs();
  clock_->Advance(1);
  clock_->Recover();
  clock_->Advance(10'000);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000, 21'000));
}

TEST_F(RunningBinaryLoggerTest, RefusesAMessageWhenTheClockFailsAndGoesOn) {
  clock_->FailMs();
  EXPECT_FALSE(Write("no time"));
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
  clock_->Recover();
  EXPECT_TRUE(Write("in time"));
  Finish();
  EXPECT_THAT(Recorded(), ElementsAre("in time"));
}

TEST_F(RunningBinaryLoggerTest, RefusesANewStreamAndKeepsTheOldOne) {
  const auto other = std::make_shared<BytesOutputStream>();
  EXPECT_FALSE(logger_.SetBinaryLogStream(other));
  EXPECT_FALSE(logger_.SetBinaryLogStream(nullptr));
  EXPECT_TRUE(Write("to the old one"));
  Finish();
  EXPECT_EQ(other->Writes(), 0);
  EXPECT_THAT(Recorded(), ElementsAre("to the old one"));
  EXPECT_TRUE(logger_.SetBinaryLogStream(other));
}

TEST_F(BinaryLoggerTest, RefusesANewStreamWhileTheThreadStartsToo) {
  threads_.Hold();
  ASSERT_TRUE(StartLogging());
  EXPECT_FALSE(logger_.SetBinaryLogStream(std::make_shared<BytesOutputStream>()));
  threads_.Release();
  Finish();
  EXPECT_THAT(Log().records, ElementsAre(DictionaryAt(1000), SelectionAt(1000)));
}

TEST_F(RunningBinaryLoggerTest, DropsARecordThatTheStreamRefusesAndNumbersOn) {
  EXPECT_TRUE(Write("kept"));
  clock_->Settle();
  stream_->FailWrites(true);
  EXPECT_TRUE(Write("dropped"));
  EXPECT_TRUE(Write("dropped too"));
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingRunning);
  stream_->FailWrites(false);
  EXPECT_TRUE(Write("next"));
  Finish();
  EXPECT_THAT(Recorded(), ElementsAre("kept", "next"));
  EXPECT_EQ(Log().stream_length, stream_->Content().size());
}

TEST_F(RunningBinaryLoggerTest, DropsWhatDoesNotFitAFullStreamAndWritesWhatDoes) {
  stream_->SetRoom(stream_->Content().size() + 30);
  EXPECT_TRUE(Write("eleven bytes"));
  EXPECT_TRUE(Write("ten bytes!"));
  clock_->Settle();
  EXPECT_TRUE(Write("x"));
  Finish();
  EXPECT_THAT(Recorded(), ElementsAre("ten bytes!"));
  EXPECT_EQ(Log().stream_length, stream_->Content().size());
}

TEST_F(RunningBinaryLoggerTest, LosesADictionaryThatTheStreamRefusesAlone) {
  stream_->FailWrites(true);
  clock_->Advance(10'000);
  stream_->FailWrites(false);
  clock_->Advance(10'000);
  EXPECT_THAT(DictionaryTimes(), ElementsAre(1000, 21'000));
}

TEST_F(RunningBinaryLoggerTest, FlushesTheStreamWheneverTheQueueRunsDry) {
  const int before = stream_->Flushes();
  EXPECT_TRUE(Write("a"));
  clock_->Settle();
  EXPECT_GT(stream_->Flushes(), before);
}

TEST_F(RunningBinaryLoggerTest, TellsTheRecordingTimeInRoundedSeconds) {
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
  clock_->Advance(499);
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
  clock_->Advance(1);
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 1u);
  clock_->Advance(3'000);
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 4u);
  Finish();
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
}

// A stream that stands still while it takes a record, until it is let go.
class StuckStream final : public Io::IOutputStream {
 public:
  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !stuck_; });
    return bytes_.Write(data, size);
  }
  bool Seek(std::uint32_t position) override { return bytes_.Seek(position); }
  std::uint32_t Position() const override { return bytes_.Position(); }

  void Stick(bool stuck) {
    const std::lock_guard lock(mutex_);
    stuck_ = stuck;
    changed_.notify_all();
  }
  Bytes Content() const { return bytes_.Content(); }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stuck_ = false;
  BytesOutputStream bytes_;
};

TEST_F(BinaryLoggerTest, TakesMessagesWhileTheStreamIsStuck) {
  const auto stream = std::make_shared<StuckStream>();
  ASSERT_TRUE(logger_.SetBinaryLogStream(stream));
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  stream->Stick(true);
  EXPECT_TRUE(Write("a"));
  EXPECT_TRUE(Write("b"));
  EXPECT_EQ(logger_.GetRecordingTimeScnds(), 0u);
  EXPECT_TRUE(Write("c"));
  stream->Stick(false);
  Finish();
  EXPECT_THAT(ParseLog(stream->Content()).PayloadsOf(kGps), ElementsAre("a", "b", "c"));
}

class BinaryLoggerClockWrapTest : public ::testing::Test {
 protected:
  ManualClock clock_{0xFFFFFFFF - 4'999};  // 5 s before the clock wraps
};

TEST_F(BinaryLoggerClockWrapTest, RepeatsTheDictionaryAcrossTheWrapOfTheClock) {
  ThreadsUnderTest threads;
  ScriptedSink sink;
  ClientManager clients;
  InfoClientImpl info_client;
  ASSERT_TRUE(clients.RegisterClient(&info_client));
  ASSERT_TRUE(clients.SelectForLogging(L"Info Client"));
  const auto stream = std::make_shared<BytesOutputStream>();
  BinaryLogger logger(stream);
  ASSERT_TRUE(logger.StartLogging(threads, &sink, &clients, &info_client, L"T"));
  clock_->Advance(20'000);
  EXPECT_EQ(logger.GetRecordingTimeScnds(), 20u);
  std::vector<std::uint32_t> times;
  for (const ParsedRecord& record : ParseLog(stream->Content()).records) {
    if (record.data_id == 1200) times.push_back(record.time_ms);
  }
  EXPECT_THAT(times, ElementsAre(0xFFFFFFFF - 4'999, 5'000, 15'000));
}

}  // namespace
}  // namespace kestrav::test
