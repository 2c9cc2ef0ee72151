#include "kestrav/format/stream_header.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>

#include "support/manual_clock.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

// Every field with a value of its own, so that no two can be mistaken for each other.
const Bytes kHead{'L',  'O',  'G',  ':',    // magic
                  0x01, 0x02, 0x03, 0x84,   // start time
                  0x05, 0x86,               // client selection
                  0x07, 0x88,               // header key, data key
                  0x09, 0x0A, 0x0B, 0x8C,   // recording duration
                  0x0D, 0x0E, 0x0F, 0x90,   // stream length
                  0xE8, 0x03, 0x00, 0x00,   // clock rate
                  0x11, 0x12, 0x13, 0x94};  // start clock

Bytes FullBytes() {
  Bytes bytes = kHead;
  for (std::uint8_t i = 0; i < 100; ++i) bytes.push_back(static_cast<std::uint8_t>(200 - i));
  return bytes;
}

BinaryLogStreamHeader FullHeader() {
  BinaryLogStreamHeader header;
  header.magic = kStreamMagic;
  header.start_time = 0x84030201;
  header.client_selection = 0x8605;
  header.header_key = 0x07;
  header.data_key = 0x88;
  header.recording_duration = 0x8C0B0A09;
  header.stream_length = 0x900F0E0D;
  header.clock_rate = 1000;
  header.start_clock = 0x94131211;
  for (std::size_t i = 0; i < 100; ++i) header.reserved[i] = static_cast<std::uint8_t>(200 - i);
  return header;
}

void ExpectEqual(const BinaryLogStreamHeader& a, const BinaryLogStreamHeader& b) {
  EXPECT_EQ(a.magic, b.magic);
  EXPECT_EQ(a.start_time, b.start_time);
  EXPECT_EQ(a.client_selection, b.client_selection);
  EXPECT_EQ(a.header_key, b.header_key);
  EXPECT_EQ(a.data_key, b.data_key);
  EXPECT_EQ(a.recording_duration, b.recording_duration);
  EXPECT_EQ(a.stream_length, b.stream_length);
  EXPECT_EQ(a.clock_rate, b.clock_rate);
  EXPECT_EQ(a.start_clock, b.start_clock);
  EXPECT_EQ(a.reserved, b.reserved);
}

BinaryLogStreamHeader Zero() {
  BinaryLogStreamHeader header = FullHeader();
  header.magic = header.recording_duration = header.stream_length = header.clock_rate =
      header.start_clock = 0;
  header.start_time = 0;
  header.client_selection = 0;
  header.header_key = header.data_key = 0;
  header.reserved.fill(0);
  return header;
}

TEST(StreamHeader, IsAllZeroWhenNew) { ExpectEqual(BinaryLogStreamHeader(), Zero()); }

TEST(StreamHeader, IsAllZeroAfterReset) {
  BinaryLogStreamHeader header = FullHeader();
  header.Reset();
  ExpectEqual(header, Zero());
}

TEST(StreamHeader, CopiesEveryFieldAndItself) {
  BinaryLogStreamHeader header;
  header.Assign(FullHeader());
  ExpectEqual(header, FullHeader());
  header.Assign(header);
  ExpectEqual(header, FullHeader());
  BinaryLogStreamHeader assigned;
  assigned = header;
  ExpectEqual(assigned, FullHeader());
  ExpectEqual(BinaryLogStreamHeader(assigned), FullHeader());
}

TEST(StreamHeader, WritesEveryFieldAtItsPlace) {
  const auto stream = std::make_shared<BytesOutputStream>();
  EXPECT_EQ(FullHeader().WriteData(stream), 128u);
  EXPECT_EQ(stream->Content(), FullBytes());
  EXPECT_EQ(stream->Writes(), 1);
}

TEST(StreamHeader, WritesAtThePositionOfTheStream) {
  const auto stream = std::make_shared<BytesOutputStream>();
  ASSERT_TRUE(stream->Write(Data("abc"), 3));
  EXPECT_EQ(FullHeader().WriteData(stream), 128u);
  EXPECT_EQ(stream->Position(), 131u);
  EXPECT_EQ(Slice(stream->Content(), 3, 131), FullBytes());
}

TEST(StreamHeader, ReadsEveryFieldFromItsPlace) {
  BinaryLogStreamHeader header;
  ASSERT_TRUE(header.ReadData(std::make_shared<BytesInputStream>(FullBytes())));
  ExpectEqual(header, FullHeader());
}

