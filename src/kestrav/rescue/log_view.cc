#include "kestrav/rescue/log_view.h"

#include <algorithm>
#include <limits>

#include "kestrav/host/memory/byte_order.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::rescue {
namespace {

constexpr std::uint32_t kReservedAt = 3;

// Whether marker and reserved byte at `bytes` can have the same key.
bool IsStart(const std::uint8_t* bytes) { return (bytes[0] ^ bytes[kReservedAt]) == kRecordMarker; }

// Whether one of the sixteen positions from `bytes` on is such a start.
bool AnyStart(const std::uint8_t* bytes) {
  wide::Bytes first, fourth;
  std::memcpy(&first, bytes, sizeof(first));
  std::memcpy(&fourth, bytes + kReservedAt, sizeof(fourth));
  const auto found = (wide::Vector)((first ^ fourth) == kRecordMarker);
  return (found[0] | found[1]) != 0;
}

std::uint32_t SizeIn32Bits(std::size_t size) {
  return static_cast<std::uint32_t>(
      std::min<std::size_t>(size, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

LogView::LogView(std::span<const std::uint8_t> bytes)
    : bytes_(bytes.data()), size_(SizeIn32Bits(bytes.size())) {
  FindZeroTail();
}

void LogView::Shorten(std::uint32_t size) {
  size_ = size;
  FindZeroTail();
}

void LogView::FindZeroTail() {
  zero_tail_ = size_;
  constexpr std::uint32_t kStep = sizeof(std::uint64_t);
  while (zero_tail_ >= kStep &&
         Memory::GetLittleEndian<std::uint64_t>(bytes_ + (zero_tail_ - kStep)) == 0) {
    zero_tail_ -= kStep;
  }
  while (zero_tail_ > 0 && bytes_[zero_tail_ - 1] == 0) --zero_tail_;
}

void LogView::SetKeys(std::uint8_t header_key, std::uint8_t data_key) {
  header_crypter_.Initialize(header_key);
  data_crypter_.Initialize(data_key);
}

bool LogView::LoadSums() {
  if (!sums_.empty()) return true;
  return Memory::Try([this] {
    const std::uint32_t blocks = size_ / kBlock;
    sums_.resize(std::size_t{blocks} + 1);
    for (std::uint32_t i = 0; i < blocks; ++i) {
      sums_[i + 1] = sums_[i] ^ XorSum(bytes_ + std::size_t{i} * kBlock, kBlock);
    }
  });
}

std::uint8_t LogView::SumOfBlocks(std::uint32_t at, std::uint32_t size) const {
  const std::uint32_t end = at + size;
  const std::uint32_t first = (at + kBlock - 1) / kBlock;
  const std::uint32_t last = end / kBlock;
  return sums_[first] ^ sums_[last] ^ XorSum(bytes_ + at, first * kBlock - at) ^
         XorSum(bytes_ + last * kBlock, end - last * kBlock);
}

bool LogView::IsSound(std::uint32_t at, const BinaryLogRecordHeader& header) const {
  return header.reserved == 0 && header.payload_size > 0 &&
         header.payload_size <= size_ - at - kRecordHeaderSize && header.client_id != kNoId &&
         header.data_id != kNoId;
}

bool LogView::ReadHeader(std::uint32_t at, BinaryLogRecordHeader& header) const {
  if (at > size_ || size_ - at < kRecordHeaderSize || !IsStart(bytes_ + at)) return false;
  return header.ReadData(bytes_ + at, bytes_[at] ^ kRecordMarker) && IsSound(at, header);
}

bool LogView::ReadKeyedHeader(std::uint32_t at, BinaryLogRecordHeader& header) const {
  return ReadHeader(at, header) && HeaderKey(header.record_index) == (bytes_[at] ^ kRecordMarker);
}

bool LogView::ReadHeaderOf(std::uint32_t index, std::uint32_t at,
                           BinaryLogRecordHeader& header) const {
  return at <= size_ && size_ - at >= kRecordHeaderSize &&
         header.ReadData(bytes_ + at, HeaderKey(index)) && header.record_index == index &&
         IsSound(at, header);
}

std::uint32_t LogView::FindHeader(std::uint32_t at, std::uint32_t until) const {
  constexpr std::uint32_t kStep = sizeof(wide::Bytes);
  while (at < until && size_ - at >= kRecordHeaderSize) {
    if (size_ - at >= kStep + kRecordHeaderSize && !AnyStart(bytes_ + at)) {
      at += kStep;
      continue;
    }
    const std::uint32_t end = std::min(size_ - at, kStep) + at;
    for (; at < end; ++at) {
      if (size_ - at >= kRecordHeaderSize && IsStart(bytes_ + at) &&
          XorSum(bytes_ + at, kRecordHeaderSize) == kRecordMarker) {
        return at;
      }
    }
  }
  return at < until ? size_ : at;
}

bool LogView::PayloadHolds(std::uint32_t at, const BinaryLogRecordHeader& header) const {
  const std::uint8_t sum = Sum(at + kRecordHeaderSize, header.payload_size);
  const std::uint8_t key = header.payload_size % 2 == 0 ? 0 : DataKey(header.record_index);
  return sum == (header.payload_checksum ^ key);
}

}  // namespace kestrav::rescue
