#include "kestrav/format/decoder.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/log_builder.h"
#include "support/short_memory.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

struct Keys {
  std::uint8_t header;
  std::uint8_t data;
};

// What holds for plain and for scrambled logs alike.
class BinaryDecoderTest : public testing::TestWithParam<Keys> {
 protected:
  LogBuilder Empty() const { return LogBuilder(GetParam().header, GetParam().data); }
  LogBuilder ThreeRecords() const {
    LogBuilder log = Empty();
    log.Record(1, 10, 1000, "first").Record(63, 20, 1001, "\x4C\x4Csecond").Record(2, 30, 5, "3");
    return log;
  }
  const Said first_{1, 10, 1000, "first"};
  const Said second_{63, 20, 1001, "\x4C\x4Csecond"};
  const Said third_{2, 30, 5, "3"};
};

INSTANTIATE_TEST_SUITE_P(Plain, BinaryDecoderTest, testing::Values(Keys{0, 0}));
INSTANTIATE_TEST_SUITE_P(Scrambled, BinaryDecoderTest,
                         testing::Values(Keys{0x35, 0x9B}, Keys{0xFF, 0xFE}, Keys{0, 0x4C},
                                         Keys{0x4C, 0}));

TEST_P(BinaryDecoderTest, ReadsEveryRecordBack) {
  OpenLog log(ThreeRecords().Build());
  EXPECT_EQ(log.Walk(), (std::vector{first_, second_, third_}));
  EXPECT_EQ(log.last, kNotEnoughData);
  EXPECT_EQ(log.decoder.GetRemainingBytes(), 0u);
}

TEST_P(BinaryDecoderTest, ReadsPastTheWrapOfTheRecordKeys) {
  LogBuilder builder = Empty();
  for (std::uint32_t i = 0; i < 600; ++i) builder.Record(1, 2, i, std::to_string(i));
  OpenLog log(builder.Build());
  const std::vector<Said> all = log.Walk();
  ASSERT_EQ(all.size(), 600u);
  EXPECT_EQ(all.back(), (Said{1, 2, 599, "599"}));
}

TEST_P(BinaryDecoderTest, FindsNothingInALogWithoutRecords) {
  OpenLog log(Empty().Build());
  LogMessage message;
  BinaryLogRecordHeader header;
  EXPECT_EQ(log.decoder.GetNextLogRecord(message), kNotEnoughData);
  EXPECT_EQ(log.decoder.GetNextLogRecordHeader(header), kNotEnoughData);
  EXPECT_EQ(log.decoder.GetNextRecordHeader(header), kNotEnoughData);
  EXPECT_EQ(log.decoder.GetNextPlaybackMessage(message), kNotEnoughData);
}

TEST_P(BinaryDecoderTest, WalksTheHeadersAlone) {
  const LogBuilder builder = ThreeRecords();
  OpenLog log(builder.Build());
  BinaryLogRecordHeader header;
  for (std::size_t n = 0; n < 3; ++n) {
    EXPECT_EQ(log.decoder.Getoffset(), builder.RecordOffset(n));
    ASSERT_EQ(log.decoder.GetNextLogRecordHeader(header), kSuccess);
    EXPECT_EQ(header.record_index, n);
  }
  EXPECT_EQ(header.client_id, 2);
  EXPECT_EQ(log.decoder.GetNextLogRecordHeader(header), kNotEnoughData);
  EXPECT_EQ(log.stream->bytes_read, 128u + 3 * 20);
}

TEST_P(BinaryDecoderTest, StandsAtThePayloadBehindAHeader) {
  OpenLog log(ThreeRecords().Build());
  BinaryLogRecordHeader header;
  ASSERT_EQ(log.decoder.GetNextRecordHeader(header), kSuccess);
  EXPECT_EQ(header.payload_size, 5u);
  EXPECT_EQ(log.decoder.Getoffset(), 148u);
  EXPECT_EQ(log.decoder.SkipData(header.payload_size), kSuccess);
  EXPECT_EQ(log.decoder.Getoffset(), 153u);
}

TEST_P(BinaryDecoderTest, DeliversTheSelectedClientsAndSkipsTheOthersUnread) {
  const LogBuilder builder = ThreeRecords();
  OpenLog log(builder.Build());
  const std::uint64_t unread = 5 + 1;
  EXPECT_EQ(log.WalkSelected(std::uint64_t{1} << 63), (std::vector{second_}));
  EXPECT_EQ(log.last, kNotEnoughData);
  EXPECT_EQ(log.stream->bytes_read, builder.Size() - unread);
}

TEST_P(BinaryDecoderTest, DeliversNothingWithoutASelection) {
  OpenLog log(ThreeRecords().Build());
  EXPECT_TRUE(log.WalkSelected(0).empty());
  EXPECT_EQ(log.last, kNotEnoughData);
}

