#include <gtest/gtest.h>

#include "client_data_search_rig.h"
#include "kestrav/playback/normal_playback.h"
#include "kestrav/playback/polling_playback.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

using Found = std::optional<std::string>;

constexpr std::uint32_t kStart = 5000;
constexpr std::uint32_t kLengthMs = 60000;

// Times in the names of payloads are milliseconds after the start.
LogBuilder OneMinute(std::uint8_t header_key = 0, std::uint8_t data_key = 0) {
  return LogBuilder(header_key, data_key)
      .StartClock(kStart)
      .Duration(kLengthMs)
      .Record(12, 1200, kStart, "dictionary")
      .Record(12, 134, kStart, "selection")
      .Record(21, 7, kStart, "first GPS")
      .Record(22, 7, kStart + 1999, "CAN 1999")
      .Record(21, 8, kStart + 2000, "GPS 2000")
      .Record(21, 7, kStart + 4000, "GPS 4000")
      .Record(70, 9, kStart + 10000, "high id");
}

// Both kinds of playback that have the search.
template <class Playback>
class ClientDataSearch : public testing::Test {
 protected:
  void Insert(const Bytes& log) {
    stream = std::make_shared<FaultyStream>(log);
    ASSERT_TRUE(playback.SetInputStream(stream));
  }
  Found Find(std::uint16_t client, std::uint16_t data_id, std::uint32_t offset_scnds) {
    const Found found = Search(playback, client, data_id, offset_scnds);
    EXPECT_EQ(stream->Position(), 0U);
    return found;
  }

  SmartPtr::Ptr<FaultyStream> stream;
  Playback playback;
};

using Playbacks = testing::Types<BinaryPlaybackNormalImpl, BinaryPlaybackPollingImpl>;
TYPED_TEST_SUITE(ClientDataSearch, Playbacks);

TYPED_TEST(ClientDataSearch, FindsTheFirstRecordOfItsKindBeforeTheWalkEnds) {
  struct Query {
    std::uint16_t client;
    std::uint16_t data_id;
    std::uint32_t offset_scnds;
    Found expected;
  };
  const Query kQueries[] = {
      // At offset 0 only the very first record can match.
      {12, 1200, 0, "dictionary"},
      {12, 134, 0, {}},
      {21, 7, 0, {}},
      {21, 7, 1, "first GPS"},
      {21, 7, 60, "first GPS"},
      // The record at 1999 ms ends a walk to 1 s, not one to 2 s.
      {21, 8, 1, {}},
      {21, 8, 2, "GPS 2000"},
      // A record exactly at the offset ends the walk, but a match counts whatever its time.
      {70, 9, 4, {}},
      {70, 9, 5, "high id"},
      {22, 7, 1, "CAN 1999"},
      // Both ids must be right.
      {21, 9, 60, {}},
      {22, 8, 60, {}},
      {30, 7, 60, {}},
      // The log is 60 s long.
      {12, 1200, 60, "dictionary"},
      {12, 1200, 61, {}},
      {12, 1200, 4294967, {}},
      // 1000 times these wrap at 32 bits, to 704 ms and to 0.
      {22, 7, 4294968, "CAN 1999"},
      {21, 8, 4294968, {}},
      {12, 134, 536870912, {}},
      {12, 1200, 536870912, "dictionary"},
  };
  for (const bool scrambled : {false, true}) {
    this->Insert((scrambled ? OneMinute(0xFD, 0x2A) : OneMinute()).Build());
    for (const Query& query : kQueries) {
      SCOPED_TRACE(testing::Message()
                   << "client " << query.client << " data id " << query.data_id << " offset "
                   << query.offset_scnds << " scrambled " << scrambled);
      EXPECT_EQ(this->Find(query.client, query.data_id, query.offset_scnds), query.expected);
    }
  }
}

TYPED_TEST(ClientDataSearch, FindsNothingInALogOfLengthZero) {
  this->Insert(OneMinute().Duration(0).Build());
  EXPECT_EQ(this->Find(12, 1200, 0), std::nullopt);
  EXPECT_EQ(this->Find(12, 1200, 1), std::nullopt);
}

TYPED_TEST(ClientDataSearch, FindsNothingInALogWithoutRecords) {
  this->Insert(LogBuilder().Duration(1000).Build());
  EXPECT_EQ(this->Find(12, 1200, 0), std::nullopt);
}

TYPED_TEST(ClientDataSearch, FindsNothingInWhatIsNoLog) {
  for (const Bytes& bytes : {Bytes(), Bytes(500, 0), Bytes(500, 0x4C), OneMinute().Cut(127).Build(),
                             OneMinute().Flip(0).Build()}) {
    this->Insert(bytes);
    EXPECT_EQ(this->Find(12, 1200, 1), std::nullopt);
  }
}

TYPED_TEST(ClientDataSearch, FindsNothingWithoutAStream) {
  EXPECT_EQ(Search(this->playback, 12, 1200, 0), std::nullopt);
}

