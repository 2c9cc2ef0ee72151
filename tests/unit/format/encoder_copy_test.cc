#include <gtest/gtest.h>

#include <memory>

#include "kestrav/format/encoder.h"
#include "kestrav/host/io/file_stream.h"
#include "support/log_builder.h"
#include "support/parsed_log.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

BinaryLogStreamHeader HeaderWithKeys(std::uint8_t header_key, std::uint8_t data_key) {
  BinaryLogStreamHeader header;
  header.magic = kStreamMagic;
  header.start_time = 1'000'000'000;
  header.clock_rate = 1000;
  header.start_clock = 70;
  header.client_selection = 0x8;
  header.header_key = header_key;
  header.data_key = data_key;
  return header;
}

BinaryLogRecordHeader Record(std::string_view payload) {
  BinaryLogRecordHeader header;
  header.record_index = 77;
  header.client_id = 3;
  header.data_id = 9;
  header.time_stamp = 100;
  header.payload_size = static_cast<std::uint32_t>(payload.size());
  header.Seal(Xor(payload));
  return header;
}

// Its stream shows no room.
class CopiedLog : public testing::TestWithParam<std::uint8_t> {
 protected:
  SmartPtr::Ptr<BytesOutputStream> stream_ = std::make_shared<BytesOutputStream>();
  BinaryEncoder encoder_{stream_};
};

INSTANTIATE_TEST_SUITE_P(Keys, CopiedLog, testing::Values(0, 1, 0x51));

TEST_P(CopiedLog, HoldsTheRecordsUnderItsOwnIndicesAndKeys) {
  const std::uint8_t key = 0x33;
  std::string scrambled(9000, 'p');
  for (char& byte : scrambled) byte = static_cast<char>(byte ^ key);
  ASSERT_TRUE(encoder_.StartLike(HeaderWithKeys(GetParam(), GetParam())));
  EXPECT_TRUE(encoder_.CopyRecord(Record("odd"), Data("odd"), 0));
  EXPECT_TRUE(encoder_.CopyRecord(Record(std::string(9000, 'p')), Data(scrambled), key));
  EXPECT_TRUE(encoder_.Finish(5000));
  EXPECT_FALSE(encoder_.IsStreamValid());
  const ParsedLog log = ParseLog(stream_->Content());
  EXPECT_EQ(log.error, "");
  EXPECT_EQ(log.header_key, GetParam());
  EXPECT_EQ(log.start_clock, 70U);
  EXPECT_EQ(log.duration_ms, 5000U);
  EXPECT_EQ(log.stream_length, stream_->Content().size());
  ASSERT_EQ(log.records.size(), 2U);
  EXPECT_EQ(log.records[0], (ParsedRecord{3, 9, 100, "odd"}));
  EXPECT_EQ(log.records[1].payload, std::string(9000, 'p'));
}

TEST_P(CopiedLog, IsTheSameWhetherItsStreamMakesRoomOrNot) {
  const auto write = [&](const SmartPtr::Ptr<Io::IOutputStream>& stream) {
    BinaryEncoder encoder(stream);
    EXPECT_TRUE(encoder.StartLike(HeaderWithKeys(GetParam(), GetParam())));
    EXPECT_TRUE(encoder.CopyRecord(Record("abc"), Data("abc"), 0));
    EXPECT_TRUE(encoder.CopyRecord(Record("def"), Data("def"), 0));
    EXPECT_TRUE(encoder.Finish(1000));
  };
  const std::string path = testing::TempDir() + "copied.klog";
  const auto file = std::make_shared<Io::BufferedFileOutputStream>();
  ASSERT_TRUE(file->Open(String(path.begin(), path.end()), Io::OpenMode::kCreate));
  write(file);
  EXPECT_TRUE(file->Close());
  write(stream_);
  Io::BufferedFileInputStream read;
  ASSERT_TRUE(read.Open(String(path.begin(), path.end())));
  Bytes bytes(read.Remaining());
  EXPECT_TRUE(read.Read(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
  EXPECT_EQ(bytes, stream_->Content());
}

TEST_P(CopiedLog, TellsWhatItsStreamRefuses) {
  EXPECT_FALSE(BinaryEncoder().StartLike(HeaderWithKeys(1, 1)));
  EXPECT_FALSE(BinaryEncoder().CopyRecord(Record("abc"), Data("abc"), 0));
  stream_->SetRoom(128 + 22);
  ASSERT_TRUE(encoder_.StartLike(HeaderWithKeys(GetParam(), GetParam())));
  EXPECT_FALSE(encoder_.CopyRecord(Record("abc"), Data("abc"), 0));
  stream_->FailSeeks(true);
  EXPECT_FALSE(encoder_.Finish(1000));
}

}  // namespace
}  // namespace kestrav::test
