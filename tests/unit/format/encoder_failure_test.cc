#include <gtest/gtest.h>

#include <memory>

#include "kestrav/format/encoder.h"
#include "support/log_builder.h"
#include "support/manual_clock.h"
#include "support/short_memory.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

class BinaryEncoderFailure : public testing::Test {
 protected:
  BinaryEncoderFailure() { encoder_.EnableEncryption(false); }

  bool Write(std::string_view payload) {
    return encoder_.WriteBinaryLogRecord(Message(1, 2, 1000, payload));
  }
  // What follows the stream header.
  Bytes Records() const { return Slice(stream_->Content(), 128, stream_->Content().size()); }
  static Bytes RecordsOf(const LogBuilder& log) { return Slice(log.Build(), 128, log.Size()); }

  ManualClock clock_;
  SmartPtr::Ptr<BytesOutputStream> stream_ = std::make_shared<BytesOutputStream>();
  BinaryEncoder encoder_{stream_};
};

TEST_F(BinaryEncoderFailure, AnEmptySelectionStartsNothing) {
  EXPECT_FALSE(encoder_.Start(0));
  EXPECT_EQ(stream_->Writes(), 0);
  EXPECT_EQ(encoder_.GetRecordingTimeScnds(), 0u);
}

TEST_F(BinaryEncoderFailure, AFailedStartEndsTheRecordingTime) {
  ASSERT_TRUE(encoder_.Start(1));
  clock_->Advance(7000);
  EXPECT_EQ(encoder_.GetRecordingTimeScnds(), 7u);
  EXPECT_FALSE(encoder_.Start(0));
  EXPECT_EQ(encoder_.GetRecordingTimeScnds(), 0u);
}

TEST_F(BinaryEncoderFailure, NothingStartsWithoutAStream) {
  encoder_.SetLogStream(nullptr);
  EXPECT_FALSE(encoder_.Start(1));
  EXPECT_FALSE(encoder_.WriteStreamHeader());
  const std::uint8_t byte = 1;
  EXPECT_FALSE(encoder_.Write(&byte, 1));
  EXPECT_FALSE(encoder_.SeekStream(0));
}

TEST_F(BinaryEncoderFailure, NothingStartsWithoutAMillisecondClock) {
  clock_->FailMs();
  EXPECT_FALSE(encoder_.Start(1));
  EXPECT_EQ(stream_->Writes(), 0);
  clock_->Recover();
  EXPECT_TRUE(encoder_.Start(1));
}

TEST_F(BinaryEncoderFailure, NothingStartsWithoutAWallClock) {
  clock_->FailWallClock();
  EXPECT_FALSE(encoder_.Start(1));
  EXPECT_EQ(stream_->Writes(), 0);
  clock_->Recover();
  EXPECT_TRUE(encoder_.Start(1));
}

TEST_F(BinaryEncoderFailure, WhatHasNoKeyIsWrittenPlainAndReadBack) {
  for (const std::uint32_t good_readings : {1u, 2u}) {
    const auto stream = std::make_shared<BytesOutputStream>();
    BinaryEncoder encoder(stream);
    clock_->FailMs(good_readings);  // the start clock's, then the header key's
    ASSERT_TRUE(encoder.Start(1));
    clock_->Recover();
    ASSERT_TRUE(encoder.WriteBinaryLogRecord(Message(1, 2, 1000, "first")));
    const Bytes bytes = stream->Content();
    EXPECT_EQ(bytes[10] == 0, good_readings == 1);
    EXPECT_EQ(bytes[11], 0);
    EXPECT_EQ(Slice(bytes, 148, 153), (Bytes{'f', 'i', 'r', 's', 't'}));
    EXPECT_EQ(OpenLog(bytes).Walk(), (std::vector{Said{1, 2, 1000, "first"}}));
  }
}

TEST_F(BinaryEncoderFailure, NothingStartsBeforeTheFirstSecondOfTheWallClock) {
  const ManualClock early(1000, 0);
  EXPECT_FALSE(encoder_.Start(1));
  EXPECT_EQ(stream_->Writes(), 0);
}

TEST_F(BinaryEncoderFailure, NothingStartsOnAStreamWithoutRoomForTheHeader) {
  stream_->SetRoom(127);
  EXPECT_FALSE(encoder_.Start(1));
  EXPECT_TRUE(stream_->Content().empty());
  stream_->SetRoom(128);
  EXPECT_TRUE(encoder_.Start(1));
}

TEST_F(BinaryEncoderFailure, ARefusedRecordIsDroppedAndTheNextTakesItsIndex) {
  ASSERT_TRUE(encoder_.Start(1));
  ASSERT_TRUE(Write("first"));
  stream_->FailWrites(true);
  EXPECT_FALSE(Write("dropped"));
  EXPECT_FALSE(Write("dropped too"));
  stream_->FailWrites(false);
  ASSERT_TRUE(Write("second"));
  encoder_.Stop();
  LogBuilder expected;
  expected.Record(1, 2, 1000, "first").Record(1, 2, 1000, "second");
  EXPECT_EQ(Records(), RecordsOf(expected));
  EXPECT_EQ(stream_->Content()[16], expected.Size());  // the stream length
}

