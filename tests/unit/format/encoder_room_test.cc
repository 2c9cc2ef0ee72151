#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kestrav/format/encoder.h"
#include "support/log_builder.h"
#include "support/manual_clock.h"
#include "support/short_memory.h"
#include "unit/format/format_test_util.h"
#include "unit/format/window_streams.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kTime = 1000;

// Sizes around every step of the loops and around the buffers below.
std::string PayloadOf(std::size_t size) {
  std::string payload(size, '\0');
  for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<char>(i * 7 + size);
  return payload;
}

// The log is the same however much room a stream gives: none, just enough, or plenty.
class EncoderRoom : public testing::TestWithParam<std::uint32_t> {
 protected:
  void Start(bool scrambled) {
    encoder_.EnableEncryption(scrambled);
    ASSERT_TRUE(encoder_.Start(1));
  }
  Bytes Records() { return Slice(stream_->Content(), 128, stream_->Content().size()); }
  // An empty log with the keys of this one.
  LogBuilder Expected() { return LogBuilder(stream_->Content()[10], stream_->Content()[11]); }
  static Bytes RecordsOf(const LogBuilder& log) { return Slice(log.Build(), 128, log.Size()); }

  ManualClock clock_{kTime};
  SmartPtr::Ptr<RoomOutputStream> stream_ = std::make_shared<RoomOutputStream>(GetParam());
  BinaryEncoder encoder_{stream_};
};

INSTANTIATE_TEST_SUITE_P(Bytes, EncoderRoom,
                         testing::Values(0, 19, 20, 21, 84, 85, 100, 4096, 1U << 20));

TEST_P(EncoderRoom, MakesNoDifferenceToTheLog) {
  for (const bool scrambled : {false, true}) {
    stream_ = std::make_shared<RoomOutputStream>(GetParam());
    encoder_.SetLogStream(stream_);
    Start(scrambled);
    for (std::size_t size = 1; size <= 300; ++size) {
      const auto message = Message(1, 2, kTime, PayloadOf(size));
      ASSERT_TRUE(encoder_.WriteBinaryLogRecord(message));
      ASSERT_EQ(Payload(*message) == PayloadOf(size), !scrambled);
    }
    encoder_.Stop();
    LogBuilder expected = Expected();
    for (std::size_t size = 1; size <= 300; ++size) expected.Record(1, 2, kTime, PayloadOf(size));
    EXPECT_EQ(Records(), RecordsOf(expected));
    EXPECT_EQ(Slice(stream_->Content(), 16, 20), Slice(expected.Build(), 16, 20));
  }
}

TEST_P(EncoderRoom, HoldsARecordOrElseItIsWritten) {
  Start(false);
  const int before = stream_->writes;
  ASSERT_TRUE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, PayloadOf(64))));
  EXPECT_EQ(stream_->writes - before, GetParam() < 84 ? 1 : 0);
}

// A message that shows another payload than the one it holds.
class Disguised final : public LogMessage {
 public:
  std::uint8_t* GetDataPointer() override { return shown_; }
  const std::uint8_t* GetDataPointer() const override { return shown_; }
  std::uint32_t GetDataSize() const override { return sizeof(shown_); }
  std::uint16_t GetClientID() const override { return 3; }
  std::uint16_t GetDataID() const override { return 4; }

 private:
  std::uint8_t shown_[5] = {'s', 'h', 'o', 'w', 'n'};
};

TEST_P(EncoderRoom, GetsWhatAMessageShows) {
  Start(true);
  const auto message = std::make_shared<Disguised>();
  ASSERT_TRUE(message->Assign(1, 2, Data("held"), 4, kTime));
  ASSERT_TRUE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "plain")));
  ASSERT_TRUE(encoder_.WriteBinaryLogRecord(message));
  ASSERT_TRUE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "plain")));
  LogBuilder expected = Expected();
  expected.Record(1, 2, kTime, "plain").Record(3, 4, kTime, "shown").Record(1, 2, kTime, "plain");
  EXPECT_EQ(Records(), RecordsOf(expected));
}

TEST_P(EncoderRoom, IsGivenNothingWithoutAMessage) {
  Start(false);
  EXPECT_FALSE(encoder_.WriteBinaryLogRecord(nullptr));
  EXPECT_EQ(stream_->Content().size(), 128u);
}

// A stream that takes two small records and no more.
TEST_P(EncoderRoom, EndsWhereTheStreamIsFull) {
  stream_ = std::make_shared<RoomOutputStream>(GetParam(), 128 + 2 * 23);
  encoder_.SetLogStream(stream_);
  Start(false);
  EXPECT_TRUE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "abc")));
  EXPECT_FALSE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "abcd")));
  EXPECT_TRUE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "def")));
  EXPECT_FALSE(encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "x")));
  encoder_.Stop();
  const LogBuilder expected = LogBuilder().Record(1, 2, kTime, "abc").Record(1, 2, kTime, "def");
  EXPECT_EQ(Records(), RecordsOf(expected));
  EXPECT_EQ(stream_->Content()[16], 128 + 2 * 23);
}

// What the stream holds when it breaks is given up, and neither more nor less.
TEST_P(EncoderRoom, LosesWithTheStreamWhatItHolds) {
  for (std::uint32_t before = 0; before < 12; ++before) {
    stream_ = std::make_shared<RoomOutputStream>(GetParam());
    encoder_.SetLogStream(stream_);
    Start(false);
    std::uint32_t accepted = 0;
    for (std::uint32_t i = 0; i < before + 3; ++i) {
      stream_->is_broken = i >= before;
      if (encoder_.WriteBinaryLogRecord(Message(1, 2, kTime, "abc"))) ++accepted;
    }
    const std::uint32_t held = stream_->Unflushed() / 23;
    encoder_.Stop();
    stream_->is_broken = false;
    EXPECT_EQ(encoder_.LostRecords(), held);
    EXPECT_EQ(encoder_.RecordCount(), accepted - held);
    EXPECT_EQ(encoder_.BytesWritten(), stream_->Content().size());
    LogBuilder expected;
    for (std::uint32_t i = 0; i < accepted - held; ++i) expected.Record(1, 2, kTime, "abc");
    EXPECT_EQ(Records(), RecordsOf(expected));
  }
}

TEST_P(EncoderRoom, NeedsMemoryOnlyForWhatDoesNotFit) {
  Start(false);
  const auto message = Message(1, 2, kTime, "abc");
  bool written = false;
  const bool asked = RanShort(0, [&] { written = encoder_.WriteBinaryLogRecord(message); });
  EXPECT_EQ(asked, GetParam() < 23);
  EXPECT_EQ(written, GetParam() >= 23);
}

}  // namespace
}  // namespace kestrav::test
