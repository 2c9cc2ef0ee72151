#ifndef KESTRAV_TOOLS_SCAN_H_
#define KESTRAV_TOOLS_SCAN_H_

#include <cstdint>
#include <map>
#include <string>

#include "log_file.h"
#include "log_walk.h"

namespace kestrav::tool {

struct ClientStatistics {
  std::uint64_t records = 0;
  std::uint64_t bytes = 0;  // of payload
  std::uint32_t first_time_stamp = 0;
  std::uint32_t last_time_stamp = 0;
  std::uint32_t longest_gap_ms = 0;

  // Between the first and the last record; 0 when they have the same time.
  double RecordsPerSecond() const;
};

struct Damage {
  std::uint64_t places = 0;             // where bytes between two records had to be skipped
  std::uint64_t skipped_bytes = 0;      // in those places
  std::uint64_t missing_records = 0;    // indices that are left out between two records
  std::uint64_t misplaced_records = 0;  // whose index is not above that of the record before
  std::uint64_t trailing_bytes = 0;     // behind the last record, up to the end of the file
  std::uint64_t cut_bytes = 0;          // that the header counts and the file does not hold

  bool IsNone() const {
    return skipped_bytes + missing_records + misplaced_records + trailing_bytes + cut_bytes == 0;
  }
};

struct ScanResult {
  std::uint64_t records = 0;
  std::map<std::uint16_t, ClientStatistics> clients;
  ClientNames names;  // from the first dictionary there is
  Damage damage;
};

// The steps of a scan, for walks that do more than that.
void CountRecord(ClientStatistics& client, const BinaryLogRecordHeader& header);
// Compares the record that `walk` stands on with the index that is due.
void CountDamage(Damage& damage, const LogWalk& walk, std::uint64_t expected_index);
// What is lost at the end; the walk is over.
void CountEnd(Damage& damage, const LogFile& log, const LogWalk& walk);

// "12 bytes skipped in 1 place, 1 record missing"; empty when nothing is lost.
std::string LossText(const Damage& damage);

// Walks all records of `log`. Throws `Failure` when the file cannot be read.
ScanResult Scan(LogFile& log);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_SCAN_H_
