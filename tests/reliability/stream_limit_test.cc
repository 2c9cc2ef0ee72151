#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <vector>

#include "kestrav/format/encoder.h"
#include "kestrav/format/record_header.h"
#include "kestrav/format/stream_header.h"
#include "support/manual_clock.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kLongest = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kLargeRecord = 1 << 20;

// Takes as much as 32-bit positions address and keeps nothing but the headers, each from the piece
// of memory that all records are made in.
class CountingOutputStream final : public Io::IOutputStream {
 public:
  CountingOutputStream() : room_(new std::uint8_t[kLargeRecord]) {}

  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    Count();
    return Take(data, size);
  }
  bool Seek(std::uint32_t position) override {
    Count();
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override { return position_ + Committed(); }

  // Of the stream header and the records, in the order in which they were written.
  std::vector<Memory::MemBlock> headers;

 protected:
  bool MakeRoom(std::uint32_t size) override {
    Count();
    if (size > kLargeRecord || size > kLongest - position_) return false;
    room_size_ = size;
    SetRoom(room_.get(), room_.get() + size);
    return true;
  }

 private:
  std::uint32_t Committed() const { return room_size_ - static_cast<std::uint32_t>(RoomSize()); }

  void Count() {
    const std::uint32_t committed = Committed();
    room_size_ = 0;
    SetRoom(nullptr, nullptr);
    EXPECT_TRUE(committed == 0 || Take(room_.get(), committed));
  }

  bool Take(const std::uint8_t* data, std::uint32_t size) {
    if (size > kLongest - position_) return false;
    const std::uint32_t header_size = position_ == 0 ? kStreamHeaderSize : kRecordHeaderSize;
    EXPECT_TRUE(headers.emplace_back().Assign(data, header_size));
    position_ += size;
    return true;
  }

  std::unique_ptr<std::uint8_t[]> room_;
  std::uint32_t room_size_ = 0;
  std::uint32_t position_ = 0;
};

class StreamLimit : public testing::Test {
 protected:
  StreamLimit() { encoder_.EnableEncryption(false); }

  // Writes a record of `size` bytes in all.
  bool Write(std::uint32_t size) {
    if (message_->GetDataSize() + kRecordHeaderSize != size) {
      Memory::MemBlock payload;
      EXPECT_TRUE(payload.Resize(size - kRecordHeaderSize));
      payload.FillWithZeros();
      EXPECT_TRUE(message_->Adopt(1, 1, payload, 1000));
    }
    return encoder_.WriteBinaryLogRecord(message_);
  }
  std::uint32_t Left() const { return kLongest - stream_->Position(); }

  ManualClock clock_;
  std::shared_ptr<CountingOutputStream> stream_ = std::make_shared<CountingOutputStream>();
  BinaryEncoder encoder_{stream_};
  const std::shared_ptr<LogMessage> message_ = std::make_shared<LogMessage>();
};

TEST_F(StreamLimit, TakesRecordsToTheLastByteAndDropsWhatDoesNotFit) {
  ASSERT_TRUE(encoder_.Start(2));
  std::uint32_t records = 0;
  while (Left() >= kLargeRecord) {
    ASSERT_TRUE(Write(kLargeRecord));
    ++records;
  }
  EXPECT_FALSE(Write(kLargeRecord));
  ASSERT_TRUE(Write(Left() - 1'000));
  EXPECT_FALSE(Write(1'001));
  EXPECT_TRUE(Write(900));
  EXPECT_FALSE(Write(101));
  EXPECT_TRUE(Write(79));
  EXPECT_TRUE(Write(21));
  EXPECT_EQ(Left(), 0u);
  EXPECT_FALSE(Write(21));
  records += 4;
  encoder_.Stop();

  BinaryLogStreamHeader header;
  ASSERT_TRUE(header.ReadData(stream_->headers.back()));
  EXPECT_EQ(header.stream_length, kLongest);
  // The stream header stands at both ends of what was written; the records are numbered without a
  // gap.
  ASSERT_EQ(stream_->headers.size(), records + 2);
  for (std::uint32_t i = 0; i < records; ++i) {
    BinaryLogRecordHeader record;
    ASSERT_TRUE(record.ReadData(stream_->headers[i + 1].Data(), 0));
    EXPECT_EQ(record.record_index, i);
  }
  std::printf("[figure] stream at its limit: %u records, %u bytes\n", records, kLongest);
}

}  // namespace
}  // namespace kestrav::test
