#ifndef KESTRAV_FUZZ_LOG_DRAFT_H_
#define KESTRAV_FUZZ_LOG_DRAFT_H_

#include <array>
#include <cstdint>
#include <vector>

#include "fuzz/support.h"

namespace kestrav::fuzz {

// A record with its bytes plain.
struct DraftRecord {
  std::array<std::uint8_t, 20> header{};
  Bytes payload;

  std::uint32_t Index() const { return LittleEndian32(header.data() + 4); }
  void Put(std::size_t at, std::uint32_t value, std::size_t size);
  // Marker, size and both checksums as they belong to what the record holds now.
  void Seal();
  // The header checksum alone, so that the record may lie about the rest.
  void SealHeader();
};

// A log taken apart, so that it can be changed and put together again as a log.
struct LogDraft {
  explicit LogDraft(Input log);

  std::uint8_t& HeaderKey() { return header[10]; }
  std::uint8_t& DataKey() { return header[11]; }
  Bytes Joined() const;
  // Numbers the records from 0 on.
  void NumberAnew();

  std::array<std::uint8_t, 128> header{};
  std::vector<DraftRecord> records;
  Bytes tail;  // what follows the last record that could be told
};

}  // namespace kestrav::fuzz

#endif  // KESTRAV_FUZZ_LOG_DRAFT_H_