TEST_P(BinaryDecoderTest, NeverSelectsIdsOf64OrMore) {
  LogBuilder builder = Empty();
  builder.Record(64, 1, 1, "a").Record(65, 1, 1, "b").Record(127, 1, 1, "c");
  builder.Record(0xFFFF, 1, 1, "d").Record(0x8001, 1, 1, "e").Record(63, 1, 1, "f");
  OpenLog log(builder.Build());
  EXPECT_EQ(log.WalkSelected(~std::uint64_t{0}), (std::vector{Said{63, 1, 1, "f"}}));
  EXPECT_EQ(log.last, kNotEnoughData);
}

TEST_P(BinaryDecoderTest, DeliversIdsOf64AndMoreWhenNothingIsSelected) {
  OpenLog log(Empty().Record(64, 1, 1, "a").Record(0xFFFE, 0xFFFE, 2, "b").Build());
  EXPECT_EQ(log.Walk(), (std::vector{Said{64, 1, 1, "a"}, Said{0xFFFE, 0xFFFE, 2, "b"}}));
}

TEST_P(BinaryDecoderTest, ReportsARecordWithoutIdsAndGoesOnBehindIt) {
  LogBuilder builder = Empty();
  builder.Record(0xFFFF, 1, 1, "no client").Record(1, 0xFFFF, 1, "no data id");
  OpenLog log(builder.Record(1, 10, 1000, "first").Build());
  EXPECT_TRUE(log.Walk().empty());
  EXPECT_EQ(log.last, kDamaged);
  EXPECT_TRUE(log.WalkSelected(2).empty());
  EXPECT_EQ(log.last, kDamaged);
  EXPECT_EQ(log.WalkSelected(2), (std::vector{first_}));
}

TEST_P(BinaryDecoderTest, DropsARecordWithoutPayload) {
  for (const bool selected : {false, true}) {
    OpenLog log(Empty().Record(1, 10, 1000, "").Record(1, 10, 1000, "first").Build());
    EXPECT_EQ(selected ? log.WalkSelected(2) : log.Walk(), (std::vector{first_}));
    EXPECT_EQ(log.last, kNotEnoughData);
  }
}

TEST_P(BinaryDecoderTest, StepsBackOverTheRecordJustRead) {
  OpenLog log(ThreeRecords().Build());
  LogMessage message;
  for (const Said& said : {first_, second_}) {
    for (int times = 0; times < 3; ++times) {
      ASSERT_EQ(log.decoder.GetNextLogRecord(message), kSuccess);
      EXPECT_EQ(WhatSays(message), said);
      EXPECT_TRUE(log.decoder.SetToPreviousLogRecord(message.GetDataSize()));
    }
    ASSERT_EQ(log.decoder.GetNextLogRecord(message), kSuccess);
  }
}

TEST_P(BinaryDecoderTest, DoesNotStepBackToTheVeryStartOrBeyond) {
  OpenLog log(Empty().Build());
  EXPECT_FALSE(log.decoder.SetToPreviousLogRecord(108));
  EXPECT_FALSE(log.decoder.SetToPreviousLogRecord(0xFFFFFFFF));
  EXPECT_FALSE(log.decoder.SetToPreviousLogRecord(0xFFFFFFEC));
  EXPECT_EQ(log.decoder.Getoffset(), 128u);
  EXPECT_TRUE(log.decoder.SetToPreviousLogRecord(107));
  EXPECT_EQ(log.decoder.Getoffset(), 1u);
}

TEST_P(BinaryDecoderTest, ExpectsTheFirstRecordHoweverFarItStepsBack) {
  OpenLog log(ThreeRecords().Build());
  ASSERT_TRUE(log.decoder.SetToPreviousLogRecord(5));
  ASSERT_TRUE(log.decoder.SetOffset(128));
  EXPECT_EQ(log.Walk(), (std::vector{first_, second_, third_}));
}

TEST_P(BinaryDecoderTest, ReadsTheFirstRecordAfterSteppingBackFromIt) {
  OpenLog log(ThreeRecords().Build());
  BinaryLogRecordHeader header;
  ASSERT_EQ(log.decoder.GetNextLogRecordHeader(header), kSuccess);
  ASSERT_TRUE(log.decoder.SetToPreviousLogRecord(5));
  EXPECT_EQ(log.Walk(), (std::vector{first_, second_, third_}));
}

