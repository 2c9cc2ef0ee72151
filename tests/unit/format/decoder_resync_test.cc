#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kestrav/format/decoder.h"
#include "support/log_builder.h"
#include "unit/format/flaky_input_stream.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kStart = 128;
// In a log with these keys neither the filler nor the record below reads as a marker anywhere but
// at the record's start, scrambled or not.
constexpr std::uint8_t kHeaderKey = 0x35;
constexpr std::uint8_t kDataKey = 0x9B;
constexpr std::uint8_t kFiller = 0xEE;

struct Found {
  ResultCode code;
  std::uint32_t position;

  friend bool operator==(const Found&, const Found&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Found& found) {
    return out << "code " << found.code << " at " << found.position;
  }
};

Found Scan(OpenLog& log) {
  const ResultCode code = log.decoder.ScanForNextValidHeader();
  return {code, log.decoder.Getoffset()};
}

Found ScanFromTheFirstByte(const LogBuilder& builder) {
  OpenLog log(builder.Build());
  return Scan(log);
}

// A log that starts with a record at `distance` from its stream header.
LogBuilder RecordAt(std::size_t distance, LogBuilder log) {
  log.Raw(Bytes(distance, kFiller)).Record(1, 2, 3, "payload");
  return log;
}

TEST(Resynchronisation, GivesUpWithFewerThan20Bytes) {
  EXPECT_EQ(ScanFromTheFirstByte(LogBuilder().Raw(Bytes(19, 0x4C))), (Found{kDamaged, kStart}));
  EXPECT_EQ(ScanFromTheFirstByte(LogBuilder()), (Found{kDamaged, kStart}));
}

struct EmptyCase {
  std::uint32_t bytes;
  std::uint32_t left;
};

class ResynchronisationBlocks : public testing::TestWithParam<EmptyCase> {};

TEST_P(ResynchronisationBlocks, Are50BytesLongAnd20WhenFewerThan50Remain) {
  const auto& [bytes, left] = GetParam();
  EXPECT_EQ(ScanFromTheFirstByte(LogBuilder().Raw(Bytes(bytes, kFiller))),
            (Found{kDamaged, kStart + bytes - left}));
}

INSTANTIATE_TEST_SUITE_P(Lengths, ResynchronisationBlocks,
                         testing::Values(EmptyCase{20, 0}, EmptyCase{39, 19}, EmptyCase{40, 0},
                                         EmptyCase{49, 9}, EmptyCase{50, 0}, EmptyCase{69, 19},
                                         EmptyCase{70, 0}, EmptyCase{99, 9}, EmptyCase{100, 0}));

TEST(Resynchronisation, StandsBeforeARecordAtAnyDistanceInAPlainLog) {
  for (std::uint32_t distance = 0; distance < 130; ++distance) {
    EXPECT_EQ(ScanFromTheFirstByte(RecordAt(distance, LogBuilder())),
              (Found{kSuccess, kStart + distance}));
  }
}

TEST(Resynchronisation, UnscramblesOnlyTheFirst20BytesOfABlock) {
  for (std::uint32_t distance = 0; distance < 150; ++distance) {
    const LogBuilder builder = RecordAt(distance, LogBuilder(kHeaderKey, kDataKey));
    // Behind the record come 250 bytes more, so that every block up to it is a long one.
    const Found found = ScanFromTheFirstByte(LogBuilder(builder).Raw(Bytes(250, kFiller)));
    if (distance % 50 < 20) {
      EXPECT_EQ(found, (Found{kSuccess, kStart + distance}));
    } else {
      EXPECT_EQ(found.code, kDamaged) << distance;
    }
  }
}

TEST(Resynchronisation, UnscramblesEveryByteNearTheEndWhereBlocksAreShort) {
  for (std::uint32_t distance = 0; distance + 27 < 50; ++distance) {
    EXPECT_EQ(ScanFromTheFirstByte(RecordAt(distance, LogBuilder(kHeaderKey, kDataKey))),
              (Found{kSuccess, kStart + distance}));
  }
}

