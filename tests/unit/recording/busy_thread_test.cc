// What happens to the recording thread while it is at work.
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "support/short_memory.h"
#include "unit/recording/hooked_stream.h"
#include "unit/recording/logger_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;

class BusyBinaryLoggerTest : public BinaryLoggerTest {
 protected:
  BusyBinaryLoggerTest() { EXPECT_TRUE(logger_.SetBinaryLogStream(hooked_)); }

  // Once.
  void AfterTheNextWrite(std::function<void()> act) {
    hooked_->after_write = Once(hooked_->after_write, std::move(act));
  }
  void AfterTheNextFlush(std::function<void()> act) {
    hooked_->after_flush = Once(hooked_->after_flush, std::move(act));
  }
  static std::function<void()> Once(std::function<void()>& hook, std::function<void()> act) {
    return [&hook, act = std::move(act)] {
      const auto running = std::exchange(hook, nullptr);  // keeps `act` while it runs
      act();
    };
  }
  ParsedLog HookedLog() const {
    ParsedLog log = ParseLog(hooked_->Content());
    EXPECT_EQ(log.error, "");
    return log;
  }

  std::shared_ptr<HookedStream> hooked_ = std::make_shared<HookedStream>();
};

TEST_F(BusyBinaryLoggerTest, WritesWhatComesMeanwhileBeforeItFlushes) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  const int before = hooked_->Flushes();
  int flushes_at_the_second = -1;
  AfterTheNextWrite([&] {
    EXPECT_TRUE(Write("second"));
    AfterTheNextWrite([&] { flushes_at_the_second = hooked_->Flushes(); });
  });
  EXPECT_TRUE(Write("first"));
  clock_->Settle();
  EXPECT_EQ(flushes_at_the_second, before);
  EXPECT_EQ(hooked_->Flushes(), before + 1);
  EXPECT_THAT(HookedLog().PayloadsOf(kGps), ElementsAre("first", "second"));
}

TEST_F(BusyBinaryLoggerTest, FinishesTheLogWhenItIsStoppedWhileItWrites) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  AfterTheNextWrite([&] {
    EXPECT_TRUE(logger_.StopLogging());
    EXPECT_TRUE(Write("second"));
  });
  EXPECT_TRUE(Write("first"));
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_THAT(HookedLog().PayloadsOf(kGps), ElementsAre("first", "second"));
  EXPECT_EQ(HookedLog().stream_length, hooked_->Content().size());
}

// Lets memory be short again as soon as it is told that the log runs.
class Relief final : public INotificationSink {
 public:
  void SendNotification(const NotificationInfo& info) override {
    if (info.id != NotifyLoggingStarted) return;
    was_short = memory->WasShort();
    memory.reset();
  }

  std::optional<ShortMemory> memory;
  bool was_short = true;
};

TEST_F(BusyBinaryLoggerTest, WithLittleMemoryAtItsStartLacksTheRepeatedDictionariesOrDoesNotStart) {
  int not_started = 0, not_repeated = 0;
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    hooked_ = std::make_shared<HookedStream>();
    Relief relief;
    BinaryLogger logger(hooked_);
    logger.EnableEncryption(false);
    AfterTheNextWrite([&] { relief.memory.emplace(grants); });  // of the stream header
    ASSERT_TRUE(logger.StartLogging(threads_, &relief, &clients_, &info_client_, L"T"));
    clock_->Settle();
    const bool started = logger.IsLogging();
    was_short = !started || relief.was_short;
    if (!started) {
      ++not_started;
      EXPECT_EQ(hooked_->Content().size(), 128u);
      continue;
    }
    if (was_short) ++not_repeated;
    clock_->Advance(10'000);
    EXPECT_TRUE(logger.StopLoggingThread());
    const std::vector<ParsedRecord> records = HookedLog().records;
    ASSERT_GE(records.size(), 2u);
    EXPECT_EQ(records[0], DictionaryAt(records[0].time_ms));
    EXPECT_EQ(records[1], SelectionAt(records[0].time_ms));
    EXPECT_EQ(records.size(), was_short ? 2u : 3u);
  }
  EXPECT_GT(not_started, 0);
  EXPECT_GT(not_repeated, 0);
}

TEST_F(BusyBinaryLoggerTest, FinishesTheLogWhenItIsStoppedBetweenTwoQuickBatches) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  AfterTheNextFlush([&] {
    AfterTheNextWrite([&] { EXPECT_TRUE(logger_.StopLogging()); });
    EXPECT_TRUE(Write("second"));
  });
  EXPECT_TRUE(Write("first"));
  clock_->Settle();
  EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_THAT(HookedLog().PayloadsOf(kGps), ElementsAre("first", "second"));
}

TEST_F(BusyBinaryLoggerTest, TakesMessagesOfAClassDerivedFromLogMessage) {
  class Derived final : public LogMessage {};
  ASSERT_TRUE(StartLogging());
  const auto message = std::make_shared<Derived>();
  const std::uint8_t payload[] = {'d', 'e', 'r', 'i', 'v', 'e', 'd'};
  ASSERT_TRUE(message->Assign(kGps, 7, payload, sizeof(payload), 0));
  EXPECT_TRUE(logger_.Write(message));
  clock_->Settle();
  EXPECT_THAT(HookedLog().PayloadsOf(kGps), ElementsAre("derived"));
}

}  // namespace
}  // namespace kestrav::test
