#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <utility>

#include "kestrav/format/decoder.h"
#include "support/log_builder.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

LogBuilder TwoRecords(std::uint8_t header_key = 0x35, std::uint8_t data_key = 0x9B) {
  LogBuilder log(header_key, data_key);
  log.Record(1, 10, 1000, "first").Record(2, 20, 1001, "second");
  return log;
}

const Said kFirst{1, 10, 1000, "first"};
const Said kSecond{2, 20, 1001, "second"};

TEST(BinaryDecoderOpen, ReadsTheStreamHeader) {
  OpenLog log(TwoRecords().StartClock(77).Selection(6).Duration(9000).Build());
  const BinaryLogStreamHeader& header = log.decoder.StreamHeader();
  EXPECT_EQ(header.start_time, 1'000'000'000);
  EXPECT_EQ(header.client_selection, 6);
  EXPECT_EQ(header.header_key, 0x35);
  EXPECT_EQ(header.data_key, 0x9B);
  EXPECT_EQ(header.recording_duration, 9000u);
  EXPECT_EQ(header.stream_length, TwoRecords().Size());
  EXPECT_EQ(header.start_clock, 77u);
  EXPECT_EQ(log.decoder.Getoffset(), 128u);
}

TEST(BinaryDecoderOpen, Needs128Bytes) {
  for (const std::size_t size : {0u, 1u, 4u, 127u}) {
    const Bytes cut = LogBuilder().Cut(size).Build();
    EXPECT_FALSE(BinaryDecoder(std::make_shared<BytesInputStream>(cut)).Initialize()) << size;
  }
  EXPECT_TRUE(BinaryDecoder(std::make_shared<BytesInputStream>(LogBuilder().Build())).Initialize());
}

TEST(BinaryDecoderOpen, TellsAShortHeaderFromADamagedOne) {
  BinaryLogStreamHeader header;
  const auto read = [&](const LogBuilder& log) {
    BinaryDecoder decoder(std::make_shared<BytesInputStream>(log.Build()));
    return decoder.ReadBinaryLogStreamHeader(header);
  };
  EXPECT_EQ(read(LogBuilder()), kSuccess);
  EXPECT_EQ(read(LogBuilder().Cut(127)), kNotEnoughData);
  EXPECT_EQ(read(LogBuilder().Flip(3)), kDamaged);
}

TEST(BinaryDecoderOpen, RefusesAWrongMagic) {
  for (std::size_t at = 0; at < 4; ++at) {
    const auto stream = std::make_shared<BytesInputStream>(TwoRecords().Flip(at).Build());
    EXPECT_FALSE(BinaryDecoder(stream).Initialize()) << at;
  }
}

TEST(BinaryDecoderOpen, StartsOverFromTheFirstRecord) {
  OpenLog log(TwoRecords().Build());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(log.Walk(), (std::vector{kFirst, kSecond}));
    EXPECT_TRUE(log.decoder.Initialize());
  }
}

TEST(BinaryDecoderOpen, ExpectsTheFirstRecordEvenWhenItFails) {
  OpenLog log(TwoRecords().Build());
  log.Walk();
  EXPECT_FALSE(log.decoder.Initialize(Block(Bytes(5))));
  ASSERT_TRUE(log.decoder.SetOffset(128));
  EXPECT_EQ(log.Walk(), (std::vector{kFirst, kSecond}));
}

TEST(BinaryDecoderOpen, ReadsAPlainLogAfterAScrambledOne) {
  OpenLog log(TwoRecords().Build());
  log.Walk();
  log.decoder.SetInputStream(std::make_shared<BytesInputStream>(TwoRecords(0, 0).Build()));
  ASSERT_TRUE(log.decoder.Initialize());
  EXPECT_EQ(log.Walk(), (std::vector{kFirst, kSecond}));
}

