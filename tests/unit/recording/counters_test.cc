#include <algorithm>
#include <optional>

#include "unit/recording/logger_fixture.h"

namespace kestrav::test {
namespace {

// Buffers all of it and hands it on, unless told otherwise, by the flush.
class BufferingStream : public Io::IOutputStream {
 public:
  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    if (!Flush()) return false;
    buffer_.assign(data, data + size);
    return true;
  }
  bool Seek(std::uint32_t position) override {
    if (!Flush() || position > content.size()) return false;
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override { return position_ + Unflushed(); }
  bool Flush() override {
    if (is_broken && !buffer_.empty()) return false;
    content.resize(std::max(content.size(), position_ + buffer_.size()));
    std::copy(buffer_.begin(), buffer_.end(), content.begin() + position_);
    position_ += Unflushed();
    buffer_.clear();
    return true;
  }
  std::uint32_t Unflushed() const override { return static_cast<std::uint32_t>(buffer_.size()); }
  void DropUnflushed() override { buffer_.clear(); }

  Bytes content;
  std::atomic<bool> is_broken = false;

 private:
  Bytes buffer_;
  std::uint32_t position_ = 0;
};

class LoggingCountersTest : public BinaryLoggerTest {
 protected:
  // The dictionary and the selection are records too.
  static constexpr std::uint64_t kOwn = 2;

  LoggingCounters Counters() const { return logger_.GetLoggingCounters(); }
};

TEST_F(LoggingCountersTest, AreZeroBeforeTheFirstRecording) {
  EXPECT_EQ(Counters().accepted, 0u);
  EXPECT_EQ(Counters().Dropped(), 0u);
  EXPECT_EQ(Counters().bytes, 0u);
}

TEST_F(LoggingCountersTest, CountWhatIsAcceptedAndWritten) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(Counters().written, kOwn);
  EXPECT_TRUE(Write("a"));
  EXPECT_TRUE(Write("b"));
  EXPECT_FALSE(logger_.Write(nullptr));
  clock_->Settle();
  EXPECT_EQ(Counters().accepted, kOwn + 2);
  EXPECT_EQ(Counters().written, kOwn + 2);
  EXPECT_EQ(Counters().Dropped(), 0u);
  EXPECT_EQ(Counters().bytes, stream_->Content().size());
}

TEST_F(LoggingCountersTest, StayAfterTheStopUntilTheNextStart) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("a"));
  Finish();
  EXPECT_FALSE(Write("too late"));
  EXPECT_EQ(Counters().accepted, kOwn + 1);
  EXPECT_EQ(Counters().written, Log().records.size());
  EXPECT_EQ(Counters().bytes, Log().stream_length);
  RenewStream();
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_EQ(Counters().accepted, kOwn);
}

TEST_F(LoggingCountersTest, CountWhatTheStreamRefuses) {
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  stream_->FailWrites(true);
  EXPECT_TRUE(Write("a"));
  EXPECT_TRUE(Write("b"));
  clock_->Settle();
  stream_->FailWrites(false);
  EXPECT_TRUE(Write("c"));
  Finish();
  EXPECT_EQ(Counters().accepted, kOwn + 3);
  EXPECT_EQ(Counters().dropped_by_stream, 2u);
  EXPECT_EQ(Counters().written, Log().records.size());
  EXPECT_EQ(Counters().accepted - Counters().Dropped(), Counters().written);
}

TEST_F(LoggingCountersTest, CountWhatFoundNoLog) {
  // Refuses the stream header, but not before the test has handed its message over.
  class RefusingStream final : public Io::IOutputStream {
   public:
    bool Write(const std::uint8_t*, std::uint32_t) override {
      may_refuse.wait(false);
      return false;
    }
    bool Seek(std::uint32_t) override { return false; }
    std::uint32_t Position() const override { return 0; }

    std::atomic<bool> may_refuse = false;
  };
  const auto stream = std::make_shared<RefusingStream>();
  ASSERT_TRUE(logger_.SetBinaryLogStream(stream));
  ASSERT_TRUE(StartLogging());
  EXPECT_TRUE(Write("has no log to go to"));
  stream->may_refuse = true;
  stream->may_refuse.notify_all();
  clock_->Settle();
  ASSERT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  EXPECT_EQ(Counters().accepted, 1u);
  EXPECT_EQ(Counters().dropped_without_log, 1u);
  EXPECT_EQ(Counters().written, 0u);
}

