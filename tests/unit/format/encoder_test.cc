#include "kestrav/format/encoder.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/log_builder.h"
#include "support/manual_clock.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kStartMs = 1000;

class EncoderTest : public testing::Test {
 protected:
  // A plain log, unless `scrambled`, of client 1.
  void Start(bool scrambled = false) {
    encoder_.EnableEncryption(scrambled);
    encoder_.SetLogStream(stream_);
    ASSERT_TRUE(encoder_.Start(2));
  }
  bool Write(std::string_view payload, std::uint32_t time_ms = kStartMs) {
    return encoder_.WriteBinaryLogRecord(Message(1, 2, time_ms, payload));
  }
  std::uint32_t HeaderField(std::size_t offset) const {
    const Bytes bytes = stream_->Content();
    return static_cast<std::uint32_t>(bytes[offset] | bytes[offset + 1] << 8 |
                                      bytes[offset + 2] << 16) |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
  }
  std::uint32_t DurationMs() const { return HeaderField(12); }
  std::uint32_t StreamLength() const { return HeaderField(16); }

  ManualClock clock_{kStartMs, 0x3B9ACA00};
  SmartPtr::Ptr<BytesOutputStream> stream_ = std::make_shared<BytesOutputStream>();
  BinaryEncoder encoder_;
};

using BinaryEncoderTest = EncoderTest;

TEST_F(BinaryEncoderTest, WritesAPlainLogByteByByte) {
  Start();
  EXPECT_TRUE(encoder_.WriteBinaryLogRecord(Message(1, 0x0203, 0x0465, "AB")));
  EXPECT_TRUE(encoder_.WriteBinaryLogRecord(Message(0xFFFE, 0, 0x80000000, "\x4C")));
  clock_->Advance(2600);
  encoder_.Stop();

  Bytes expected{'L',  'O',  'G',  ':',  0x00, 0xCA, 0x9A, 0x3B,
                 0x02, 0x00, 0x00, 0x00,                          // the keys
                 0xB8, 0x0B, 0x00, 0x00, 0xAB, 0x00, 0x00, 0x00,  // 3000 ms, 171 bytes
                 0xE8, 0x03, 0x00, 0x00, 0xE8, 0x03, 0x00, 0x00};
  expected.resize(128);
  const Bytes records{0x4C, 0x60, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x03,
                      0x02, 0x65, 0x04, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 'A',  'B',
                      0x4C, 0xCD, 0x4C, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFE, 0xFF, 0x00,
                      0x00, 0x00, 0x00, 0x00, 0x80, 0x01, 0x00, 0x00, 0x00, 0x4C};
  expected.insert(expected.end(), records.begin(), records.end());
  EXPECT_EQ(stream_->Content(), expected);
}

TEST_F(BinaryEncoderTest, ScramblesHeaderAndPayloadWithTheKeysInTheStreamHeader) {
  Start(true);
  EXPECT_TRUE(Write("first"));
  EXPECT_TRUE(Write("second\x4C"));
  const Bytes bytes = stream_->Content();
  EXPECT_NE(bytes[10], 0);
  EXPECT_NE(bytes[11], 0);
  LogBuilder expected(bytes[10], bytes[11]);
  expected.Record(1, 2, kStartMs, "first").Record(1, 2, kStartMs, "second\x4C");
  EXPECT_EQ(Slice(bytes, 128, bytes.size()), Slice(expected.Build(), 128, expected.Size()));
}

TEST_F(BinaryEncoderTest, ScramblesUnlessToldOtherwise) {
  encoder_.SetLogStream(stream_);
  ASSERT_TRUE(encoder_.Start(1));
  EXPECT_NE(stream_->Content()[10], 0);
  EXPECT_NE(stream_->Content()[11], 0);
}

TEST_F(BinaryEncoderTest, LeavesTheMessageScrambledWhereItStands) {
  Start(true);
  const auto message = Message(1, 2, kStartMs, "abc");
  ASSERT_TRUE(encoder_.WriteBinaryLogRecord(message));
  const auto key = static_cast<char>(stream_->Content()[11]);
  EXPECT_EQ(Payload(*message),
            (std::string{static_cast<char>('a' ^ key), static_cast<char>('b' ^ key),
                         static_cast<char>('c' ^ key)}));
}

