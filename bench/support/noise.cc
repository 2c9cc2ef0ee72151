#include "support/noise.h"

#include <cstring>

#include "baseline/record.h"

namespace kestrav::bench {

Bytes RandomBytes(std::size_t size) {
  std::uint64_t state = 0x4B657374;  // the seed of a splitmix generator
  Bytes bytes((size + 7) / 8 * 8);
  for (std::size_t i = 0; i < bytes.size(); i += 8) {
    std::uint64_t word = state += 0x9E3779B97F4A7C15;
    word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
    word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
    word ^= word >> 31;
    std::memcpy(bytes.data() + i, &word, sizeof(word));
  }
  bytes.resize(size);
  return bytes;
}

void SpoilHeaders(Bytes& bytes, std::uint8_t header_key) {
  constexpr std::size_t kChecked = baseline::kRecordHeaderSize - 2;
  const auto marker = static_cast<std::uint8_t>(baseline::kMarker ^ header_key);
  if (bytes.size() < baseline::kRecordHeaderSize) return;
  // From the end: a changed byte is part of what is looked at later.
  for (std::size_t i = bytes.size() - baseline::kRecordHeaderSize + 1; i-- > 0;) {
    if (bytes[i] != marker) continue;
    // The key does not change the checksum of an even number of bytes.
    const auto checksum = static_cast<std::uint8_t>(bytes[i + 1] ^ header_key);
    if (checksum == baseline::Checksum(&bytes[i + 2], kChecked)) bytes[i] ^= 0x80;
  }
}

}  // namespace kestrav::bench
