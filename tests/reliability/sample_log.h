#ifndef KESTRAV_TESTS_RELIABILITY_SAMPLE_LOG_H_
#define KESTRAV_TESTS_RELIABILITY_SAMPLE_LOG_H_

#include <cstdint>
#include <ostream>
#include <vector>

#include "support/log_builder.h"
#include "support/said.h"
#include "support/streams.h"

namespace kestrav::test {

constexpr std::uint32_t kStreamHeaderBytes = 128;
constexpr std::uint32_t kRecordHeaderBytes = 20;
constexpr std::uint16_t kRecorderId = 12;
constexpr std::uint16_t kDictionaryId = 1200;

struct LogKeys {
  std::uint8_t header = 0;
  std::uint8_t data = 0;
  friend std::ostream& operator<<(std::ostream& out, const LogKeys& keys) {
    return out << "keys " << int{keys.header} << ' ' << int{keys.data};
  }
};

// A healthy log and what it says.
struct SampleLog {
  struct Record {
    Said said;
    std::uint32_t offset = 0;
    std::uint32_t end = 0;
  };
  Bytes bytes;
  std::vector<Record> records;

  // The record that the byte at `offset` belongs to; not for the stream header.
  std::size_t RecordAt(std::uint32_t offset) const;
};

// Writes records one after the other.
class SampleLogWriter {
 public:
  explicit SampleLogWriter(LogKeys keys, std::uint32_t start_clock = 0);

  void Add(const Said& said);
  // The next record takes this index, as in a log that is no recorder's.
  void NextIndex(std::uint32_t index) { builder_.NextIndex(index); }
  // The log as it is so far.
  Bytes Content() const { return builder_.Build(); }
  SampleLog Finish();

 private:
  LogBuilder builder_;
  SampleLog log_;
  const std::uint32_t start_clock_;
};

enum class Markers : std::uint8_t {
  kNone,  // the payloads hold no marker, so nothing in them passes for a header of a plain log
  kMany,  // by chance, and some payloads of nothing else
};

// 600 records: starts with a dictionary and repeats it; five clients; payloads of 1 to 600 bytes,
// most of them short, of random bytes or of text. No two records say the same.
// The same seed, the same log.
SampleLog MakeSampleLog(LogKeys keys, std::uint32_t seed, Markers markers = Markers::kMany);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_SAMPLE_LOG_H_