TEST(Resynchronisation, TriesAgainOneByteBehindAFalseMarker) {
  Bytes noise;
  for (std::uint32_t size = 1; size < 120; ++size) {
    noise.push_back(static_cast<std::uint8_t>(size % 2 == 0 ? 0x80 + size : 0x4C));
    EXPECT_EQ(ScanFromTheFirstByte(LogBuilder().Raw(noise).Record(1, 2, 3, "payload")),
              (Found{kSuccess, kStart + size}));
  }
}

TEST(Resynchronisation, MovesItsBlocksWithEveryFalseMarker) {
  // A marker in the plain part of the first block sets the next block, whose first bytes are then
  // unscrambled; without it the record, which is 30 bytes from the start, is passed over.
  LogBuilder with_marker(kHeaderKey, kDataKey);
  Bytes filler(30, kFiller);
  EXPECT_EQ(ScanFromTheFirstByte(
                LogBuilder(with_marker).Raw(filler).Record(1, 2, 3, "payload").Raw(Bytes(99)))
                .code,
            kDamaged);
  filler[25] = 0x4C;
  EXPECT_EQ(ScanFromTheFirstByte(
                LogBuilder(with_marker).Raw(filler).Record(1, 2, 3, "payload").Raw(Bytes(99))),
            (Found{kSuccess, kStart + 30}));
}

std::vector<Said> WalkBehindADamagedHeader(std::string_view payload) {
  LogBuilder builder;
  builder.Record(1, 2, 3, payload).Record(1, 2, 4, "next").Record(1, 2, 5, "last");
  return OpenLog(builder.Flip(builder.RecordOffset(0)).Build()).Walk();
}

const Said kNext{1, 2, 4, "next"};
const Said kLast{1, 2, 5, "last"};

TEST(Resynchronisation, IsNotMisledByMarkersInAPayload) {
  EXPECT_EQ(WalkBehindADamagedHeader("\x4C\x4C stray \x4C\x4C\x4C\x4C\x4C\x4C markers"),
            (std::vector{kNext, kLast}));
  EXPECT_EQ(WalkBehindADamagedHeader("one at the end \x4C"), (std::vector{kNext, kLast}));
}

TEST(Resynchronisation, TakesTwoMarkersAndTheHeaderBehindThemForOneHeader) {
  // Shifted by two bytes the next header stands under its own marker as a checksum that holds; its
  // size is then out of reach.
  EXPECT_EQ(WalkBehindADamagedHeader("two at the end \x4C\x4C"), (std::vector{kLast}));
}

std::string WholeRecord() {
  const LogBuilder inner = LogBuilder().NextIndex(9).Record(9, 9, 9, "inner");
  const Bytes bytes = inner.Build();
  return std::string(bytes.begin() + kStart, bytes.end());
}

TEST(Resynchronisation, FindsARecordWithinTheRemainsOfAnother) {
  LogBuilder builder;
  builder.Record(1, 2, 3, "outer " + WholeRecord()).Record(1, 2, 4, "next");
  builder.Flip(builder.RecordOffset(0));
  OpenLog log(builder.Build());
  EXPECT_EQ(log.Walk(), (std::vector{Said{9, 9, 9, "inner"}, Said{1, 2, 4, "next"}}));
}

TEST(Resynchronisation, GoesOnBehindAPayloadThatFailsItsChecksum) {
  // The candidate's header is good, so its damaged payload is passed over as a whole.
  LogBuilder builder;
  builder.Raw(Bytes(3, kFiller)).Record(1, 2, 3, "outer " + WholeRecord()).Record(1, 2, 4, "next");
  builder.Flip(builder.RecordOffset(0) + 20);
  EXPECT_EQ(ScanFromTheFirstByte(builder),
            (Found{kSuccess, static_cast<std::uint32_t>(builder.RecordOffset(1))}));
  builder.Cut(builder.RecordOffset(1));
  EXPECT_EQ(ScanFromTheFirstByte(builder),
            (Found{kDamaged, static_cast<std::uint32_t>(builder.Size())}));
}

