#ifndef KESTRAV_TESTS_SUPPORT_PARSED_LOG_H_
#define KESTRAV_TESTS_SUPPORT_PARSED_LOG_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/streams.h"

namespace kestrav::test {

struct ParsedRecord {
  std::uint16_t client_id = 0;
  std::uint16_t data_id = 0;
  std::uint32_t time_ms = 0;
  std::string payload;

  friend bool operator==(const ParsedRecord&, const ParsedRecord&) = default;
};

// A log read without the library's decoder, by the strictest reading: every byte must belong to the
// header or to a whole record, records are numbered without a gap, and all checksums hold.
struct ParsedLog {
  std::string error;  // what is wrong, and nothing behind it was read; empty: nothing is

  std::uint32_t start_time = 0;
  std::uint16_t selection = 0;
  std::uint8_t header_key = 0;
  std::uint8_t data_key = 0;
  std::uint32_t duration_ms = 0;
  std::uint32_t stream_length = 0;
  std::uint32_t clock_rate = 0;
  std::uint32_t start_clock = 0;
  std::vector<ParsedRecord> records;

  // The payloads of a client's records, in the order of the log.
  std::vector<std::string> PayloadsOf(std::uint16_t client_id) const;
};

ParsedLog ParseLog(const Bytes& bytes);

// The payload of the dictionary record of these ASCII string ids.
std::string DictionaryPayload(const std::map<std::string, int>& entries);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_PARSED_LOG_H_
