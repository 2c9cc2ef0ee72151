#include "baseline/writer.h"

namespace kestrav::baseline {

Writer::~Writer() {
  if (file_ != nullptr) std::fclose(file_);
}

bool Writer::Open(const std::string& path, const StreamHeader& header) {
  constexpr std::size_t kBufferSize = 64 * 1024;
  file_ = std::fopen(path.c_str(), "r+b");
  if (file_ == nullptr) file_ = std::fopen(path.c_str(), "w+b");
  if (file_ == nullptr || std::setvbuf(file_, nullptr, _IOFBF, kBufferSize) != 0) return false;
  header_ = header;
  records_ = 0;
  header_.length = kStreamHeaderSize;
  StreamHeader provisional = header;
  provisional.length = 0;
  return WriteAll(Serialize(provisional));
}

bool Writer::Write(Message& message) {
  RecordHeader header;
  header.index = records_;
  header.client_id = message.client_id;
  header.data_id = message.data_id;
  header.time_stamp = message.time_stamp;
  header.payload_size = static_cast<std::uint32_t>(message.payload.size());
  header.payload_checksum = Checksum(message.payload.data(), message.payload.size());

  std::vector<std::uint8_t> record;
  record.reserve(kRecordHeaderSize + message.payload.size());
  Serialize(header, record);
  Scramble(record.data(), kRecordHeaderSize, header_.header_key, records_);
  Scramble(message.payload.data(), message.payload.size(), header_.data_key, records_);
  record.insert(record.end(), message.payload.begin(), message.payload.end());
  if (!WriteAll(record)) return false;
  header_.length += static_cast<std::uint32_t>(record.size());
  ++records_;
  return true;
}

bool Writer::Flush() { return std::fflush(file_) == 0; }

bool Writer::Close(std::uint32_t duration_ms) {
  header_.duration_ms = duration_ms;
  const bool written = std::fseek(file_, 0, SEEK_SET) == 0 && WriteAll(Serialize(header_));
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  return written && closed;
}

bool Writer::WriteAll(const std::vector<std::uint8_t>& bytes) {
  return std::fwrite(bytes.data(), 1, bytes.size(), file_) == bytes.size();
}

}  // namespace kestrav::baseline