TEST(Resynchronisation, GoesOnBehindTheHeaderOfAPayloadThatIsCutShort) {
  LogBuilder builder;
  builder.Raw(Bytes(3, kFiller)).Record(1, 2, 3, WholeRecord() + std::string(50, 'x'));
  const std::size_t candidate = builder.RecordOffset(0);
  EXPECT_EQ(ScanFromTheFirstByte(builder), (Found{kSuccess, kStart + 3}));
  builder.Cut(builder.Size() - 1);
  EXPECT_EQ(ScanFromTheFirstByte(builder),
            (Found{kSuccess, static_cast<std::uint32_t>(candidate + 20)}));
}

TEST(Resynchronisation, GoesOnBehindAHeaderWithoutPayload) {
  LogBuilder builder;
  builder.Record(1, 2, 3, "").Record(1, 2, 4, "next");
  EXPECT_EQ(ScanFromTheFirstByte(builder), (Found{kSuccess, kStart + 20}));
}

TEST(Resynchronisation, FindsAnyIndexInAPlainLog) {
  const LogBuilder builder = LogBuilder().NextIndex(12345).Record(1, 2, 3, "payload");
  EXPECT_EQ(ScanFromTheFirstByte(builder), (Found{kSuccess, kStart}));
}

struct IndexCase {
  std::uint8_t header_key;
  std::uint32_t index;
  ResultCode code;
};

class ResynchronisationIndex : public testing::TestWithParam<IndexCase> {};

TEST_P(ResynchronisationIndex, IsFoundWhenItsRecordKeyIsTheExpectedOne) {
  const auto& [header_key, index, code] = GetParam();
  LogBuilder builder(header_key, kDataKey);
  builder.NextIndex(index).Record(1, 2, 3, "payload");
  EXPECT_EQ(ScanFromTheFirstByte(builder).code, code);  // index 0 is expected
}

INSTANTIATE_TEST_SUITE_P(Keys, ResynchronisationIndex,
                         testing::Values(IndexCase{kHeaderKey, 0, kSuccess},
                                         IndexCase{kHeaderKey, 1, kDamaged},
                                         IndexCase{kHeaderKey, 255, kDamaged},
                                         IndexCase{kHeaderKey, 256, kSuccess},
                                         IndexCase{kHeaderKey, 0xFFFFFF00, kSuccess},
                                         IndexCase{1, 255, kSuccess},  // 1 + 255 is 1 too
                                         IndexCase{2, 254, kDamaged}));

TEST(Resynchronisation, LosesAScrambledLogBehindADamagedHeader) {
  LogBuilder builder(kHeaderKey, kDataKey);
  for (std::uint32_t n = 0; n < 20; ++n) builder.Record(1, 2, n, "payload");
  builder.Flip(builder.RecordOffset(5) + 7);
  OpenLog log(builder.Build());
  EXPECT_EQ(log.Walk().size(), 5u);
  EXPECT_EQ(log.last, kDamaged);
}

TEST(Resynchronisation, LosesOneRecordOfAPlainLogBehindADamagedHeader) {
  LogBuilder builder;
  for (std::uint32_t n = 0; n < 20; ++n) builder.Record(1, 2, n, "payload");
  builder.Flip(builder.RecordOffset(5) + 7);
  OpenLog log(builder.Build());
  EXPECT_EQ(log.Walk().size(), 19u);
  EXPECT_EQ(log.last, kNotEnoughData);
}

// What one damaged payload byte costs: its record and no more.
class DamagedPayload : public testing::TestWithParam<std::uint8_t> {
 protected:
  DamagedPayload() {
    builder_.Record(1, 2, 0, "first").Record(1, 2, 1, "second").Record(1, 2, 2, "third");
  }
  void Hurt(std::size_t record) { builder_.Flip(builder_.RecordOffset(record) + 21, 0x40); }

  const Said first_{1, 2, 0, "first"};
  const Said third_{1, 2, 2, "third"};
  LogBuilder builder_{GetParam(), GetParam()};
};

INSTANTIATE_TEST_SUITE_P(PlainAndScrambled, DamagedPayload, testing::Values(0, kHeaderKey));

TEST_P(DamagedPayload, DropsItsRecordAndYieldsTheNext) {
  Hurt(1);
  OpenLog log(builder_.Build());
  EXPECT_EQ(log.Walk(), (std::vector{first_, third_}));
  EXPECT_EQ(log.last, kNotEnoughData);
}

