#include "support/log_builder.h"

namespace kestrav::test {
namespace {

constexpr std::size_t kStreamHeader = 128;
constexpr std::size_t kRecordHeader = 20;

void Put(Bytes& bytes, std::size_t at, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

}  // namespace

std::uint8_t RecordKey(std::uint8_t stream_key, std::uint32_t index) {
  if (stream_key == 0) return 0;
  const auto key = static_cast<std::uint8_t>((stream_key + index) % 256);
  return key == 0 ? 1 : key;
}

std::uint8_t Xor(std::string_view bytes) {
  std::uint8_t result = 0;
  for (const char byte : bytes) result ^= static_cast<std::uint8_t>(byte);
  return result;
}

LogBuilder::LogBuilder(std::uint8_t header_key, std::uint8_t data_key)
    : bytes_(kStreamHeader), header_key_(header_key), data_key_(data_key) {
  Put(bytes_, 0, 0x3A474F4C, 4);
  Put(bytes_, 4, 1'000'000'000, 4);
  bytes_[10] = header_key;
  bytes_[11] = data_key;
  Put(bytes_, 20, 1000, 4);
}

LogBuilder& LogBuilder::StartClock(std::uint32_t ms) {
  Put(bytes_, 24, ms, 4);
  return *this;
}

LogBuilder& LogBuilder::Duration(std::uint32_t ms) {
  Put(bytes_, 12, ms, 4);
  return *this;
}

LogBuilder& LogBuilder::Selection(std::uint16_t mask) {
  Put(bytes_, 8, mask, 2);
  return *this;
}

LogBuilder& LogBuilder::Record(std::uint16_t client, std::uint16_t data_id, std::uint32_t time_ms,
                               std::string_view payload) {
  const std::uint32_t index = next_index_++;
  Bytes record(kRecordHeader);
  record[0] = 0x4C;
  record[2] = Xor(payload);
  Put(record, 4, index, 4);
  Put(record, 8, client, 2);
  Put(record, 10, data_id, 2);
  Put(record, 12, time_ms, 4);
  Put(record, 16, payload.size(), 4);
  for (std::size_t i = 2; i < kRecordHeader; ++i) record[1] ^= record[i];
  for (std::uint8_t& byte : record) byte ^= RecordKey(header_key_, index);
  for (const char byte : payload) {
    record.push_back(static_cast<std::uint8_t>(byte) ^ RecordKey(data_key_, index));
  }
  offsets_.push_back(bytes_.size());
  return Raw(record);
}

LogBuilder& LogBuilder::Dictionary(const std::map<std::string, int>& entries,
                                   std::uint32_t time_ms) {
  std::string payload(4, '\0');
  payload[0] = static_cast<char>(entries.size());
  for (const auto& [name, id] : entries) {
    payload += name + '\0' + std::to_string(id) + '\0';
  }
  return Record(12, 1200, time_ms, payload);
}

LogBuilder& LogBuilder::Raw(const Bytes& bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

LogBuilder& LogBuilder::NextIndex(std::uint32_t index) {
  next_index_ = index;
  return *this;
}

LogBuilder& LogBuilder::Flip(std::size_t offset, std::uint8_t bits) {
  bytes_.at(offset) ^= bits;
  damaged_ = true;
  return *this;
}

LogBuilder& LogBuilder::Cut(std::size_t size) {
  bytes_.resize(size);
  damaged_ = true;
  return *this;
}

LogBuilder& LogBuilder::Zero(std::size_t offset, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes_.at(offset + i) = 0;
  damaged_ = true;
  return *this;
}

LogBuilder& LogBuilder::Insert(std::size_t offset, const Bytes& bytes) {
  bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), bytes.begin(), bytes.end());
  damaged_ = true;
  return *this;
}

Bytes LogBuilder::Build() const {
  Bytes bytes = bytes_;
  if (!damaged_) Put(bytes, 16, bytes.size(), 4);
  return bytes;
}

}  // namespace kestrav::test
