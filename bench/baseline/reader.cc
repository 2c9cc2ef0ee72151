#include "baseline/reader.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kestrav::baseline {

bool Reader::Open(const std::string& path) {
  std::array<std::uint8_t, kStreamHeaderSize> bytes;
  return file_.Open(path) && file_.Read(bytes.data(), bytes.size()) && Parse(bytes.data(), stream_);
}

bool Reader::Next(Message& message) {
  RecordHeader header;
  if (!NextHeader(header)) return false;
  std::vector<std::uint8_t> payload;
  Result result = ReadPayload(header, payload);
  if (result == Result::kDamaged) {
    if (!ScanForNextHeader() || !NextHeader(header)) return false;
    result = ReadPayload(header, payload);
  }
  if (result != Result::kGood) return false;
  message.client_id = header.client_id;
  message.data_id = header.data_id;
  message.time_stamp = header.time_stamp;
  message.payload = std::move(payload);
  return true;
}

bool Reader::NextHeader(RecordHeader& header) {
  Result result = ReadHeader(header);
  if (result == Result::kDamaged && ScanForNextHeader()) result = ReadHeader(header);
  if (result != Result::kGood) return false;
  expected_index_ = header.index + 1;
  return true;
}

Result Reader::ReadHeader(RecordHeader& header) {
  std::array<std::uint8_t, kRecordHeaderSize> bytes;
  if (!file_.Read(bytes.data(), bytes.size())) return Result::kNotEnough;
  Scramble(bytes.data(), bytes.size(), stream_.header_key, expected_index_);
  return Parse(bytes.data(), header) ? Result::kGood : Result::kDamaged;
}

Result Reader::ReadPayload(const RecordHeader& header, std::vector<std::uint8_t>& payload) {
  if (header.payload_size > file_.Remaining()) return Result::kNotEnough;
  if (header.payload_size == 0) return Result::kDamaged;
  payload.resize(header.payload_size);
  if (!file_.Read(payload.data(), payload.size())) return Result::kDamaged;
  Scramble(payload.data(), payload.size(), stream_.data_key, header.index);
  const bool good = Checksum(payload.data(), payload.size()) == header.payload_checksum;
  return good ? Result::kGood : Result::kDamaged;
}

bool Reader::ScanForNextHeader() {
  constexpr std::size_t kBlockSize = 50;
  std::array<std::uint8_t, kBlockSize> block;
  std::vector<std::uint8_t> payload;
  for (;;) {
    const std::size_t start = file_.Position();
    const std::size_t size = file_.Remaining() < kBlockSize ? kRecordHeaderSize : kBlockSize;
    if (!file_.Read(block.data(), size)) return false;
    Scramble(block.data(), kRecordHeaderSize, stream_.header_key, expected_index_);
    const auto end = block.begin() + static_cast<std::ptrdiff_t>(size);
    const auto found = std::find(block.begin(), end, kMarker);
    if (found == end) continue;
    const std::size_t candidate = start + static_cast<std::size_t>(found - block.begin());
    file_.Seek(candidate);
    RecordHeader header;
    if (ReadHeader(header) != Result::kGood) {
      file_.Seek(candidate + 1);
    } else if (ReadPayload(header, payload) == Result::kGood) {
      file_.Seek(candidate);
      return true;
    }
  }
}

}  // namespace kestrav::baseline
