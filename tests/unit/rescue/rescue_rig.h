#ifndef KESTRAV_TESTS_UNIT_RESCUE_RESCUE_RIG_H_
#define KESTRAV_TESTS_UNIT_RESCUE_RESCUE_RIG_H_

#include <cstddef>
#include <string>
#include <vector>

#include "kestrav/rescue/recovery.h"
#include "support/log_builder.h"
#include "support/parsed_log.h"
#include "support/streams.h"

namespace kestrav::test {

struct Keys {
  std::uint8_t header;
  std::uint8_t data;
};

inline constexpr Keys kPlain = {0, 0};
inline constexpr Keys kScrambled = {0x2A, 0x51};

// A recovery, and what it wrote, read by the strictest reading.
struct Recovered {
  RecoveryResult result;
  RecoveryReport report;
  Bytes bytes;
  ParsedLog log;

  // The payloads of all records but the dictionaries.
  std::vector<std::string> Payloads() const;
};

Recovered Recover(const Bytes& log);

// The payload of the record `n` of a sample: n in words, of odd and even sizes.
std::string SamplePayload(std::size_t n);
// The payloads of the records `first` to `last` of a sample.
std::vector<std::string> SamplePayloads(std::size_t first, std::size_t last);
// A dictionary of two clients and `records` records behind it, one every 10 ms from 1000 ms on.
LogBuilder SampleLog(Keys keys, std::size_t records);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_RESCUE_RESCUE_RIG_H_