// The time since the start is unsigned, so a record from before it counts as a very late one.
TYPED_TEST(ClientDataSearch, EndsAtARecordFromBeforeTheStart) {
  this->Insert(LogBuilder()
                   .StartClock(kStart)
                   .Duration(kLengthMs)
                   .Record(12, 1200, kStart - 1, "dictionary")
                   .Record(21, 7, kStart, "GPS")
                   .Build());
  EXPECT_EQ(this->Find(21, 7, 60), std::nullopt);
  EXPECT_EQ(this->Find(12, 1200, 60), "dictionary");
}

TYPED_TEST(ClientDataSearch, GoesOnWhenTheClockWrapsDuringTheLog) {
  this->Insert(LogBuilder()
                   .StartClock(0xFFFFFF00)
                   .Duration(kLengthMs)
                   .Record(12, 1200, 0xFFFFFF00, "dictionary")
                   .Record(12, 134, 100, "selection")
                   .Record(21, 7, 200, "GPS")
                   .Build());
  EXPECT_EQ(this->Find(21, 7, 1), "GPS");
}

TYPED_TEST(ClientDataSearch, FindsARecordBehindADamagedHeader) {
  LogBuilder log = OneMinute();
  this->Insert(log.Flip(log.RecordOffset(1) + 5).Build());
  EXPECT_EQ(this->Find(21, 8, 60), "GPS 2000");
}

// The walk looks at headers alone.
TYPED_TEST(ClientDataSearch, FindsARecordBehindADamagedPayload) {
  LogBuilder log = OneMinute();
  this->Insert(log.Flip(log.RecordOffset(1) + 20).Build());
  EXPECT_EQ(this->Find(21, 8, 60), "GPS 2000");
}

TYPED_TEST(ClientDataSearch, GivesTheNextWholeRecordInPlaceOfADamagedMatch) {
  LogBuilder log = OneMinute();
  this->Insert(log.Flip(log.RecordOffset(2) + 20).Build());
  EXPECT_EQ(this->Find(21, 7, 60), "CAN 1999");
}

TYPED_TEST(ClientDataSearch, DoesNotGiveADamagedMatchAtTheEnd) {
  LogBuilder log = OneMinute();
  this->Insert(log.Flip(log.RecordOffset(6) + 20).Build());
  EXPECT_EQ(this->Find(70, 9, 60), std::nullopt);
}

TYPED_TEST(ClientDataSearch, DoesNotGiveAMatchWithoutPayload) {
  this->Insert(LogBuilder().Duration(kLengthMs).Record(21, 7, 0, "").Build());
  EXPECT_EQ(this->Find(21, 7, 60), std::nullopt);
}

TYPED_TEST(ClientDataSearch, DoesNotGiveAMatchThatIsCutShort) {
  const std::size_t size = OneMinute().Size();
  for (std::size_t cut = OneMinute().RecordOffset(6); cut < size; ++cut) {
    this->Insert(OneMinute().Cut(cut).Build());
    EXPECT_EQ(this->Find(70, 9, 60), std::nullopt) << cut;
  }
}

// Seeks: to the stream header, over the one payload, back to the record, and back to the start.
// The last one is for the next reader; it does not take back what was found.
TYPED_TEST(ClientDataSearch, FailsWithEachSeekButTheLast) {
  constexpr int kSeeks = 4;
  for (int seek = 1; seek <= kSeeks; ++seek) {
    SCOPED_TRACE(seek);
    this->Insert(OneMinute().Build());
    this->stream->fail_seek = seek;
    const Found found = Search(this->playback, 12, 1200, 60);
    EXPECT_EQ(found.has_value(), seek == kSeeks);
    EXPECT_EQ(this->stream->seeks, seek == 1 ? 2 : seek == 2 ? 3 : kSeeks);
  }
}

TYPED_TEST(ClientDataSearch, FailsWithoutMemoryAndRewinds) {
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    SCOPED_TRACE(grants);
    this->Insert(OneMinute().Build());
    bool found = false;
    Memory::MemBlock data;
    was_short =
        RanShort(grants, [&] { found = this->playback.SearchAndGetClientData(data, 21, 8, 60); });
    EXPECT_EQ(found, !was_short);
    EXPECT_EQ(Text(data), was_short ? "" : "GPS 2000");
    EXPECT_EQ(this->stream->Position(), 0U);
  }
  EXPECT_GT(grants, 1U);
}

TYPED_TEST(ClientDataSearch, FailsWithAnyReadAndRewinds) {
  this->Insert(OneMinute().Build());
  ASSERT_EQ(this->Find(21, 8, 60), "GPS 2000");
  const int reads = this->stream->reads;
  for (int read = 1; read <= reads; ++read) {
    this->Insert(OneMinute().Build());
    this->stream->fail_reads_from = read;
    EXPECT_EQ(this->Find(21, 8, 60), std::nullopt) << read;
  }
}

}  // namespace
}  // namespace kestrav::test
