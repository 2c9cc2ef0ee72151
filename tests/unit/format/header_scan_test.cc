#include <gtest/gtest.h>

#include <memory>

#include "kestrav/format/decoder.h"
#include "support/log_builder.h"
#include "unit/format/flaky_input_stream.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

struct Rebuilt {
  bool done = false;
  BinaryLogStreamHeader header;
};

Rebuilt Rebuild(const LogBuilder& builder) {
  const auto stream = std::make_shared<BytesInputStream>(builder.Build());
  BinaryDecoder decoder(stream);
  Rebuilt rebuilt;
  rebuilt.done = decoder.ScanStreamHeaderInfo(rebuilt.header);
  EXPECT_FALSE(decoder.IsStreamValid());
  if (rebuilt.done) {
    EXPECT_EQ(stream->Position(), 0u);
  }
  return rebuilt;
}

TEST(StreamHeaderScan, TakesSelectionDurationAndLengthFromTheRecords) {
  LogBuilder builder(0x35, 0x9B);
  builder.StartClock(1000).Selection(0x4242).Duration(77);
  builder.Record(0, 1, 1000, "a").Record(3, 1, 1500, "bb").Record(15, 1, 3456, "ccc");
  const Rebuilt rebuilt = Rebuild(builder);
  ASSERT_TRUE(rebuilt.done);
  EXPECT_EQ(rebuilt.header.client_selection, 0x8009);
  EXPECT_EQ(rebuilt.header.recording_duration, 2456u);  // to the millisecond
  EXPECT_EQ(rebuilt.header.stream_length, builder.Size());
}

TEST(StreamHeaderScan, KeepsTheOtherFields) {
  const Rebuilt rebuilt = Rebuild(LogBuilder(0x35, 0x9B).StartClock(1000).Record(1, 1, 1000, "a"));
  EXPECT_EQ(rebuilt.header.magic, kStreamMagic);
  EXPECT_EQ(rebuilt.header.start_time, 1'000'000'000);
  EXPECT_EQ(rebuilt.header.header_key, 0x35);
  EXPECT_EQ(rebuilt.header.data_key, 0x9B);
  EXPECT_EQ(rebuilt.header.clock_rate, 1000u);
  EXPECT_EQ(rebuilt.header.start_clock, 1000u);
}

struct SelectionCase {
  std::uint16_t client;
  std::uint16_t mask;
};

class ScannedSelection : public testing::TestWithParam<SelectionCase> {};

TEST_P(ScannedSelection, SharesItsLastBitAmongHigherIds) {
  const Rebuilt rebuilt = Rebuild(LogBuilder().Record(GetParam().client, 1, 5, "x"));
  ASSERT_TRUE(rebuilt.done);
  EXPECT_EQ(rebuilt.header.client_selection, GetParam().mask);
}

INSTANTIATE_TEST_SUITE_P(Ids, ScannedSelection,
                         testing::Values(SelectionCase{0, 1}, SelectionCase{14, 0x4000},
                                         SelectionCase{15, 0x8000}, SelectionCase{16, 0x8000},
                                         SelectionCase{31, 0x8000}, SelectionCase{32, 0x8000},
                                         SelectionCase{63, 0x8000}, SelectionCase{64, 0x8000},
                                         SelectionCase{0xFFFF, 0x8000}));

TEST(StreamHeaderScan, FindsAnEmptyLogGood) {
  const Rebuilt rebuilt = Rebuild(LogBuilder().StartClock(1000).Selection(6).Duration(5));
  ASSERT_TRUE(rebuilt.done);
  EXPECT_EQ(rebuilt.header.client_selection, 0);
  EXPECT_EQ(rebuilt.header.recording_duration, 0u);
  EXPECT_EQ(rebuilt.header.stream_length, 128u);
}

TEST(StreamHeaderScan, RefusesALogThatEndsBeforeItStarts) {
  LogBuilder builder;
  builder.StartClock(1000).Selection(6).Record(1, 1, 2000, "a").Record(1, 1, 999, "b");
  const Rebuilt rebuilt = Rebuild(builder);
  EXPECT_FALSE(rebuilt.done);
  EXPECT_EQ(rebuilt.header.client_selection, 6);
  EXPECT_EQ(rebuilt.header.recording_duration, 0u);
}

TEST(StreamHeaderScan, AcceptsTimeStampsThatGoBackOnTheWay) {
  LogBuilder builder;
  builder.StartClock(1000).Record(1, 1, 5, "a").Record(1, 1, 1000, "b");
  const Rebuilt rebuilt = Rebuild(builder);
  ASSERT_TRUE(rebuilt.done);
  EXPECT_EQ(rebuilt.header.recording_duration, 0u);
}

TEST(StreamHeaderScan, RefusesWhatIsNoLogAndLeavesTheResult) {
  for (const LogBuilder& builder : {LogBuilder().Cut(127), LogBuilder().Flip(0)}) {
    BinaryDecoder decoder(std::make_shared<BytesInputStream>(builder.Build()));
    BinaryLogStreamHeader header;
    header.stream_length = 4711;
    EXPECT_FALSE(decoder.ScanStreamHeaderInfo(header));
    EXPECT_EQ(header.stream_length, 4711u);
    EXPECT_FALSE(decoder.IsStreamValid());
  }
}

TEST(StreamHeaderScan, EndsBehindTheLastWholeRecord) {
  LogBuilder builder;
  builder.Record(1, 1, 10, "first").Record(2, 1, 20, "second");
  for (const std::size_t cut : {std::size_t{1}, std::size_t{6}, std::size_t{25}}) {
    const Rebuilt rebuilt = Rebuild(LogBuilder(builder).Cut(builder.Size() - cut));
    ASSERT_TRUE(rebuilt.done);
    EXPECT_EQ(rebuilt.header.stream_length, builder.RecordOffset(1));
    EXPECT_EQ(rebuilt.header.client_selection, 2);
    EXPECT_EQ(rebuilt.header.recording_duration, 10u);
  }
}

TEST(StreamHeaderScan, DoesNotLookAtPayloads) {
  LogBuilder builder;
  builder.Record(1, 1, 10, "first").Flip(builder.Size() - 1);
  EXPECT_EQ(Rebuild(builder).header.client_selection, 2);
}

TEST(StreamHeaderScan, FindsItsWayAcrossADamagedHeader) {
  LogBuilder builder;
  builder.Record(1, 1, 10, "first").Record(2, 1, 20, "second").Record(3, 1, 30, "third");
  const Rebuilt rebuilt = Rebuild(builder.Flip(builder.RecordOffset(1)));
  EXPECT_EQ(rebuilt.header.client_selection, 0b1010);
  EXPECT_EQ(rebuilt.header.stream_length, builder.Size());
}

TEST(StreamHeaderScan, ReportsTheLastSeekThatFails) {
  const Bytes bytes = LogBuilder().Record(1, 1, 10, "first").Build();
  const auto scan = [&](std::uint32_t failing_seek) {
    const auto stream =
        std::make_shared<FlakyInputStream>(bytes, FlakyInputStream::kNever, failing_seek);
    BinaryLogStreamHeader header;
    return BinaryDecoder(stream).ScanStreamHeaderInfo(header);
  };
  // The seeks: to the start, over the payload, back to the start.
  EXPECT_FALSE(scan(0));
  EXPECT_FALSE(scan(2));
  EXPECT_TRUE(scan(3));
}

}  // namespace
}  // namespace kestrav::test
