#ifndef KESTRAV_TOOLS_SCAN_H_
#define KESTRAV_TOOLS_SCAN_H_

#include <cstdint>
#include <functional>
#include <map>

#include "damage.h"
#include "kestrav/format/record_header.h"
#include "log_file.h"

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

struct ScanResult {
  std::uint64_t records = 0;
  std::map<std::uint16_t, ClientStatistics> clients;
  ClientNames names;  // from the first dictionary there is
  Damage damage;
  ResultCode end = kNotEnoughData;  // what ended the walk
};

// The step of a scan, for walks that do more than that.
void CountRecord(ClientStatistics& client, const BinaryLogRecordHeader& header);

// Walks all records of `log`, and shows `look` each of them where it stands. Throws `Failure` when
// the file cannot be read.
ScanResult Scan(LogFile& log, const std::function<void(const LogWalk&)>& look = {});

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_SCAN_H_
