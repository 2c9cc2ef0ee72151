#include "scan.h"

#include <algorithm>

#include "progress.h"
#include "text.h"

namespace kestrav::tool {

void CountRecord(ClientStatistics& client, const BinaryLogRecordHeader& header) {
  if (client.records == 0) {
    client.first_time_stamp = header.time_stamp;
  } else {
    const auto gap = static_cast<std::int32_t>(header.time_stamp - client.last_time_stamp);
    client.longest_gap_ms =
        std::max(client.longest_gap_ms, static_cast<std::uint32_t>(std::max(gap, 0)));
  }
  client.last_time_stamp = header.time_stamp;
  ++client.records;
  client.bytes += header.payload_size;
}

double ClientStatistics::RecordsPerSecond() const {
  const std::uint32_t ms = last_time_stamp - first_time_stamp;
  if (records < 2 || ms == 0) return 0;
  return 1000.0 * static_cast<double>(records - 1) / ms;
}

ScanResult Scan(LogFile& log, const std::function<void(const LogWalk&)>& look) {
  constexpr std::uint64_t kRecordsBetweenLooks = 1024;
  ScanResult result;
  LogWalk walk(log.Decoder());
  Progress progress;
  DamageCounter damage;
  for (;;) {
    result.end = walk.Next();
    if (result.end != kSuccess) break;
    const BinaryLogRecordHeader& header = walk.Header();
    damage.CountRecord(walk);
    CountRecord(result.clients[header.client_id], header);
    if (result.names.IsEmpty()) {
      ReadNames(header.client_id, header.data_id, walk.Payload(), result.names);
    }
    ++result.records;
    if (look) look(walk);
    if (result.records % kRecordsBetweenLooks == 0 && progress.IsDue()) {
      progress.Show(Counted(result.records, "record", "records") + ", " +
                    std::to_string(100 * std::uint64_t{walk.End()} / log.Size()) + " %");
    }
  }
  log.CheckReads();
  damage.CountEnd(log, walk);
  result.damage = damage.Found();
  return result;
}

}  // namespace kestrav::tool
