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

void CountDamage(Damage& damage, const LogWalk& walk, std::uint64_t expected_index) {
  damage.skipped_bytes += walk.SkippedBytes();
  damage.places += walk.SkippedBytes() > 0 ? 1 : 0;
  const std::uint64_t index = walk.Header().record_index;
  if (index > expected_index) damage.missing_records += index - expected_index;
  if (index < expected_index) ++damage.misplaced_records;
}

double ClientStatistics::RecordsPerSecond() const {
  const std::uint32_t ms = last_time_stamp - first_time_stamp;
  if (records < 2 || ms == 0) return 0;
  return 1000.0 * static_cast<double>(records - 1) / ms;
}

void CountEnd(Damage& damage, const LogFile& log, const LogWalk& walk) {
  damage.trailing_bytes = log.Size() - walk.End();
  const std::uint64_t stated_size = log.Header().stream_length;
  if (stated_size > log.Size()) damage.cut_bytes = stated_size - log.Size();
}

std::string LossText(const Damage& damage) {
  std::string text;
  const auto say = [&](std::uint64_t count, const std::string& what) {
    if (count > 0) text += (text.empty() ? "" : ", ") + what;
  };
  say(damage.skipped_bytes, Counted(damage.skipped_bytes, "byte", "bytes") + " skipped in " +
                                Counted(damage.places, "place", "places"));
  say(damage.missing_records, Counted(damage.missing_records, "record", "records") + " missing");
  say(damage.misplaced_records,
      Counted(damage.misplaced_records, "record", "records") + " out of order");
  say(damage.trailing_bytes,
      Counted(damage.trailing_bytes, "byte", "bytes") + " behind the last record");
  say(damage.cut_bytes, Counted(damage.cut_bytes, "byte", "bytes") + " cut off at the end");
  return text;
}

ScanResult Scan(LogFile& log) {
  constexpr std::uint64_t kRecordsBetweenLooks = 1024;
  ScanResult result;
  LogWalk walk(log.Decoder());
  Progress progress;
  std::uint64_t expected_index = 0;
  while (walk.Next() == kSuccess) {
    const BinaryLogRecordHeader& header = walk.Header();
    CountDamage(result.damage, walk, expected_index);
    expected_index = std::uint64_t{header.record_index} + 1;
    CountRecord(result.clients[header.client_id], header);
    if (result.names.IsEmpty()) {
      ReadNames(header.client_id, header.data_id, walk.Payload(), result.names);
    }
    ++result.records;
    if (result.records % kRecordsBetweenLooks == 0 && progress.IsDue()) {
      progress.Show(Counted(result.records, "record", "records") + ", " +
                    std::to_string(100 * std::uint64_t{walk.End()} / log.Size()) + " %");
    }
  }
  log.CheckReads();
  CountEnd(result.damage, log, walk);
  return result;
}

}  // namespace kestrav::tool