TEST(BinaryDecoderOpen, TakesAHeaderBlockOfExactly128Bytes) {
  const Bytes bytes = TwoRecords().Build();
  BinaryDecoder decoder;
  EXPECT_FALSE(decoder.Initialize(Block(Slice(bytes, 0, 127))));
  EXPECT_FALSE(decoder.Initialize(Block(Slice(bytes, 0, 129))));
  EXPECT_FALSE(decoder.Initialize(Memory::MemBlock()));
  EXPECT_FALSE(decoder.Initialize(Block(Bytes(128))));
  EXPECT_TRUE(decoder.Initialize(Block(Slice(bytes, 0, 128))));
  EXPECT_EQ(decoder.StreamHeader().header_key, 0x35);
}

TEST(BinaryDecoderOpen, LetsGoOfStreamAndSelectionAtTheStop) {
  OpenLog log(TwoRecords().Build());
  log.decoder.SetPlaybackSelection(ClientIdSet(6));
  LogMessage message;
  ASSERT_EQ(log.decoder.GetNextPlaybackMessage(message), kSuccess);
  EXPECT_TRUE(log.decoder.IsStreamValid());
  log.decoder.Stop();
  EXPECT_FALSE(log.decoder.IsStreamValid());
  EXPECT_EQ(log.stream.use_count(), 1);
  EXPECT_FALSE(log.decoder.Initialize());

  log.decoder.SetInputStream(log.stream);
  ASSERT_TRUE(log.decoder.SetOffset(128));
  EXPECT_EQ(log.decoder.GetNextPlaybackMessage(message), kNotEnoughData);  // nothing selected
}

TEST(BinaryDecoderOpen, ExpectsTheFirstRecordAfterTheStop) {
  OpenLog log(TwoRecords().Build());
  log.Walk();
  log.decoder.Stop();
  log.decoder.SetInputStream(log.stream);
  ASSERT_TRUE(log.decoder.SetOffset(128));
  EXPECT_EQ(log.Walk(), (std::vector{kFirst, kSecond}));
}

// The result of every operation on a decoder, in words.
std::string Behaviour(SmartPtr::Ptr<Io::IInputStream> stream) {
  BinaryDecoder decoder(std::move(stream));
  BinaryLogStreamHeader stream_header;
  BinaryLogRecordHeader header;
  LogMessage message;
  Memory::MemBlock block;
  std::uint8_t byte = 0;
  std::ostringstream out;
  out << decoder.Initialize() << decoder.ReadBinaryLogStreamHeader(stream_header) << " position "
      << decoder.Getoffset() << '+' << decoder.GetRemainingBytes()                    //
      << " seek " << decoder.SetOffset(0) << decoder.SetOffset(1)                     //
      << " read " << decoder.ReadData(&byte, 0) << decoder.ReadData(&byte, 1)         //
      << " skip " << decoder.SkipData(0) << decoder.SkipData(1)                       //
      << " step " << decoder.ReadLogRecordHeader(header, 0)                           //
      << decoder.ReadRecordData(block, 1, 0) << decoder.ReadRecordData(block, 0, 0)   //
      << decoder.GetRecordData(block, 1, 0, 0) << decoder.SetToPreviousLogRecord(0)   //
      << " walk " << decoder.GetNextRecordHeader(header)                              //
      << decoder.GetNextLogRecordHeader(header) << decoder.GetNextLogRecord(message)  //
      << decoder.GetNextPlaybackMessage(message) << decoder.ScanForNextValidHeader()  //
      << " rebuild " << decoder.ScanStreamHeaderInfo(stream_header);
  return out.str();
}

TEST(BinaryDecoderOpen, BehavesWithoutAStreamAsOnAnEmptyOne) {
  EXPECT_EQ(Behaviour(nullptr), Behaviour(std::make_shared<BytesInputStream>(Bytes())));
}

TEST(BinaryDecoderOpen, ReadsNothingIntoNothing) {
  OpenLog log(TwoRecords().Build());
  EXPECT_FALSE(log.decoder.ReadData(nullptr, 1));
  EXPECT_FALSE(log.decoder.ReadData(nullptr, 0));
  EXPECT_EQ(log.decoder.Getoffset(), 128u);
}

}  // namespace
}  // namespace kestrav::test
