#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "kestrav/clients/info_client.h"
#include "kestrav/format/encoder.h"
#include "polling_rig.h"
#include "support/manual_clock.h"

// The dumps in the document of the format are what the library writes and reads.

namespace kestrav::test {
namespace {

constexpr std::uint32_t kStart = 10000;
constexpr std::uint32_t kRecordTime = kStart + 250;
constexpr std::uint16_t kDataId = 3;
const std::string kPosition = "51.2 N";

struct Dump {
  std::size_t start = 0;
  Bytes bytes;
};

// Takes a line such as "0008  00 90    meaning". Two blanks end the bytes.
void ReadDumpLine(const std::string& line, Dump& dump) {
  const std::size_t offset = std::stoul(line.substr(0, 4), nullptr, 16);
  if (dump.bytes.empty()) dump.start = offset;
  EXPECT_EQ(offset, dump.start + dump.bytes.size()) << line;
  std::istringstream fields(line.substr(6, line.find("  ", 6) - 6));
  for (std::string field; fields >> field;) {
    dump.bytes.push_back(static_cast<std::uint8_t>(std::stoul(field, nullptr, 16)));
  }
}

bool IsDumpLine(const std::string& line) {
  return line.size() > 6 && line.find_first_not_of("0123456789abcdef") == 4 &&
         line.compare(4, 2, "  ") == 0;
}

// The dumps of the document, each in a fence of its own.
std::vector<Dump> ReadDumps() {
  std::ifstream document(KESTRAV_SOURCE_DIR "/docs/log-format.md");
  EXPECT_TRUE(document.is_open());
  std::vector<Dump> dumps;
  Dump dump;
  for (std::string line; std::getline(document, line);) {
    if (IsDumpLine(line)) ReadDumpLine(line, dump);
    if (!line.starts_with("```") || dump.bytes.empty()) continue;
    dumps.push_back(std::move(dump));
    dump = Dump();
  }
  return dumps;
}

// Stamps messages with the start of the recording and encodes them at once.
class EncoderSink final : public IMessageSink {
 public:
  explicit EncoderSink(BinaryEncoder& encoder) : encoder_(encoder) {}
  bool Write(const SmartPtr::Ptr<ILogMessage>& message) override {
    const auto log_message = std::static_pointer_cast<LogMessage>(message);
    log_message->time_stamp = kStart;
    return encoder_.WriteBinaryLogRecord(log_message);
  }

 private:
  BinaryEncoder& encoder_;
};

Bytes Record() {
  ManualClock clock(kStart, 1'700'000'000);
  const auto stream = std::make_shared<BytesOutputStream>();
  BinaryEncoder encoder(stream);
  encoder.EnableEncryption(false);
  const std::uint64_t selection = ClientIdSet::Bit(kInfoClientId) | ClientIdSet::Bit(kGps);
  EXPECT_TRUE(encoder.Start(selection));
  EncoderSink sink(encoder);
  const InfoClientImpl info;
  EXPECT_TRUE(info.WriteDictionaryRecord({{L"GPS", kGps}, {info.s_InfoClientString, kInfoClientId}},
                                         &sink));
  EXPECT_TRUE(info.RecordExtendedBinarySelection(selection, &sink));
  const auto message = std::make_shared<LogMessage>();
  EXPECT_TRUE(message->Assign(kGps, kDataId,
                              reinterpret_cast<const std::uint8_t*>(kPosition.data()),
                              static_cast<std::uint32_t>(kPosition.size()), kRecordTime));
  EXPECT_TRUE(encoder.WriteBinaryLogRecord(message));
  clock->Advance(1000);
  encoder.Stop();
  return stream->Content();
}

TEST(DocumentedLog, IsWhatTheEncoderWrites) {
  const std::vector<Dump> dumps = ReadDumps();
  ASSERT_EQ(dumps.size(), 2U);
  EXPECT_EQ(dumps[0].start, 0U);
  EXPECT_EQ(dumps[0].bytes, Record());
}

TEST(DocumentedLog, PlaysItsPositionBack) {
  const std::vector<Dump> dumps = ReadDumps();
  ASSERT_EQ(dumps.size(), 2U);
  PollingRig rig;
  ASSERT_TRUE(rig.Insert(dumps[0].bytes));
  std::uint32_t length_ms = 0;
  std::uint32_t size = 0;
  std::uint16_t mask = 0;
  Memory::MemBlock data;
  ASSERT_TRUE(rig.playback.GetPlaybackAttributes(length_ms, size, mask, data, kInfoClientId));
  Dictionary dictionary;
  ASSERT_TRUE(InfoClientUtility::ReadDictionaryData(dictionary, data));
  rig.Select(dictionary);
  ASSERT_TRUE(rig.Start());
  rig.PlayToTheEnd();
  const std::vector<Delivery> expected = {{kGps, kDataId, kPosition}};
  EXPECT_EQ(rig.gps.Deliveries(), expected);
}

TEST(DocumentedLog, ShowsTheSameRecordScrambled) {
  const std::vector<Dump> dumps = ReadDumps();
  ASSERT_EQ(dumps.size(), 2U);
  LogBuilder log(0x2A, 0x51);
  log.Record(kInfoClientId, kDictionaryDataId, kStart, "any").Record(kInfoClientId, 134, 0, "any");
  const std::size_t at = log.Record(kGps, kDataId, kRecordTime, kPosition).RecordOffset(2);
  const Bytes bytes = log.Build();
  EXPECT_EQ(dumps[1].bytes, Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end()));
}

}  // namespace
}  // namespace kestrav::test