TEST_F(LoggingCountersTest, KnowTheLongestQueue) {
  // Messages that come in while the recording thread is kept in its notification wait for it.
  sink_.on_notification = [this](const NotificationInfo& info) {
    if (info.id != NotifyLoggingStarted) return;
    for (int i = 0; i < 7; ++i) EXPECT_TRUE(Write("waits"));
    EXPECT_EQ(Counters().highest_queue, kOwn + 7);
    EXPECT_EQ(Counters().written, 0u);
  };
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("alone"));
  Finish();
  EXPECT_EQ(Counters().highest_queue, kOwn + 7);
}

TEST_F(LoggingCountersTest, CountWhatAStreamStillHeldWhenItBroke) {
  const auto stream = std::make_shared<BufferingStream>();
  ASSERT_TRUE(logger_.SetBinaryLogStream(stream));
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("on file"));
  clock_->Settle();
  stream->is_broken = true;
  EXPECT_TRUE(Write("in the buffer"));
  EXPECT_TRUE(Write("refused"));
  Finish();
  stream->is_broken = false;
  ASSERT_TRUE(stream->Flush());
  EXPECT_EQ(Counters().accepted, kOwn + 3);
  EXPECT_EQ(Counters().written, kOwn + 1);
  EXPECT_EQ(Counters().dropped_by_stream, 1u);
  EXPECT_EQ(Counters().dropped_at_stop, 1u);
  EXPECT_EQ(Counters().bytes, stream->content.size());
  const ParsedLog log = ParseLog(stream->content);
  EXPECT_EQ(log.error, "");
  EXPECT_EQ(log.stream_length, stream->content.size());
  EXPECT_THAT(log.PayloadsOf(kGps), ::testing::ElementsAre("on file"));
}

TEST_F(LoggingCountersTest, CountAsLostNothingThatMadeRoomForARefusedRecord) {
  // Hands on what it has to make room for a large record, which it then refuses.
  class PickyStream final : public BufferingStream {
   public:
    bool Write(const std::uint8_t* data, std::uint32_t size) override {
      if (size < 1000) return BufferingStream::Write(data, size);
      static_cast<void>(Flush());
      return false;
    }
  };
  const auto stream = std::make_shared<PickyStream>();
  ASSERT_TRUE(logger_.SetBinaryLogStream(stream));
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("on file"));
  EXPECT_TRUE(Write(std::string(2000, 'x')));
  clock_->Settle();
  stream->is_broken = true;
  EXPECT_TRUE(Write("in the buffer"));
  Finish();
  EXPECT_EQ(Counters().written, kOwn + 1);
  EXPECT_EQ(Counters().dropped_by_stream, 1u);
  EXPECT_EQ(Counters().dropped_at_stop, 1u);
}

TEST_F(LoggingCountersTest, KnowTheLongestCallOfTheStream) {
  class SlowStream final : public Io::IOutputStream {
   public:
    bool Write(const std::uint8_t*, std::uint32_t size) override {
      const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(2);
      while (std::chrono::steady_clock::now() < until) continue;
      position_ += size;
      return true;
    }
    bool Seek(std::uint32_t position) override {
      position_ = position;
      return true;
    }
    std::uint32_t Position() const override { return position_; }

   private:
    std::uint32_t position_ = 0;
  };
  ASSERT_TRUE(logger_.SetBinaryLogStream(std::make_shared<SlowStream>()));
  ASSERT_TRUE(StartLogging());
  clock_->Settle();
  EXPECT_TRUE(Write("slow"));
  Finish();
  EXPECT_GE(Counters().longest_write_us, 2'000u);
}

}  // namespace
}  // namespace kestrav::test
