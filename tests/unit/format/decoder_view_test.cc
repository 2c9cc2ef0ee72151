#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kestrav/format/decoder.h"
#include "support/log_builder.h"
#include "support/short_memory.h"
#include "unit/format/format_test_util.h"
#include "unit/format/window_streams.h"

namespace kestrav::test {
namespace {

constexpr std::uint64_t kAll = ~std::uint64_t{0};
constexpr std::uint8_t kKey = 0x35;

// A decoder at the first record of a log of which `window` bytes are shown at a time.
struct WindowLog {
  WindowLog(const LogBuilder& log, std::uint32_t window)
      : stream(std::make_shared<WindowInputStream>(log.Build(), window)), decoder(stream) {
    EXPECT_TRUE(decoder.Initialize());
    stream->reads = 0;
  }

  std::vector<Said> Walk() {
    std::vector<Said> all;
    while ((last = decoder.GetNextLogRecord(message)) == kSuccess) all.push_back(WhatSays(message));
    return all;
  }
  std::vector<Said> WalkSelected(std::uint64_t selection) {
    decoder.SetPlaybackSelection(ClientIdSet(selection));
    std::vector<Said> all;
    while ((last = decoder.GetNextPlaybackMessage(message)) == kSuccess) {
      all.push_back(WhatSays(message));
    }
    return all;
  }