TEST_F(BinaryEncoderFailure, AFullStreamTakesWhatStillFits) {
  ASSERT_TRUE(encoder_.Start(1));
  stream_->SetRoom(128 + 30);
  EXPECT_FALSE(Write("eleven byte"));
  EXPECT_TRUE(Write("ten bytes!"));
  EXPECT_FALSE(Write("x"));
  encoder_.Stop();
  EXPECT_EQ(Records(), RecordsOf(LogBuilder().Record(1, 2, 1000, "ten bytes!")));
  EXPECT_EQ(stream_->Content()[16], 158);
}

TEST_F(BinaryEncoderFailure, AScrambledLogStaysReadableBehindARefusedRecord) {
  encoder_.EnableEncryption(true);
  ASSERT_TRUE(encoder_.Start(1));
  stream_->FailWrites(true);
  EXPECT_FALSE(Write("dropped"));
  stream_->FailWrites(false);
  ASSERT_TRUE(Write("first"));
  LogBuilder expected(stream_->Content()[10], stream_->Content()[11]);
  EXPECT_EQ(Records(), RecordsOf(expected.Record(1, 2, 1000, "first")));
}

TEST_F(BinaryEncoderFailure, ARecordIsDroppedWhenMemoryIsShort) {
  ASSERT_TRUE(encoder_.Start(1));
  const auto message = Message(1, 2, 1000, "dropped");
  bool written = true;
  EXPECT_TRUE(RanShort(0, [&] { written = encoder_.WriteBinaryLogRecord(message); }));
  EXPECT_FALSE(written);
  EXPECT_EQ(Payload(*message), "dropped");
  ASSERT_TRUE(Write("first"));
  EXPECT_EQ(Records(), RecordsOf(LogBuilder().Record(1, 2, 1000, "first")));
}

// Claims a payload of any size without holding it.
class Claim final : public LogMessage {
 public:
  explicit Claim(std::uint32_t size) : claimed_(size) {}
  std::uint32_t GetDataSize() const override { return claimed_; }

 private:
  const std::uint32_t claimed_;
};

TEST_F(BinaryEncoderFailure, ARecordLongerThan32BitsIsRefusedBeforeAnyAllocation) {
  ASSERT_TRUE(encoder_.Start(1));
  for (const std::uint32_t size : {0xFFFFFFEBu, 0xFFFFFFECu, 0xFFFFFFFFu}) {
    const auto message = std::make_shared<Claim>(size);
    bool written = true;
    const bool asked_for_memory =
        RanShort(0, [&] { written = encoder_.WriteBinaryLogRecord(message); });
    EXPECT_FALSE(written);
    EXPECT_EQ(asked_for_memory, size == 0xFFFFFFEB) << size;
  }
}

TEST_F(BinaryEncoderFailure, TheProvisionalHeaderStaysInAStreamThatCannotSeek) {
  ASSERT_TRUE(encoder_.Start(1));
  const Bytes provisional = stream_->Content();
  ASSERT_TRUE(Write("first"));
  clock_->Advance(4000);
  stream_->FailSeeks(true);
  encoder_.Stop();
  EXPECT_EQ(Slice(stream_->Content(), 0, 128), provisional);
  EXPECT_EQ(Records(), RecordsOf(LogBuilder().Record(1, 2, 1000, "first")));
  EXPECT_FALSE(encoder_.IsStreamValid());
}

TEST_F(BinaryEncoderFailure, TheProvisionalHeaderStaysWhenTheFinalOneIsRefused) {
  ASSERT_TRUE(encoder_.Start(1));
  const Bytes provisional = stream_->Content();
  stream_->FailWrites(true);
  encoder_.Stop();
  EXPECT_EQ(stream_->Content(), provisional);
  EXPECT_FALSE(encoder_.IsStreamValid());
}

TEST_F(BinaryEncoderFailure, ThereIsNoDurationWithoutAClockAtTheStop) {
  ASSERT_TRUE(encoder_.Start(1));
  ASSERT_TRUE(Write("first"));
  clock_->Advance(4000);
  clock_->FailMs();
  EXPECT_EQ(encoder_.GetRecordingTimeScnds(), 0u);
  encoder_.Stop();
  EXPECT_EQ(Slice(stream_->Content(), 12, 20), (Bytes{0, 0, 0, 0, 153, 0, 0, 0}));
}

TEST_F(BinaryEncoderFailure, StoppingWithoutAStartWritesNothing) {
  encoder_.Stop();
  EXPECT_EQ(stream_->Writes(), 0);
  EXPECT_FALSE(encoder_.IsStreamValid());
}

}  // namespace
}  // namespace kestrav::test