TEST_F(BinaryEncoderTest, LeavesTheMessageAsItIsInAPlainLog) {
  Start();
  const auto message = Message(1, 2, kStartMs, "abc");
  ASSERT_TRUE(encoder_.WriteBinaryLogRecord(message));
  EXPECT_EQ(Payload(*message), "abc");
}

TEST_F(BinaryEncoderTest, WritesRecordsPlainFromTheMomentScramblingIsSwitchedOff) {
  Start(true);
  encoder_.EnableEncryption(false);
  ASSERT_TRUE(Write("abc"));
  EXPECT_EQ(Slice(stream_->Content(), 128, 151),
            Slice(LogBuilder().Record(1, 2, kStartMs, "abc").Build(), 128, 151));
}

TEST_F(BinaryEncoderTest, WritesEachRecordInOneWrite) {
  Start();
  EXPECT_EQ(stream_->Writes(), 1);
  ASSERT_TRUE(Write("abc"));
  EXPECT_EQ(stream_->Writes(), 2);
}

TEST_F(BinaryEncoderTest, WritesAProvisionalHeaderAtTheStart) {
  Start();
  EXPECT_EQ(stream_->Content().size(), 128u);
  EXPECT_EQ(DurationMs(), 0u);
  EXPECT_EQ(StreamLength(), 0u);
}

TEST_F(BinaryEncoderTest, CountsTheStreamLengthOfAllRecords) {
  Start();
  std::uint32_t length = 128;
  for (std::uint32_t size = 1; size <= 300; ++size) {
    ASSERT_TRUE(Write(std::string(size, 'x')));
    length += 20 + size;
  }
  encoder_.Stop();
  EXPECT_EQ(StreamLength(), length);
  EXPECT_EQ(stream_->Content().size(), length);
}

TEST_F(BinaryEncoderTest, WritesAMessageWithoutPayloadAsABareHeader) {
  Start();
  EXPECT_TRUE(encoder_.WriteBinaryLogRecord(std::make_shared<LogMessage>()));
  encoder_.Stop();
  EXPECT_EQ(stream_->Content().size(), 148u);
  EXPECT_EQ(StreamLength(), 148u);
}

TEST_F(BinaryEncoderTest, LeavesTheStreamAtItsStartAndLetsGoOfIt) {
  Start();
  ASSERT_TRUE(Write("abc"));
  encoder_.Stop();
  EXPECT_EQ(stream_->Position(), 0u);
  EXPECT_EQ(stream_.use_count(), 1);
  EXPECT_FALSE(encoder_.IsStreamValid());
  EXPECT_FALSE(Write("abc"));
  EXPECT_FALSE(encoder_.Start(2));
}

TEST_F(BinaryEncoderTest, CountsTheHeaderOnceHoweverOftenItIsFinished) {
  Start();
  ASSERT_TRUE(Write("abc"));
  encoder_.Stop();
  const Bytes finished = stream_->Content();
  encoder_.SetLogStream(stream_);
  encoder_.Stop();
  EXPECT_EQ(stream_->Content(), finished);
}

TEST_F(BinaryEncoderTest, StopsWithoutAStream) {
  encoder_.Stop();
  EXPECT_FALSE(encoder_.IsStreamValid());
}

TEST_F(BinaryEncoderTest, StartsEachLogAnew) {
  Start(true);
  ASSERT_TRUE(Write("of the first log"));
  encoder_.Stop();
  stream_ = std::make_shared<BytesOutputStream>();
  Start();
  ASSERT_TRUE(Write("abc"));
  encoder_.Stop();
  EXPECT_EQ(StreamLength(), 151u);
  EXPECT_EQ(HeaderField(8), 2u);  // no keys
  EXPECT_EQ(Slice(stream_->Content(), 128, 151),
            Slice(LogBuilder().Record(1, 2, kStartMs, "abc").Build(), 128, 151));
}

TEST_F(BinaryEncoderTest, FlushesItsStream) {
  encoder_.FlushStream();
  Start();
  encoder_.FlushStream();
  EXPECT_EQ(stream_->Flushes(), 1);
}

