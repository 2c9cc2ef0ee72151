#include "kestrav/format/scan_pattern.h"

#include <bit>
#include <cstring>

#include "kestrav/format/record_header.h"
#include "kestrav/host/memory/byte_order.h"

namespace kestrav {
namespace {

// Where the vectors of a block begin; the last overlaps the one before.
constexpr std::uint32_t kLastVector = kScanBlockSize - sizeof(wide::Bytes);

wide::Bytes LoadBytes(const std::uint8_t* from) {
  wide::Bytes bytes;
  std::memcpy(&bytes, from, sizeof(bytes));
  return bytes;
}

// Bit n is set where byte n of the two is the same.
std::uint64_t EqualBytes(wide::Bytes a, wide::Bytes b) {
  const auto equal = (wide::Bytes)(a == b);
#if defined(__SSE2__)
  using Chars = char __attribute__((vector_size(16)));
  return static_cast<std::uint16_t>(__builtin_ia32_pmovmskb128((Chars)equal));
#else
  std::uint64_t bits = 0;
  for (std::uint32_t i = 0; i < sizeof(equal); ++i) bits |= std::uint64_t{equal[i] & 1U} << i;
  return bits;
#endif
}

bool IsMarker(std::uint8_t byte, std::uint8_t key) { return byte == (kRecordMarker ^ key); }

// Whether the marker at `bytes` begins a valid header, each byte of it XORed with `key`. The sum of
// 18 bytes has the key in it 18 times, which is not at all.
bool IsHeader(const std::uint8_t* bytes, std::uint8_t key) {
  const std::uint64_t sum = Memory::GetLittleEndian<std::uint64_t>(bytes + 12) ^
                            Memory::GetLittleEndian<std::uint64_t>(bytes + 4) ^
                            Memory::GetLittleEndian<std::uint16_t>(bytes + 2);
  return wide::Fold(sum) == (bytes[1] ^ key);
}

}  // namespace

ScanPattern::ScanPattern(std::uint8_t key) : key_(key) {
  std::uint8_t block[kScanBlockSize];
  std::memset(block, kRecordMarker, sizeof(block));
  std::memset(block, kRecordMarker ^ key, kRecordHeaderSize);
  first_ = LoadBytes(block);
  second_ = LoadBytes(block + 16);
  rest_ = LoadBytes(block + 32);
}

std::uint32_t ScanPattern::FirstMarker(const std::uint8_t* block) const {
  const std::uint64_t markers = EqualBytes(LoadBytes(block), first_) |
                                EqualBytes(LoadBytes(block + 16), second_) << 16 |
                                EqualBytes(LoadBytes(block + 32), rest_) << 32 |
                                EqualBytes(LoadBytes(block + kLastVector), rest_) << kLastVector;
  return markers == 0 ? kScanBlockSize : static_cast<std::uint32_t>(std::countr_zero(markers));
}

bool ScanPattern::Find(std::span<const std::uint8_t> bytes, std::uint32_t& at) const {
  while (bytes.size() - at >= kScanBlockSize) {
    const std::uint8_t* const block = bytes.data() + at;
    // Looked at first for the sake of bytes that are full of markers.
    const std::uint32_t marker = IsMarker(block[0], key_) ? 0 : FirstMarker(block);
    if (marker == kScanBlockSize) {
      at += kScanBlockSize;
      continue;
    }
    // The first plain marker behind scrambled bytes is no header. It has a branch of its own, which
    // the processor foresees where all bytes are markers.
    if (marker == kRecordHeaderSize && key_ != 0) {
      at += kRecordHeaderSize + 1;
      continue;
    }
    if (bytes.size() - at < marker + kRecordHeaderSize) return false;
    at += marker;
    if (IsMarker(bytes[at], key_) && IsHeader(bytes.data() + at, key_)) return true;
    ++at;
  }
  return false;
}

}  // namespace kestrav
