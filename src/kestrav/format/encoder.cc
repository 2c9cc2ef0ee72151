#include "kestrav/format/encoder.h"

#include <cstring>
#include <limits>
#include <utility>

#include "kestrav/format/record_header.h"
#include "kestrav/format/xor_copy.h"
#include "kestrav/host/time/source.h"

namespace kestrav {
namespace {

// The 16 bits of the selection that the stream header holds. Bit 15 doubles as the mark that the
// selection does not fit and stands in the extended selection record.
std::uint16_t HeaderSelection(std::uint64_t selection) {
  constexpr std::uint32_t kDoesNotFit = 0x8000;
  const auto low = static_cast<std::uint32_t>(selection);
  const bool fits = selection <= 0xFFFF;
  return static_cast<std::uint16_t>(fits ? low : low | kDoesNotFit);
}

// One pass over the payload: checksum, scrambling where it stands, and copy.
inline void MakeRecord(std::uint8_t* out, LogMessage& message, std::uint32_t size,
                       std::uint32_t index, std::uint8_t header_key, std::uint8_t data_key) {
  std::uint8_t* const in = message.GetDataPointer();
  std::uint8_t* const payload = out + kRecordHeaderSize;
  const std::uint8_t checksum =
      data_key == 0 ? XorCopy(payload, in, size, 0)
                    : XorEach(in, size, data_key, [&](std::uint32_t at, auto bytes) {
                        std::memcpy(in + at, &bytes, sizeof(bytes));
                        std::memcpy(payload + at, &bytes, sizeof(bytes));
                      });
  BinaryLogRecordHeader header;
  header.Init(message, index, checksum);
  header.Serialize(out, header_key);
}

}  // namespace

Logger::Logger(SmartPtr::Ptr<Io::IOutputStream> stream) : stream_(std::move(stream)) {}

bool Logger::Write(const std::uint8_t* data, std::uint32_t size) {
  return data != nullptr && size > 0 && stream_ && stream_->Write(data, size);
}

bool Logger::SeekStream(std::uint32_t position) { return stream_ && stream_->Seek(position); }

void Logger::FlushStream() {
  // A stream that cannot flush now keeps the bytes and tries again by itself.
  if (stream_) static_cast<void>(stream_->Flush());
}

BinaryEncoder::BinaryEncoder(SmartPtr::Ptr<Io::IOutputStream> stream) : Logger(std::move(stream)) {}

bool BinaryEncoder::Reset() {
  record_count_ = 0;
  bytes_written_ = 0;
  stream_header_.Reset();
  header_crypter_.ResetKey();
  data_crypter_.ResetKey();
  if (!stream_header_.Initialize()) return false;
  if (!scrambling_) return true;
  // A scrambler without a clock stays off and its key 0, which every reader understands.
  static_cast<void>(header_crypter_.Initialize());
  static_cast<void>(data_crypter_.Initialize());
  stream_header_.header_key = header_crypter_.GetKey();
  stream_header_.data_key = data_crypter_.GetKey();
  return true;
}

bool BinaryEncoder::Start(std::uint64_t selection) {
  start_clock_ = 0;
  if (selection == 0 || !IsStreamValid() || !Reset()) return false;
  start_clock_ = stream_header_.start_clock;
  stream_header_.client_selection = HeaderSelection(selection);
  return WriteStreamHeader();
}

bool BinaryEncoder::WriteStreamHeader() {
  if (stream_header_.WriteData(Stream()) != kStreamHeaderSize) return false;
  last_time_stamp_ = start_clock_;
  bytes_written_ += kStreamHeaderSize;
  return true;
}

bool BinaryEncoder::WriteBinaryLogRecord(const SmartPtr::Ptr<LogMessage>& message) {
  if (!message || !IsStreamValid()) return false;
  const std::uint32_t size = message->GetDataSize();
  if (size > std::numeric_limits<std::uint32_t>::max() - kRecordHeaderSize) return false;
  const std::uint32_t record_size = size + kRecordHeaderSize;
  Io::IOutputStream& stream = *Stream();
  std::uint8_t* const room = stream.Reserve(record_size);
  if (room == nullptr && !record_.Resize(record_size)) return false;
  const bool scrambling = scrambling_;
  const std::uint8_t header_key = scrambling ? header_crypter_.RecordKey(record_count_) : 0;
  const std::uint8_t data_key = scrambling ? data_crypter_.RecordKey(record_count_) : 0;
  MakeRecord(room != nullptr ? room : record_.Data(), *message, size, record_count_, header_key,
             data_key);
  if (room != nullptr) {
    stream.Commit(record_size);
  } else if (!stream.Write(record_.Data(), record_size)) {
    return false;
  }
  bytes_written_ += record_size;
  ++record_count_;
  last_time_stamp_ = message->time_stamp;
  return true;
}

std::uint32_t BinaryEncoder::GetRecordingTimeScnds() const {
  std::uint32_t now_ms = 0;
  if (start_clock_ == 0 || !Time::Source().ReadMs(now_ms)) return 0;
  return (now_ms + 500 - start_clock_) / 1000;
}

void BinaryEncoder::Stop() {
  if (IsStreamValid()) {
    stream_header_.recording_duration =
        last_time_stamp_ >= start_clock_ ? 1000 * GetRecordingTimeScnds() : 0;
    stream_header_.stream_length = bytes_written_;
    if (SeekStream(0) && WriteStreamHeader()) {
      bytes_written_ -= kStreamHeaderSize;  // the header was counted when it was first written
      static_cast<void>(SeekStream(0));     // hands the header on; where the stream stands is moot
    }
  }
  SetLogStream(nullptr);
}

}  // namespace kestrav
