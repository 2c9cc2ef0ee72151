#include "kestrav/format/encoder.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <typeinfo>
#include <utility>

#include "kestrav/format/record_header.h"
#include "kestrav/format/scramble_copy.h"
#include "kestrav/format/xor_copy.h"
#include "kestrav/host/time/source.h"

namespace kestrav {

struct BinaryEncoder::Content {
  std::uint8_t* payload;
  std::uint32_t size;
  std::uint16_t client_id;
  std::uint16_t data_id;
  std::uint32_t time_stamp;
};

namespace {

using Content = BinaryEncoder::Content;
using Keys = BinaryEncoder::Keys;

constexpr std::uint32_t kLargestPayload =
    std::numeric_limits<std::uint32_t>::max() - kRecordHeaderSize;

// Keeps the longest of what it measured.
class StopWatch {
 public:
  using Clock = std::chrono::steady_clock;

  explicit StopWatch(Clock::duration& longest) : longest_(longest) {}
  ~StopWatch() { longest_ = std::max(longest_, Clock::now() - start_); }
  StopWatch(const StopWatch&) = delete;
  StopWatch& operator=(const StopWatch&) = delete;

 private:
  Clock::duration& longest_;
  const Clock::time_point start_ = Clock::now();
};

// Payloads up to this size are scrambled without a call.
constexpr std::uint32_t kSmallPayload = 64;

// One pass over the payload each: checksum, scrambling where it stands, and copy.
[[gnu::always_inline]] inline std::uint8_t TakeSmallPayload(std::uint8_t* out, std::uint8_t* in,
                                                            std::uint32_t size, std::uint8_t key) {
  if (key == 0) [[unlikely]] {
    return XorEachOfFew(in, size, key, [=](std::size_t at, auto bytes) {
      std::memcpy(out + at, &bytes, sizeof(bytes));
    });
  }
  return XorEachOfFew(in, size, key, [=](std::size_t at, auto bytes) {
    std::memcpy(in + at, &bytes, sizeof(bytes));
    std::memcpy(out + at, &bytes, sizeof(bytes));
  });
}

[[gnu::always_inline]] inline void MakeHeader(std::uint8_t* out, const Content& content,
                                              const Keys& keys, std::uint8_t payload_checksum) {
  BinaryLogRecordHeader header;
  header.record_index = keys.index;
  header.client_id = content.client_id;
  header.data_id = content.data_id;
  header.time_stamp = content.time_stamp;
  header.payload_size = content.size;
  header.Seal(payload_checksum);
  header.Serialize(out, keys.header);
}

void MakeRecord(std::uint8_t* out, const Content& content, const Keys& keys) {
  std::uint8_t* const payload = out + kRecordHeaderSize;
  MakeHeader(out, content, keys,
             keys.data == 0 ? XorCopy(payload, content.payload, content.size, 0)
                            : ScrambleCopy(content.payload, payload, content.size, keys.data));
}

}  // namespace

Logger::Logger(SmartPtr::Ptr<Io::IOutputStream> stream) : stream_(std::move(stream)) {}

bool Logger::Write(const std::uint8_t* data, std::uint32_t size) {
  return data != nullptr && size > 0 && stream_ && stream_->Write(data, size);
}

bool Logger::SeekStream(std::uint32_t position) { return stream_ && stream_->Seek(position); }

bool Logger::FlushStream() { return stream_ == nullptr || stream_->Flush(); }

BinaryEncoder::BinaryEncoder(SmartPtr::Ptr<Io::IOutputStream> stream) : Logger(std::move(stream)) {}

void BinaryEncoder::ResetCounts() {
  record_count_ = 0;
  bytes_written_ = 0;
  first_unflushed_ = 0;
  lost_records_ = 0;
  longest_write_ = {};
}

bool BinaryEncoder::Reset() {
  ResetCounts();
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
  stream_header_.client_selection = BinaryLogStreamHeader::Selection(selection);
  return WriteStreamHeader();
}

bool BinaryEncoder::WriteStreamHeader() {
  if (stream_header_.WriteData(Stream()) != kStreamHeaderSize) return false;
  last_time_stamp_ = start_clock_;
  bytes_written_ += kStreamHeaderSize;
  return true;
}

// The usual case calls nothing: a plain message with a small payload, and room in the stream.
bool BinaryEncoder::WriteBinaryLogRecord(const SmartPtr::Ptr<LogMessage>& message) {
  if (!message || !IsStreamValid()) return false;
  LogMessage& plain = *message;
  const Content content = {plain.LogMessage::GetDataPointer(), plain.LogMessage::GetDataSize(),
                           plain.LogMessage::GetClientID(), plain.LogMessage::GetDataID(),
                           plain.time_stamp};
  if (&typeid(plain) != &typeid(LogMessage) || content.size > kSmallPayload) {
    return WriteOtherRecord(plain);
  }
  const std::uint32_t size = content.size + kRecordHeaderSize;
  std::uint8_t* const room = Stream()->Room(size);
  if (room == nullptr) return WriteOtherRecord(plain);
  const Keys keys = NextKeys();
  MakeHeader(room, content, keys,
             TakeSmallPayload(room + kRecordHeaderSize, content.payload, content.size, keys.data));
  Stream()->Commit(size);
  CountRecord(size, content.time_stamp);
  return true;
}

// Any message.
bool BinaryEncoder::WriteOtherRecord(LogMessage& message) {
  const Content content = {message.GetDataPointer(), message.GetDataSize(), message.GetClientID(),
                           message.GetDataID(), message.time_stamp};
  if (content.size > kLargestPayload) return false;
  const std::uint32_t size = content.size + kRecordHeaderSize;
  std::uint8_t* const room = Stream()->Room(size);
  if (room == nullptr) return WriteWithoutRoom(content);
  MakeRecord(room, content, NextKeys());
  Stream()->Commit(size);
  CountRecord(size, content.time_stamp);
  return true;
}

// To a stream that makes room first or takes only writes.
bool BinaryEncoder::WriteWithoutRoom(const Content& content) {
  const std::uint32_t size = content.size + kRecordHeaderSize;
  Io::IOutputStream& stream = *Stream();
  const StopWatch watch(longest_write_);
  std::uint8_t* const room = stream.Reserve(size);
  if (room == nullptr && !record_.Resize(size)) return false;
  MakeRecord(room != nullptr ? room : record_.Data(), content, NextKeys());
  if (room != nullptr) {
    stream.Commit(size);
  } else if (!stream.Write(record_.Data(), size)) {
    if (stream.Unflushed() == 0) first_unflushed_ = record_count_;  // it made room all the same
    return false;
  }
  const std::uint32_t unflushed = stream.Unflushed();
  if (unflushed <= size) first_unflushed_ = record_count_ + (unflushed == 0 ? 1 : 0);
  CountRecord(size, content.time_stamp);
  return true;
}

bool BinaryEncoder::Flush() {
  const StopWatch watch(longest_write_);
  if (!FlushStream()) return false;
  first_unflushed_ = record_count_;
  return true;
}

// What is given up now would otherwise still get to the file some day, behind the final header.
void BinaryEncoder::DropUnflushed() {
  const std::uint32_t bytes = Stream()->Unflushed();
  if (bytes == 0) return;  // it does not say
  bytes_written_ = std::max(bytes_written_ - std::min(bytes_written_, bytes), kStreamHeaderSize);
  lost_records_ = record_count_ - first_unflushed_;
  record_count_ = first_unflushed_;
  Stream()->DropUnflushed();
}

void BinaryEncoder::Abandon() {
  if (!IsStreamValid() || SeekStream(0)) return;
  Stream()->DropUnflushed();
  static_cast<void>(SeekStream(0));
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
    // This is the last chance of what is buffered, so a disk that failed once is asked again.
    if (!Flush() && !Flush()) DropUnflushed();
    stream_header_.stream_length = bytes_written_;
    if (SeekStream(0) && WriteStreamHeader()) {
      bytes_written_ -= kStreamHeaderSize;  // the header was counted when it was first written
      static_cast<void>(SeekStream(0));     // hands the header on; where the stream stands is moot
    }
  }
  SetLogStream(nullptr);
}