TEST_P(BinaryDecoderTest, ReadsOneRecordByItsIndexWhereverItStands) {
  const LogBuilder builder = ThreeRecords();
  OpenLog log(builder.Build());
  ASSERT_TRUE(log.decoder.SetOffset(static_cast<std::uint32_t>(builder.RecordOffset(1))));
  BinaryLogRecordHeader header;
  ASSERT_EQ(log.decoder.ReadLogRecordHeader(header, 1), kSuccess);
  EXPECT_EQ(header.client_id, 63);
  Memory::MemBlock block;
  ASSERT_EQ(log.decoder.GetRecordData(block, 8, 1, header.payload_checksum), kSuccess);
  EXPECT_EQ(Content(block), (Bytes{0x4C, 0x4C, 's', 'e', 'c', 'o', 'n', 'd'}));
}

TEST_P(BinaryDecoderTest, ReportsAWrongPayloadChecksumBehindThePayload) {
  OpenLog log(ThreeRecords().Build());
  BinaryLogRecordHeader header;
  ASSERT_EQ(log.decoder.ReadLogRecordHeader(header, 0), kSuccess);
  Memory::MemBlock block;
  const auto wrong = static_cast<std::uint8_t>(header.payload_checksum ^ 1);
  EXPECT_EQ(log.decoder.GetRecordData(block, 5, 0, wrong), kDamaged);
  EXPECT_EQ(log.decoder.Getoffset(), 153u);
}

TEST_P(BinaryDecoderTest, ReadsAndSkipsNoMoreThanThereIs) {
  OpenLog log(Empty().Raw(Bytes(10)).Build());
  Memory::MemBlock block;
  BinaryLogRecordHeader header;
  EXPECT_EQ(log.decoder.ReadRecordData(block, 11, 0), kNotEnoughData);
  EXPECT_EQ(log.decoder.GetRecordData(block, 0xFFFFFFFF, 0, 0), kNotEnoughData);
  EXPECT_EQ(log.decoder.SkipData(11), kNotEnoughData);
  EXPECT_EQ(log.decoder.SkipData(0xFFFFFFFF), kNotEnoughData);
  EXPECT_EQ(log.decoder.ReadLogRecordHeader(header, 0), kNotEnoughData);
  EXPECT_EQ(log.decoder.Getoffset(), 128u);
  EXPECT_EQ(log.decoder.ReadRecordData(block, 0, 0), kDamaged);
  EXPECT_EQ(log.decoder.GetRecordData(block, 0, 0, 0), kDamaged);
  EXPECT_EQ(log.decoder.SkipData(0), kSuccess);
  EXPECT_EQ(log.decoder.SkipData(10), kSuccess);
  EXPECT_EQ(log.decoder.Getoffset(), 138u);
}

TEST_P(BinaryDecoderTest, ReportsAPayloadForWhichMemoryIsShort) {
  OpenLog log(ThreeRecords().Build());
  Memory::MemBlock block;
  ResultCode result = kSuccess;
  EXPECT_TRUE(RanShort(0, [&] { result = log.decoder.ReadRecordData(block, 5, 0); }));
  EXPECT_EQ(result, kDamaged);
}

TEST_P(BinaryDecoderTest, ReportsEveryReadAndSeekThatFails) {
  OpenLog log(ThreeRecords().Build());
  Memory::MemBlock block;
  BinaryLogRecordHeader header;
  log.stream->fail_reads = log.stream->fail_seeks = true;
  EXPECT_EQ(log.decoder.ReadRecordData(block, 5, 0), kDamaged);
  EXPECT_EQ(log.decoder.GetRecordData(block, 5, 0, 0), kDamaged);
  EXPECT_EQ(log.decoder.ReadLogRecordHeader(header, 0), kDamaged);
  EXPECT_EQ(log.decoder.SkipData(5), kDamaged);
  EXPECT_EQ(log.decoder.ScanForNextValidHeader(), kDamaged);
  EXPECT_FALSE(log.decoder.SetToPreviousLogRecord(1));
  EXPECT_FALSE(log.decoder.SetOffset(0));
  EXPECT_FALSE(log.decoder.Initialize());
}

// Raw records, as a caller hands them in one by one.
class RawRecordTest : public BinaryDecoderTest {
 protected:
  RawRecordTest() {
    const Bytes bytes = builder_.Build();
    EXPECT_TRUE(decoder_.Initialize(Block(Slice(bytes, 0, 128))));
  }
  Memory::MemBlock RawRecord(std::size_t n) const {
    const std::size_t end = n == 2 ? builder_.Size() : builder_.RecordOffset(n + 1);
    return Block(Slice(builder_.Build(), builder_.RecordOffset(n), end));
  }
  ResultCode Decode(const Memory::MemBlock& raw) { return decoder_.GetLogMessage(message_, raw); }

  const LogBuilder builder_ = ThreeRecords();
  BinaryDecoder decoder_;
  LogMessage message_;
};

INSTANTIATE_TEST_SUITE_P(Plain, RawRecordTest, testing::Values(Keys{0, 0}));
INSTANTIATE_TEST_SUITE_P(Scrambled, RawRecordTest, testing::Values(Keys{0x35, 0x9B}));