  SmartPtr::Ptr<WindowInputStream> stream;
  BinaryDecoder decoder;
  LogMessage message;
  ResultCode last = kSuccess;
};

std::string PayloadOf(std::size_t size) {
  std::string payload(size, '\0');
  for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<char>(i * 7 + size);
  return payload;
}

// What is read does not depend on how much a stream shows at a time.
class DecoderView : public testing::TestWithParam<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Bytes, DecoderView,
                         testing::Values(0, 19, 20, 21, 50, 116, 117, 400, kNoLimit));

TEST_P(DecoderView, ShowsPayloadsOfEverySize) {
  for (const std::uint8_t key : {std::uint8_t{0}, kKey}) {
    LogBuilder builder(key, key);
    std::vector<Said> odd, all;
    for (std::uint32_t size = 1; size <= 300; ++size) {
      all.push_back({static_cast<std::uint16_t>(1 + size % 2), 7, size, PayloadOf(size)});
      builder.Record(all.back().client, 7, size, PayloadOf(size));
      if (size % 2 == 0) odd.push_back(all.back());
    }
    WindowLog log(builder, GetParam());
    EXPECT_EQ(log.Walk(), all);
    EXPECT_EQ(log.last, kNotEnoughData);
    EXPECT_EQ(WindowLog(builder, GetParam()).WalkSelected(kAll), all);
    EXPECT_EQ(WindowLog(builder, GetParam()).WalkSelected(2), odd);
  }
}

TEST_P(DecoderView, ShowsDamagedPayloadsForWhatTheyAre) {
  for (const std::size_t size : {5u, 96u, 97u, 200u}) {
    LogBuilder builder(kKey, kKey);
    builder.Record(1, 2, 1, PayloadOf(size)).Record(1, 2, 2, "next");
    builder.Flip(builder.RecordOffset(0) + 20 + size / 2, 0x10);
    EXPECT_EQ(WindowLog(builder, GetParam()).Walk(), (std::vector{Said{1, 2, 2, "next"}}));
    EXPECT_EQ(WindowLog(builder, GetParam()).WalkSelected(2), (std::vector{Said{1, 2, 2, "next"}}));
    // Nobody looks at a payload that is not selected.
    EXPECT_TRUE(WindowLog(builder, GetParam()).WalkSelected(4).empty());
  }
}

TEST_P(DecoderView, ShowsRecordsThatMakeNoMessage) {
  for (const std::size_t size : {5u, 200u}) {
    for (const auto& [client, data_id] : {std::pair{0xFFFF, 1}, std::pair{1, 0xFFFF}}) {
      LogBuilder builder(kKey, kKey);
      builder.Record(static_cast<std::uint16_t>(client), static_cast<std::uint16_t>(data_id), 1,
                     PayloadOf(size));
      builder.Record(1, 2, 2, "next");
      WindowLog log(builder, GetParam());
      EXPECT_TRUE(log.Walk().empty());
      EXPECT_EQ(log.last, kDamaged);
      EXPECT_EQ(log.Walk(), (std::vector{Said{1, 2, 2, "next"}}));
    }
  }
}

TEST_P(DecoderView, ShowsARecordWithoutPayload) {
  const LogBuilder builder = LogBuilder(kKey).Record(1, 2, 1, "").Record(1, 2, 2, "next");
  EXPECT_EQ(WindowLog(builder, GetParam()).Walk(), (std::vector{Said{1, 2, 2, "next"}}));
  EXPECT_EQ(WindowLog(builder, GetParam()).WalkSelected(2), (std::vector{Said{1, 2, 2, "next"}}));
}

// The header of a record that announces `size` payload bytes, whatever follows.
Bytes HeaderWithSize(std::uint32_t size) {
  Bytes header{0x4C, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2, 0, 3, 0, 0, 0, 0, 0, 0, 0};
  for (std::size_t i = 0; i < 4; ++i) header[16 + i] = static_cast<std::uint8_t>(size >> (8 * i));
  for (std::size_t i = 2; i < 20; ++i) header[1] ^= header[i];
  return header;
}

TEST_P(DecoderView, ShowsNoPayloadBeyondTheEnd) {
  for (const std::uint32_t size : {31u, 0xFFFFFFEBu, 0xFFFFFFECu, 0xFFFFFFFFu}) {
    const LogBuilder builder = LogBuilder().Raw(HeaderWithSize(size)).Raw(Bytes(30));
    for (const std::uint64_t selection : {kAll, std::uint64_t{4}}) {
      WindowLog log(builder, GetParam());
      EXPECT_TRUE(log.WalkSelected(selection).empty());
      EXPECT_EQ(log.last, kNotEnoughData) << size;
      EXPECT_EQ(log.decoder.Getoffset(), 148u) << size;
    }
  }
}

TEST(DecoderView, OfAWholeLogNeedsNoReads) {
  LogBuilder builder(kKey, kKey);
  for (std::uint32_t i = 0; i < 300; ++i) builder.Record(1 + i % 2, 2, i, PayloadOf(1 + i));
  WindowLog log(builder, kNoLimit);
  EXPECT_EQ(log.WalkSelected(2).size(), 150u);
  EXPECT_EQ(log.stream->reads, 0u);
}

// False markers on the way are passed too, but for one so near the end of what is shown that its
// header is not.
TEST(DecoderView, OfForeignBytesNeedsNoReads) {
  for (const std::uint32_t window : {50u, 51u, 5000u, kNoLimit}) {
    Bytes foreign(20'000, 0xEE);
    for (std::size_t at = 100; window > 100 && at < foreign.size(); at += 1000) foreign[at] = 0x4C;
    WindowLog log(LogBuilder().Raw(foreign).Record(1, 2, 3, PayloadOf(60)), window);
    ASSERT_EQ(log.decoder.ScanForNextValidHeader(), kSuccess) << window;
    EXPECT_EQ(log.decoder.Getoffset(), 128u + 20'000) << window;
    // What was found is read again: a block, the header and a payload that is not shown whole.
    EXPECT_LE(log.stream->reads, 3u) << window;
  }
}

TEST(DecoderView, OfALargePayloadNeedsMemoryAndOfASmallOneNone) {
  LogMessage message;
  for (const std::uint32_t size : {96u, 97u}) {
    WindowLog log(LogBuilder(kKey, kKey).Record(1, 2, 3, PayloadOf(size)), kNoLimit);
    ResultCode code = kSuccess;
    const bool asked = RanShort(0, [&] { code = log.decoder.GetNextLogRecord(message); });
    EXPECT_EQ(asked, size == 97) << size;
    EXPECT_EQ(code, size == 97 ? kDamaged : kSuccess) << size;
  }
}

// The search looks at a payload piece by piece, and the stream may stop showing it on the way.
class DecoderViewThatEnds : public testing::TestWithParam<std::uint32_t> {
 protected:
  static constexpr std::uint32_t kWindow = 4096;
  static LogBuilder LongRecord() {
    LogBuilder log(kKey, kKey);
    log.Raw({0xEE}).Record(1, 2, 3, PayloadOf(3 * kWindow + 5)).Record(1, 2, 4, "next");
    return log;
  }
};

INSTANTIATE_TEST_SUITE_P(After, DecoderViewThatEnds, testing::Range(0u, 8u));

TEST_P(DecoderViewThatEnds, LeavesTheRestToReads) {
  WindowLog log(LongRecord(), kWindow);
  log.stream->views_left = GetParam();
  ASSERT_EQ(log.decoder.ScanForNextValidHeader(), kSuccess);
  EXPECT_EQ(log.decoder.Getoffset(), 129u);
  EXPECT_EQ(log.Walk().size(), 2u);
}

TEST_P(DecoderViewThatEnds, FindsDamageInEveryPiece) {
  for (std::uint32_t at = 0; at <= 3 * kWindow; at += kWindow) {
    LogBuilder builder = LongRecord();
    builder.Flip(builder.RecordOffset(0) + 20 + at, 0x10);
    WindowLog log(builder, kWindow);
    log.stream->views_left = GetParam();
    EXPECT_EQ(log.decoder.ScanForNextValidHeader(), kDamaged) << at;
  }
}

TEST(DecoderView, ThatEndsIsDamagedWhenTheWayBackFails) {
  LogBuilder builder(kKey, kKey);
  builder.Raw({0xEE}).Record(1, 2, 3, PayloadOf(10'000)).Record(1, 2, 4, "next");
  WindowLog log(builder, 4096);
  log.stream->views_left = 2;  // of the foreign byte, of the first piece
  log.stream->seeks_left = 1;  // to the candidate
  EXPECT_EQ(log.decoder.ScanForNextValidHeader(), kDamaged);
  EXPECT_EQ(log.stream->seeks_left, 0u);
}

}  // namespace
}  // namespace kestrav::test