TEST(StreamHeader, WritesTheLowHalfOfALongStartTime) {
  BinaryLogStreamHeader header = FullHeader();
  header.start_time = 0x1'8403'0201;
  const auto stream = std::make_shared<BytesOutputStream>();
  EXPECT_EQ(header.WriteData(stream), 128u);
  EXPECT_EQ(stream->Content(), FullBytes());
}

TEST(StreamHeader, IsNotWrittenWithoutMagicOrStartTime) {
  for (const std::int64_t start_time : {std::int64_t{0}, std::int64_t{-1}}) {
    BinaryLogStreamHeader header = FullHeader();
    header.start_time = start_time;
    const auto stream = std::make_shared<BytesOutputStream>();
    EXPECT_FALSE(header.WriteOut(*stream));
    EXPECT_EQ(header.WriteData(stream), 0u);
    EXPECT_EQ(stream->Writes(), 0);
  }
  BinaryLogStreamHeader header = FullHeader();
  header.magic = 0x4C4F473A;
  const auto stream = std::make_shared<BytesOutputStream>();
  EXPECT_EQ(header.WriteData(stream), 0u);
  EXPECT_EQ(stream->Writes(), 0);
}

TEST(StreamHeader, IsWrittenFromAStartTimeOfOne) {
  BinaryLogStreamHeader header = FullHeader();
  header.start_time = 1;
  BytesOutputStream stream;
  EXPECT_TRUE(header.WriteOut(stream));
}

TEST(StreamHeader, CountsNothingForNoStreamOrAFailedWrite) {
  EXPECT_EQ(FullHeader().WriteData(nullptr), 0u);
  const auto small = std::make_shared<BytesOutputStream>(127);
  EXPECT_EQ(FullHeader().WriteData(small), 0u);
  EXPECT_TRUE(small->Content().empty());
}

TEST(StreamHeader, ReadsNothingFromNoStream) {
  BinaryLogStreamHeader header = FullHeader();
  EXPECT_FALSE(header.ReadData(SmartPtr::Ptr<Io::IInputStream>()));
  ExpectEqual(header, FullHeader());
}

TEST(StreamHeader, TakesFourBytesOfWhatIsNotALog) {
  Bytes bytes = FullBytes();
  bytes[3] = ';';
  BytesInputStream stream(bytes);
  BinaryLogStreamHeader header;
  EXPECT_FALSE(header.ReadIn(stream));
  EXPECT_EQ(stream.Position(), 4u);
}

TEST(StreamHeader, FailsWhenItEndsAnywhereWithinItself) {
  for (std::uint32_t size = 0; size < 128; ++size) {
    const Bytes cut = Slice(FullBytes(), 0, size);
    BinaryLogStreamHeader header;
    EXPECT_FALSE(header.ReadData(std::make_shared<BytesInputStream>(cut))) << size;
    EXPECT_EQ(header.start_time, size < 8 ? 0 : 0x84030201) << size;
    EXPECT_EQ(header.start_clock, size < 28 ? 0 : 0x94131211) << size;
    EXPECT_FALSE(BinaryLogStreamHeader().ReadData(Block(cut))) << size;
  }
}

TEST(StreamHeader, ReadsABlockOf128BytesOrMore) {
  Bytes bytes = FullBytes();
  for (int i = 0; i < 2; ++i) {
    BinaryLogStreamHeader header;
    EXPECT_TRUE(header.ReadData(Block(bytes)));
    ExpectEqual(header, FullHeader());
    bytes.push_back(0xEE);
  }
}

TEST(StreamHeader, TakesTheTimesOfItsStartAndNothingElse) {
  const ManualClock clock(0x94131211, 0x84030201);
  BinaryLogStreamHeader header = FullHeader();
  header.magic = header.start_clock = header.clock_rate = 0;
  header.start_time = 0;
  EXPECT_TRUE(header.Initialize());
  ExpectEqual(header, FullHeader());
}

TEST(StreamHeader, HasNoTimesWhenTheWallClockFails) {
  ManualClock clock;
  clock->FailWallClock();
  BinaryLogStreamHeader header = FullHeader();
  EXPECT_FALSE(header.Initialize());
  EXPECT_EQ(header.start_time, 0);
  EXPECT_EQ(header.start_clock, 0u);
}

TEST(StreamHeader, HasNoStartClockWhenTheMillisecondClockFails) {
  ManualClock clock(5, 77);
  clock->FailMs();
  BinaryLogStreamHeader header = FullHeader();
  EXPECT_FALSE(header.Initialize());
  EXPECT_EQ(header.start_time, 77);
  EXPECT_EQ(header.start_clock, 0u);
}

}  // namespace
}  // namespace kestrav::test