TEST_F(BinaryEncoderTest, RefusesToWriteNothing) {
  Start();
  const std::uint8_t byte = 1;
  EXPECT_FALSE(encoder_.Write(nullptr, 1));
  EXPECT_FALSE(encoder_.Write(&byte, 0));
  EXPECT_FALSE(encoder_.WriteBinaryLogRecord(nullptr));
  EXPECT_EQ(stream_->Content().size(), 128u);
  EXPECT_TRUE(encoder_.Write(&byte, 1));
  EXPECT_TRUE(encoder_.SeekStream(128));
  EXPECT_FALSE(encoder_.SeekStream(130));
}

struct SelectionCase {
  std::uint64_t mask;
  std::uint16_t stored;
};

class EncoderSelection : public EncoderTest, public testing::WithParamInterface<SelectionCase> {};

TEST_P(EncoderSelection, IsStoredIn16Bits) {
  encoder_.SetLogStream(stream_);
  ASSERT_TRUE(encoder_.Start(GetParam().mask));
  EXPECT_EQ(HeaderField(8) & 0xFFFF, GetParam().stored);
}

INSTANTIATE_TEST_SUITE_P(Masks, EncoderSelection,
                         testing::Values(SelectionCase{1, 1}, SelectionCase{0x1001, 0x1001},
                                         SelectionCase{0x8000, 0x8000},
                                         SelectionCase{0xFFFF, 0xFFFF},
                                         SelectionCase{0x10000, 0x8000},
                                         SelectionCase{0x301001, 0x9001},
                                         SelectionCase{0x1'0000'0005, 0x8005},
                                         SelectionCase{0x8000'0000'0000'0000, 0x8000},
                                         SelectionCase{0xFFFF'FFFF'FFFF'FFFF, 0xFFFF}));

struct DurationCase {
  std::uint32_t passed_ms;
  std::uint32_t duration_ms;
};

class EncoderDuration : public EncoderTest, public testing::WithParamInterface<DurationCase> {};

TEST_P(EncoderDuration, IsRoundedToWholeSeconds) {
  Start();
  ASSERT_TRUE(Write("x"));
  clock_->Advance(GetParam().passed_ms);
  EXPECT_EQ(encoder_.GetRecordingTimeScnds() * 1000, GetParam().duration_ms);
  encoder_.Stop();
  EXPECT_EQ(DurationMs(), GetParam().duration_ms);
}

INSTANTIATE_TEST_SUITE_P(Times, EncoderDuration,
                         testing::Values(DurationCase{0, 0}, DurationCase{499, 0},
                                         DurationCase{500, 1000}, DurationCase{1499, 1000},
                                         DurationCase{1500, 2000},
                                         DurationCase{3'600'000, 3'600'000}));

TEST_F(BinaryEncoderTest, StoresNoDurationWhenTheLastRecordIsBeforeTheStart) {
  Start();
  ASSERT_TRUE(Write("x", kStartMs - 1));
  clock_->Advance(5000);
  encoder_.Stop();
  EXPECT_EQ(DurationMs(), 0u);
  EXPECT_EQ(StreamLength(), 149u);
}

TEST_F(BinaryEncoderTest, HasADurationWithoutAnyRecord) {
  Start();
  clock_->Advance(5000);
  encoder_.Stop();
  EXPECT_EQ(DurationMs(), 5000u);
  EXPECT_EQ(StreamLength(), 128u);
}

TEST_F(BinaryEncoderTest, HasNoRecordingTimeBeforeItsFirstStart) {
  EXPECT_EQ(encoder_.GetRecordingTimeScnds(), 0u);
}

TEST_F(BinaryEncoderTest, KeepsCountingTimeAfterTheStop) {
  Start();
  encoder_.Stop();
  clock_->Advance(3000);
  EXPECT_EQ(encoder_.GetRecordingTimeScnds(), 3u);
}

TEST(BinaryEncoderAtTheWrap, CountsTheTimeAcrossTheEndOfTheClock) {
  ManualClock clock(0xFFFFFF00);
  BinaryEncoder encoder(std::make_shared<BytesOutputStream>());
  ASSERT_TRUE(encoder.Start(1));
  clock->Advance(2000);
  EXPECT_EQ(encoder.GetRecordingTimeScnds(), 2u);
}

}  // namespace
}  // namespace kestrav::test
