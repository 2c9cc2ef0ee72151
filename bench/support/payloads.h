#ifndef KESTRAV_BENCH_SUPPORT_PAYLOADS_H_
#define KESTRAV_BENCH_SUPPORT_PAYLOADS_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "kestrav/format/record_header.h"

namespace kestrav::bench {

inline constexpr std::array<std::uint32_t, 5> kPayloadSizes = {32, 64, 256, 4096, 1 << 20};

// The printable bytes of message `seed`.
inline std::vector<std::uint8_t> Payload(std::uint32_t size, std::uint32_t seed) {
  std::vector<std::uint8_t> bytes(size);
  for (std::uint32_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>('!' + (i * 7 + seed * 13) % 90);
  }
  return bytes;
}

// The records of one size that are written or read in one pass.
struct RecordSet {
  RecordSet(std::uint32_t payload, std::uint64_t total_bytes)
      : payload_size(payload),
        record_size(payload + kRecordHeaderSize),
        records(std::max<std::uint64_t>(1, total_bytes / record_size)) {}

  std::uint64_t Bytes() const { return records * record_size; }
  // How many different messages take turns: with what a message needs besides its payload they fit
  // into a cache of 256 KiB, as those do that a recorder has just been handed.
  std::uint32_t Different() const {
    constexpr std::uint32_t kBesides = 256;
    return std::max<std::uint32_t>(1, (256U << 10) / (payload_size + kBesides));
  }

  std::uint32_t payload_size;
  std::uint32_t record_size;
  std::uint64_t records;
};

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_PAYLOADS_H_