TEST_P(DamagedPayload, DropsItsRecordFromASelection) {
  Hurt(1);
  OpenLog log(builder_.Build());
  EXPECT_EQ(log.WalkSelected(2), (std::vector{first_, third_}));
  EXPECT_EQ(log.last, kNotEnoughData);
}

TEST_P(DamagedPayload, IsNotNoticedInAClientThatIsNotSelected) {
  builder_.Record(3, 2, 3, "other");
  Hurt(1);
  OpenLog log(builder_.Build());
  EXPECT_EQ(log.WalkSelected(8), (std::vector{Said{3, 2, 3, "other"}}));
}

TEST_P(DamagedPayload, IsReportedWhenNothingFollowsIt) {
  Hurt(2);
  for (const bool selected : {false, true}) {
    OpenLog log(builder_.Build());
    EXPECT_EQ((selected ? log.WalkSelected(2) : log.Walk()).size(), 2u);
    EXPECT_EQ(log.last, kDamaged);
  }
}

TEST_P(DamagedPayload, IsPassedOverWithItsNeighbour) {
  Hurt(0);
  Hurt(1);
  OpenLog log(builder_.Build());
  const std::vector<Said> survivors = log.Walk();
  if (GetParam() == 0) {
    EXPECT_EQ(survivors, (std::vector{third_}));
  } else {
    // The search expects the second record, whose payload is bad too, and then knows no other.
    EXPECT_TRUE(survivors.empty());
    EXPECT_EQ(log.last, kDamaged);
  }
}

// Every read and every seek of a walk over a damaged log fails once.
TEST(Resynchronisation, EndsWithACodeWhicheverReadOrSeekFails) {
  LogBuilder builder;
  builder.Record(1, 2, 0, "first").Record(1, 2, 1, "second").Record(1, 2, 2, "third");
  // The bytes in between cost the fourth record too: its header is taken for damaged with them.
  builder.Raw(Bytes(7, 0x4C)).Record(1, 2, 3, "fourth").Record(1, 2, 4, "fifth");
  builder.Flip(builder.RecordOffset(1) + 21);
  const std::uint32_t never = FlakyInputStream::kNever;
  std::uint32_t failing = 0;
  for (bool all_done = false; !all_done; ++failing) {
    all_done = true;
    for (const bool seek : {false, true}) {
      const auto stream = std::make_shared<FlakyInputStream>(
          builder.Build(), seek ? never : failing, seek ? failing : never);
      BinaryDecoder decoder(stream);
      LogMessage message;
      std::size_t delivered = 0;
      ResultCode code = decoder.Initialize() ? kSuccess : kDamaged;
      while (code == kSuccess) {
        code = decoder.GetNextLogRecord(message);
        if (code == kSuccess) ++delivered;
      }
      const bool failed = failing < (seek ? stream->seeks : stream->reads);
      if (failed) all_done = false;
      EXPECT_LE(delivered, 3u);
      if (!failed) {
        EXPECT_EQ(delivered, 3u);
      }
      EXPECT_FALSE(stream->overreached);
    }
  }
  EXPECT_GT(failing, 20u);
}

TEST(Resynchronisation, EndsAtTheFirstSeekThatFails) {
  const LogBuilder builder = LogBuilder().Raw({0x4C}).Record(1, 2, 3, "payload");
  // The seeks: to the first record, to the false marker, behind it, to the record, back to it.
  for (std::uint32_t failing = 1; failing <= 4; ++failing) {
    BinaryDecoder decoder(
        std::make_shared<FlakyInputStream>(builder.Build(), FlakyInputStream::kNever, failing));
    ASSERT_TRUE(decoder.Initialize());
    EXPECT_EQ(decoder.ScanForNextValidHeader(), kDamaged) << failing;
  }
  // There are no more.
  BinaryDecoder decoder(
      std::make_shared<FlakyInputStream>(builder.Build(), FlakyInputStream::kNever, 5));
  ASSERT_TRUE(decoder.Initialize());
  EXPECT_EQ(decoder.ScanForNextValidHeader(), kSuccess);
}

}  // namespace
}  // namespace kestrav::test
