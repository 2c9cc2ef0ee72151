#ifndef KESTRAV_TOOLS_REPORT_DATA_H_
#define KESTRAV_TOOLS_REPORT_DATA_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "damage.h"
#include "log_file.h"
#include "log_walk.h"
#include "report_lane.h"
#include "scan.h"

namespace kestrav::tool {

// Something at a place of the log that people want to see.
struct Mark {
  enum class Kind { kDamage, kMissing, kMisplaced, kBack, kAhead, kTail };

  Kind kind = Kind::kDamage;
  std::int64_t at_ms = 0;    // since the start of the log
  std::int64_t amount = 0;   // bytes skipped, records missing, milliseconds jumped
  std::uint32_t index = 0;   // of the record behind it
  std::uint32_t offset = 0;  // in the file
};

// Counts a log's 32-bit time stamps on beyond their wrap, from 0 at the start of the log.
class LogTime {
 public:
  explicit LogTime(std::uint32_t start_clock) : last_(start_clock) {}

  // Milliseconds since the start of the log; negative before it. Two records are taken to be less
  // than half a round of the clock apart, 24 days.
  std::int64_t Next(std::uint32_t time_stamp) {
    at_ms_ += static_cast<std::int32_t>(time_stamp - last_);
    last_ = time_stamp;
    return at_ms_;
  }
  std::int64_t Now() const { return at_ms_; }

 private:
  std::int64_t at_ms_ = 0;
  std::uint32_t last_;
};

// What the report tells of a log, gathered in one walk and in memory that does not grow with it.
class ReportData {
 public:
  static constexpr std::size_t kMostLanes = 64;
  static constexpr std::size_t kMostMarks = 500;

  explicit ReportData(std::uint32_t start_clock) : time_(start_clock) {}

  // Looks at the record that `walk` stands on; returns its time since the start of the log.
  std::int64_t Look(const LogWalk& walk);
  // Counts that record: it is one of those that are asked for.
  void Count(const LogWalk& walk, std::int64_t at_ms);
  // The page does not hold the record at this time, but counts it alone.
  void LeaveOut(std::int64_t at_ms);
  // The walk is over. What is asked for ends at `to_scnds` of the log, which may be beyond its end.
  void End(const LogFile& log, const LogWalk& walk, double to_scnds);

  std::uint64_t AllRecords() const { return all_records_; }
  std::uint64_t Records() const { return records_; }  // that were counted
  std::int64_t EndMs() const { return end_ms_; }
  // The earliest of those that were left out, which need not be the first one of them.
  std::optional<std::int64_t> FirstLeftOutMs() const { return first_left_out_ms_; }
  unsigned Shift() const { return shift_; }  // of all buckets
  // The first clients; those beyond share one lane.
  const std::map<std::uint16_t, std::unique_ptr<Lane>>& Lanes() const { return lanes_; }
  const Lane& OtherClients() const { return others_; }
  const Damage& GetDamage() const { return damage_.Found(); }
  const std::vector<Mark>& Marks() const { return marks_; }  // the first ones
  const Buckets& AllMarks() const { return mark_buckets_; }
  std::uint64_t MarkCount() const { return mark_count_; }

 private:
  void AddMark(const Mark& mark);
  void Reach(std::int64_t at_ms);
  Lane& LaneOf(std::uint16_t client_id);

  LogTime time_;
  std::uint64_t all_records_ = 0;
  std::uint64_t records_ = 0;
  std::int64_t end_ms_ = 0;
  std::optional<std::int64_t> first_left_out_ms_;
  unsigned shift_ = 0;
  std::map<std::uint16_t, std::unique_ptr<Lane>> lanes_;
  Lane others_;
  Lane* last_lane_ = nullptr;
  std::uint16_t last_client_ = kNoId;
  DamageCounter damage_;
  std::vector<Mark> marks_;
  Buckets mark_buckets_;
  std::uint64_t mark_count_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_REPORT_DATA_H_