TEST_P(RawRecordTest, AreDecodedInTheirOrder) {
  for (std::size_t n = 0; n < 3; ++n) {
    const Memory::MemBlock raw = RawRecord(n);
    const Bytes before = Content(raw);
    ASSERT_EQ(Decode(raw), kSuccess) << n;
    EXPECT_EQ(WhatSays(message_), (std::vector{first_, second_, third_}[n]));
    EXPECT_EQ(Content(raw), before);
  }
}

TEST_P(RawRecordTest, AreRefusedWithFewerThan21Bytes) {
  Memory::MemBlock raw = RawRecord(0);
  for (const std::uint32_t size : {20u, 19u, 0u}) {
    ASSERT_TRUE(raw.Resize(size));
    EXPECT_EQ(Decode(raw), kDamaged) << size;
  }
  EXPECT_EQ(Decode(RawRecord(0)), kSuccess);
}

TEST_P(RawRecordTest, AreRefusedWithoutAPayloadAndTheIndexStays) {
  LogBuilder builder = Empty();
  const Bytes bytes = builder.Record(1, 10, 1000, "").Build();
  EXPECT_EQ(Decode(Block(Slice(bytes, 128, 148))), kDamaged);
  EXPECT_EQ(Decode(RawRecord(0)), kSuccess);
}

TEST_P(RawRecordTest, AreRefusedWhenTheirLengthIsNotTheOneInTheHeader) {
  Memory::MemBlock raw = RawRecord(0);
  ASSERT_TRUE(raw.Resize(24));
  EXPECT_EQ(Decode(raw), kDamaged);
  raw = RawRecord(0);
  ASSERT_TRUE(raw.Resize(26));
  EXPECT_EQ(Decode(raw), kDamaged);
  EXPECT_EQ(Decode(RawRecord(0)), kSuccess);  // the index still is the first one's
}

TEST_P(RawRecordTest, AreRefusedWithADamagedHeaderAndTheIndexStays) {
  for (std::uint32_t at = 0; at < 20; ++at) {
    Memory::MemBlock raw = RawRecord(0);
    raw.Data()[at] ^= 0x10;
    EXPECT_EQ(Decode(raw), kDamaged) << at;
  }
  EXPECT_EQ(Decode(RawRecord(0)), kSuccess);
}

TEST_P(RawRecordTest, AreRefusedWithADamagedPayloadAndTheIndexGoesOn) {
  Memory::MemBlock raw = RawRecord(0);
  raw.Data()[20] ^= 0x10;
  EXPECT_EQ(Decode(raw), kDamaged);
  EXPECT_EQ(message_.GetDataSize(), 0u);
  ASSERT_EQ(Decode(RawRecord(1)), kSuccess);
  EXPECT_EQ(WhatSays(message_), second_);
}

TEST_P(RawRecordTest, AreRefusedWithoutIds) {
  for (const std::size_t size : {1u, 200u}) {
    LogBuilder builder = Empty();
    const Bytes bytes = builder.Record(0xFFFF, 1, 1, std::string(size, 'x')).Build();
    BinaryDecoder decoder;
    ASSERT_TRUE(decoder.Initialize(Block(Slice(bytes, 0, 128))));
    const Memory::MemBlock raw = Block(Slice(bytes, 128, bytes.size()));
    EXPECT_EQ(decoder.GetLogMessage(message_, raw), kDamaged) << size;
  }
}

// A small payload has its place in the message.
TEST_P(RawRecordTest, NeedMemoryForALargePayloadAloneAndTheIndexStaysWhenItIsShort) {
  constexpr std::uint32_t kSmall = LogMessage::kInlineBytes;
  for (const std::uint32_t size : {1u, kSmall, kSmall + 1, 1000u}) {
    LogBuilder builder = Empty();
    const std::string payload(size, 'x');
    const Bytes bytes = builder.Record(4, 5, 6, payload).Build();
    BinaryDecoder decoder;
    ASSERT_TRUE(decoder.Initialize(Block(Slice(bytes, 0, 128))));
    const Memory::MemBlock raw = Block(Slice(bytes, 128, bytes.size()));
    LogMessage message;
    ResultCode result = kSuccess;
    const bool asked = RanShort(0, [&] { result = decoder.GetLogMessage(message, raw); });
    EXPECT_EQ(asked, size > kSmall) << size;
    EXPECT_EQ(result, asked ? kDamaged : kSuccess) << size;
    if (asked) {
      EXPECT_EQ(decoder.GetLogMessage(message, raw), kSuccess) << size;
    }
    EXPECT_EQ(WhatSays(message), (Said{4, 5, 6, payload}));
  }
}

}  // namespace
}  // namespace kestrav::test
