#include "kestrav/format/record_header.h"

#include <gtest/gtest.h>

#include "support/short_memory.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

// Client 0x1264, data id 0x5678, time 0x9ABCDEF0, payload 01 02 04, index 0x01020304.
const Bytes kHeader{0x4C, 0x50, 0x07, 0x00, 0x04, 0x03, 0x02, 0x01, 0x64, 0x12,
                    0x78, 0x56, 0xF0, 0xDE, 0xBC, 0x9A, 0x03, 0x00, 0x00, 0x00};
constexpr std::uint32_t kIndex = 0x01020304;

SmartPtr::Ptr<LogMessage> TheMessage() {
  return Message(0x1264, 0x5678, 0x9ABCDEF0, "\x01\x02\x04");
}

void ExpectFields(const BinaryLogRecordHeader& header) {
  EXPECT_EQ(header.marker, 0x4C);
  EXPECT_EQ(header.payload_checksum, 0x07);
  EXPECT_EQ(header.reserved, 0);
  EXPECT_EQ(header.record_index, kIndex);
  EXPECT_EQ(header.client_id, 0x1264);
  EXPECT_EQ(header.data_id, 0x5678);
  EXPECT_EQ(header.time_stamp, 0x9ABCDEF0);
  EXPECT_EQ(header.payload_size, 3u);
}

TEST(RecordHeader, HasNoIdsWhenNew) {
  const BinaryLogRecordHeader header;
  EXPECT_EQ(header.marker, 0);
  EXPECT_EQ(header.header_checksum, 0);
  EXPECT_EQ(header.payload_checksum, 0);
  EXPECT_EQ(header.reserved, 0);
  EXPECT_EQ(header.record_index, 0u);
  EXPECT_EQ(header.client_id, 0xFFFF);
  EXPECT_EQ(header.data_id, 0xFFFF);
  EXPECT_EQ(header.time_stamp, 0u);
  EXPECT_EQ(header.payload_size, 0u);
}

TEST(RecordHeader, WritesEveryFieldAtItsPlace) {
  BinaryLogRecordHeader header;
  Memory::MemBlock block;
  ASSERT_TRUE(header.InitAndSerialize(block, *TheMessage(), kIndex));
  EXPECT_EQ(Content(block), kHeader);
  ExpectFields(header);
}

TEST(RecordHeader, GrowsAShortBlockToItsSize) {
  Memory::MemBlock block = Block(Bytes(19, 0xEE));
  ASSERT_TRUE(BinaryLogRecordHeader().InitAndSerialize(block, *TheMessage(), kIndex));
  EXPECT_EQ(Content(block), kHeader);
}

TEST(RecordHeader, LeavesWhatFollowsInALongerBlock) {
  Memory::MemBlock block = Block(Bytes(23, 0xEE));
  ASSERT_TRUE(BinaryLogRecordHeader().InitAndSerialize(block, *TheMessage(), kIndex));
  Bytes expected = kHeader;
  expected.insert(expected.end(), 3, 0xEE);
  EXPECT_EQ(Content(block), expected);
}

TEST(RecordHeader, DescribesAMessageWithoutPayload) {
  Memory::MemBlock block;
  BinaryLogRecordHeader header;
  ASSERT_TRUE(header.InitAndSerialize(block, LogMessage(), 0));
  EXPECT_EQ(Content(block),
            (Bytes{0x4C, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(RecordHeader, KeepsItsFieldsWhenTheBlockCannotGrow) {
  const auto message = TheMessage();
  BinaryLogRecordHeader header;
  Memory::MemBlock block;
  bool written = true;
  EXPECT_TRUE(RanShort(0, [&] { written = header.InitAndSerialize(block, *message, kIndex); }));
  EXPECT_FALSE(written);
  ExpectFields(header);
  EXPECT_TRUE(block.IsEmpty());
}

TEST(RecordHeader, ReadsEveryFieldFromItsPlace) {
  BinaryLogRecordHeader header;
  EXPECT_TRUE(header.ReadData(Block(kHeader)));
  ExpectFields(header);
  EXPECT_EQ(header.header_checksum, 0x50);
}

TEST(RecordHeader, ReadsTheStartOfALongerBlock) {
  Bytes bytes = kHeader;
  bytes.insert(bytes.end(), 50, 0xEE);
  BinaryLogRecordHeader header;
  EXPECT_TRUE(header.ReadData(Block(bytes)));
  ExpectFields(header);
}

TEST(RecordHeader, RefusesFewerThan20Bytes) {
  for (std::size_t size = 0; size < 20; ++size) {
    EXPECT_FALSE(BinaryLogRecordHeader().ReadData(Block(Slice(kHeader, 0, size)))) << size;
  }
}

TEST(RecordHeader, RefusesEveryFlippedBit) {
  for (std::size_t bit = 0; bit < 20 * 8; ++bit) {
    Bytes bytes = kHeader;
    bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
    EXPECT_FALSE(BinaryLogRecordHeader().ReadData(Block(bytes))) << bit;
  }
}

TEST(RecordHeader, StoresWhatItReadEvenWhenItIsRefused) {
  Bytes wrong_marker = kHeader;
  wrong_marker[0] = 0x4D;
  BinaryLogRecordHeader header;
  EXPECT_FALSE(header.ReadData(Block(wrong_marker)));
  EXPECT_EQ(header.marker, 0x4D);
  EXPECT_EQ(header.payload_size, 3u);
  Bytes wrong_checksum = kHeader;
  wrong_checksum[1] = 0x04;
  EXPECT_FALSE(header.ReadData(Block(wrong_checksum)));
  EXPECT_EQ(header.header_checksum, 0x04);
  ExpectFields(header);
}

TEST(RecordHeader, AcceptsAReservedByteThatTheChecksumCovers) {
  Bytes bytes = kHeader;
  bytes[3] ^= 0x40;
  bytes[1] ^= 0x40;
  BinaryLogRecordHeader header;
  EXPECT_TRUE(header.ReadData(Block(bytes)));
  EXPECT_EQ(header.reserved, 0x40);
}

TEST(RecordHeader, CopiesEveryField) {
  BinaryLogRecordHeader source;
  ASSERT_TRUE(source.ReadData(Block(kHeader)));
  BinaryLogRecordHeader assigned;
  assigned.Assign(source);
  ExpectFields(assigned);
  EXPECT_EQ(assigned.header_checksum, 0x50);
  ExpectFields(BinaryLogRecordHeader(assigned));
}

}  // namespace
}  // namespace kestrav::test
