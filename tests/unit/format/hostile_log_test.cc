#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "kestrav/format/decoder.h"
#include "support/log_builder.h"
#include "support/short_memory.h"
#include "unit/format/flaky_input_stream.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

// Everything a reader can do with a log, on bytes that may be anything. The stream checks that
// nothing reaches beyond its end, and each walk ends because its code is not a success.
class Reading {
 public:
  explicit Reading(const Bytes& bytes) : stream_(std::make_shared<FlakyInputStream>(bytes)) {
    BinaryDecoder decoder(stream_);
    const LargestAllocation largest;
    opened_ = decoder.Initialize();
    LogMessage message;
    BinaryLogRecordHeader header;
    while ((last_ = decoder.GetNextLogRecord(message)) == kSuccess) ++records_;
    Restart(decoder);
    while (decoder.GetNextLogRecordHeader(header) == kSuccess) {
    }
    Restart(decoder);
    decoder.SetPlaybackSelection(ClientIdSet(0xAAAA'AAAA'AAAA'AAAA));
    while (decoder.GetNextPlaybackMessage(message) == kSuccess) {
    }
    BinaryLogStreamHeader rebuilt;
    static_cast<void>(decoder.ScanStreamHeaderInfo(rebuilt));
    EXPECT_LE(largest.Bytes(), bytes.size());
    EXPECT_FALSE(stream_->overreached);
  }

  bool Opened() const { return opened_; }
  std::size_t Records() const { return records_; }
  ResultCode Last() const { return last_; }

 private:
  void Restart(BinaryDecoder& decoder) { EXPECT_EQ(decoder.Initialize(), opened_); }

  SmartPtr::Ptr<FlakyInputStream> stream_;
  bool opened_ = false;
  std::size_t records_ = 0;
  ResultCode last_ = kSuccess;
};

class CutLog : public testing::TestWithParam<std::uint8_t> {};

INSTANTIATE_TEST_SUITE_P(PlainAndScrambled, CutLog, testing::Values(0, 0x35));

TEST_P(CutLog, YieldsEveryWholeRecordWhereverItIsCut) {
  LogBuilder builder(GetParam(), GetParam());
  builder.Record(1, 2, 0, "first").Record(64, 2, 1, "\x4C\x4C\x4C\x4C").Record(1, 2, 2, "third");
  for (std::size_t size = 0; size <= builder.Size(); ++size) {
    const Reading reading(LogBuilder(builder).Cut(size).Build());
    std::size_t whole = 0;
    for (const std::size_t end :
         {builder.RecordOffset(1), builder.RecordOffset(2), builder.Size()}) {
      if (end <= size) ++whole;
    }
    EXPECT_EQ(reading.Opened(), size >= 128) << size;
    EXPECT_EQ(reading.Records(), whole) << size;
    if (size >= 128) {
      EXPECT_EQ(reading.Last(), kNotEnoughData) << size;
    }
  }
}

TEST_P(CutLog, LeavesThePositionBeforeACutHeaderAndBehindAWholeOne) {
  LogBuilder builder(GetParam(), GetParam());
  builder.Record(1, 2, 0, "payload");
  for (std::uint32_t size = 128; size < builder.Size(); ++size) {
    OpenLog log(LogBuilder(builder).Cut(size).Build());
    EXPECT_TRUE(log.Walk().empty());
    EXPECT_EQ(log.decoder.Getoffset(), size < 148 ? 128 : 148) << size;
  }
}

TEST_P(CutLog, ExpectsTheRecordBehindTheOneThatWasCut) {
  LogBuilder builder(GetParam(), GetParam());
  builder.Record(1, 2, 0, "payload").Record(1, 2, 1, "x");
  OpenLog log(LogBuilder(builder).Cut(148).Build());
  EXPECT_TRUE(log.Walk().empty());
  log.decoder.SetInputStream(std::make_shared<BytesInputStream>(builder.Build()));
  ASSERT_TRUE(log.decoder.SetOffset(static_cast<std::uint32_t>(builder.RecordOffset(1))));
  EXPECT_EQ(log.Walk(), (std::vector{Said{1, 2, 1, "x"}}));
}

struct FillCase {
  std::uint8_t header_key;
  std::uint8_t byte;
};

class FilledLog : public testing::TestWithParam<FillCase> {};

INSTANTIATE_TEST_SUITE_P(Bytes, FilledLog,
                         testing::Values(FillCase{0, 0}, FillCase{0, 0x4C}, FillCase{0, 0xFF},
                                         FillCase{0x4C, 0}, FillCase{0x35, 0x35 ^ 0x4C},
                                         FillCase{0x35, 0x4C}));

TEST_P(FilledLog, HoldsNoRecord) {
  for (std::size_t size = 0; size < 300; ++size) {
    const LogBuilder builder(GetParam().header_key);
    const Reading reading(LogBuilder(builder).Raw(Bytes(size, GetParam().byte)).Build());
    EXPECT_TRUE(reading.Opened());
    EXPECT_EQ(reading.Records(), 0u);
    EXPECT_EQ(reading.Last(), size < 20 ? kNotEnoughData : kDamaged) << size;
  }
}

TEST_P(FilledLog, IsNoLogWithoutAHeader) {
  for (const std::size_t size : {1u, 127u, 128u, 500u}) {
    EXPECT_FALSE(Reading(Bytes(size, GetParam().byte)).Opened());
  }
}

TEST(HostileLog, CannotBeEmpty) { EXPECT_FALSE(Reading(Bytes()).Opened()); }

// The header of a record that announces `size` payload bytes, whatever follows.
Bytes HeaderWithSize(std::uint32_t size) {
  Bytes header{0x4C, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0, 3, 0, 0, 0, 0, 0, 0, 0};
  for (std::size_t i = 0; i < 4; ++i) header[16 + i] = static_cast<std::uint8_t>(size >> (8 * i));
  for (std::size_t i = 2; i < 20; ++i) header[1] ^= header[i];
  return header;
}

class AnnouncedSize : public testing::TestWithParam<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(BeyondTheEnd, AnnouncedSize,
                         testing::Values(31, 0x7FFFFFFF, 0x80000000, 0xFFFFFF6B, 0xFFFFFF6C,
                                         0xFFFFFFEB, 0xFFFFFFEC, 0xFFFFFFFF));

TEST_P(AnnouncedSize, IsNeitherReadNorAllocatedBeyondTheEnd) {
  const Bytes bytes = LogBuilder().Raw(HeaderWithSize(GetParam())).Raw(Bytes(30)).Build();
  const Reading reading(bytes);
  EXPECT_EQ(reading.Records(), 0u);
  EXPECT_EQ(reading.Last(), kNotEnoughData);

  OpenLog log(bytes);
  EXPECT_TRUE(log.Walk().empty());
  EXPECT_EQ(log.stream->bytes_read, 148u);
  EXPECT_EQ(log.decoder.Getoffset(), 148u);
  Memory::MemBlock block;
  const LargestAllocation largest;
  EXPECT_EQ(log.decoder.ReadRecordData(block, GetParam(), 0), kNotEnoughData);
  EXPECT_EQ(log.decoder.GetRecordData(block, GetParam(), 0, 0), kNotEnoughData);
  EXPECT_EQ(largest.Bytes(), 0u);
}

TEST_P(AnnouncedSize, IsPassedOverByTheSearch) {
  LogBuilder builder;
  builder.Raw(Bytes(20, 0xEE)).Raw(HeaderWithSize(GetParam())).Record(1, 2, 3, "x");
  const Reading reading(builder.Build());
  EXPECT_EQ(reading.Records(), 1u);
}

TEST(HostileLog, MayStepBackOnlyOverWhatIsThere) {
  OpenLog log(LogBuilder().Raw(HeaderWithSize(0xFFFFFFFF)).Build());
  EXPECT_TRUE(log.Walk().empty());
  EXPECT_FALSE(log.decoder.SetToPreviousLogRecord(0xFFFFFFFF));
  EXPECT_EQ(log.decoder.Getoffset(), 148u);
}

TEST(HostileLog, WrapsTheIndexBehindTheLastOne) {
  LogBuilder builder(0x35, 0x9B);
  builder.NextIndex(0xFFFFFF00).Record(1, 2, 3, "a");
  builder.NextIndex(0xFFFFFF01).Record(1, 2, 4, "b");
  OpenLog log(builder.Build());
  EXPECT_EQ(log.Walk().size(), 2u);
  LogBuilder plain;
  plain.NextIndex(0xFFFFFFFF).Record(1, 2, 3, "a").Record(1, 2, 4, "b");
  EXPECT_EQ(OpenLog(plain.Build()).Walk().size(), 2u);
}

TEST(HostileLog, IsReadToAnEndWhateverItsBytes) {
  std::mt19937 random(7);
  for (int i = 0; i < 300; ++i) {
    Bytes bytes = LogBuilder(i % 3 == 0 ? 0 : static_cast<std::uint8_t>(random())).Build();
    bytes.resize(128 + random() % 2000);
    for (std::size_t at = 128; at < bytes.size(); ++at) {
      bytes[at] = static_cast<std::uint8_t>(random() % 4 == 0 ? 0x4C : random() & random());
    }
    EXPECT_TRUE(Reading(bytes).Opened());
  }
}

}  // namespace
}  // namespace kestrav::test
