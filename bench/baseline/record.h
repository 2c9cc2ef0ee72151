#ifndef KESTRAV_BENCH_BASELINE_RECORD_H_
#define KESTRAV_BENCH_BASELINE_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <vector>

// The log format written and read in the most obvious way, a byte at a time. docs/log-format.md
// describes the bytes.

namespace kestrav::baseline {

inline constexpr std::size_t kStreamHeaderSize = 128;
inline constexpr std::size_t kRecordHeaderSize = 20;
inline constexpr std::uint8_t kMarker = 0x4C;

struct Message {
  std::uint16_t client_id = 0;
  std::uint16_t data_id = 0;
  std::uint32_t time_stamp = 0;
  std::vector<std::uint8_t> payload;
};

struct StreamHeader {
  std::uint32_t start_time = 1;
  std::uint16_t selection = 0;
  std::uint8_t header_key = 0;  // 0: not scrambled
  std::uint8_t data_key = 0;
  std::uint32_t duration_ms = 0;
  std::uint32_t length = 0;
  std::uint32_t start_clock = 0;
};

struct RecordHeader {
  std::uint8_t marker = kMarker;
  std::uint8_t header_checksum = 0;
  std::uint8_t payload_checksum = 0;
  std::uint32_t index = 0;
  std::uint16_t client_id = 0;
  std::uint16_t data_id = 0;
  std::uint32_t time_stamp = 0;
  std::uint32_t payload_size = 0;
};

std::uint8_t Checksum(const std::uint8_t* data, std::size_t size);
// Scrambles or unscrambles bytes of record `index`; a key of 0 changes nothing.
void Scramble(std::uint8_t* data, std::size_t size, std::uint8_t stream_key, std::uint32_t index);

std::vector<std::uint8_t> Serialize(const StreamHeader& header);
// false: not the header of a log.
bool Parse(const std::uint8_t* bytes, StreamHeader& header);
// Appends the 20 bytes, checksum included.
void Serialize(const RecordHeader& header, std::vector<std::uint8_t>& out);
// false: the marker or the checksum is wrong.
bool Parse(const std::uint8_t* bytes, RecordHeader& header);

}  // namespace kestrav::baseline

#endif  // KESTRAV_BENCH_BASELINE_RECORD_H_