bool BinaryEncoder::StartLike(const BinaryLogStreamHeader& header) {
  if (!IsStreamValid()) return false;
  ResetCounts();
  stream_header_ = header;
  start_clock_ = header.start_clock;
  const bool scrambled_headers = header_crypter_.Initialize(header.header_key);
  const bool scrambled_data = data_crypter_.Initialize(header.data_key);
  scrambling_ = scrambled_headers || scrambled_data;
  return WriteStreamHeader();
}

bool BinaryEncoder::CopyRecord(const BinaryLogRecordHeader& header, const std::uint8_t* payload,
                               std::uint8_t key) {
  if (!IsStreamValid() || header.payload_size > kLargestPayload) return false;
  const std::uint32_t size = header.payload_size + kRecordHeaderSize;
  const Keys keys = NextKeys();
  BinaryLogRecordHeader copy = header;
  copy.reserved = 0;
  copy.record_index = keys.index;
  copy.Seal(header.payload_checksum);
  const auto change = static_cast<std::uint8_t>(key ^ keys.data);
  if (std::uint8_t* const room = Stream()->Reserve(size); room != nullptr) {
    copy.Serialize(room, keys.header);
    static_cast<void>(XorCopy(room + kRecordHeaderSize, payload, header.payload_size, change));
    Stream()->Commit(size);
  } else {
    std::uint8_t bytes[kRecordHeaderSize];
    copy.Serialize(bytes, keys.header);
    if (!WritePieces(bytes, payload, header.payload_size, change)) return false;
  }
  CountRecord(size, header.time_stamp);
  return true;
}

bool BinaryEncoder::WritePieces(const std::uint8_t* header, const std::uint8_t* payload,
                                std::uint32_t size, std::uint8_t key) {
  constexpr std::uint32_t kPiece = 4096;
  if (!Write(header, kRecordHeaderSize)) return false;
  // Through memory of its own even where nothing changes: `payload` may be a file that fails.
  std::uint8_t piece[kPiece];
  for (std::uint32_t at = 0; at < size;) {
    const std::uint32_t part = std::min(size - at, kPiece);
    static_cast<void>(XorCopy(piece, payload + at, part, key));
    if (!Write(piece, part)) return false;
    at += part;
  }
  return true;
}

bool BinaryEncoder::Finish(std::uint32_t duration_ms) {
  stream_header_.recording_duration = duration_ms;
  stream_header_.stream_length = bytes_written_;
  const bool written = SeekStream(0) && WriteStreamHeader() && SeekStream(0);
  SetLogStream(nullptr);
  return written;
}

}  // namespace kestrav
