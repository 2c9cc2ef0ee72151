#ifndef KESTRAV_TOOLS_DAMAGE_H_
#define KESTRAV_TOOLS_DAMAGE_H_

#include <cstdint>
#include <string>

#include "log_file.h"
#include "log_walk.h"

namespace kestrav::tool {

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

// Counts the damage that a walk from the start of a log comes across.
class DamageCounter {
 public:
  // Behind each record: what was lost in front of it counts, or is of no interest.
  void CountRecord(const LogWalk& walk);
  void PassRecord(const LogWalk& walk);
  // Behind the last one.
  void CountEnd(const LogFile& log, const LogWalk& walk);

  const Damage& Found() const { return damage_; }
  // Of the record that is due.
  std::uint64_t ExpectedIndex() const { return expected_index_; }

 private:
  Damage damage_;
  std::uint64_t expected_index_ = 0;
};

// What was lost, as the rest of a line; empty when nothing was.
std::string DamageText(const Damage& damage);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_DAMAGE_H_
