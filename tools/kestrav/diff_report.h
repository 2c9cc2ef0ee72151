#ifndef KESTRAV_TOOLS_DIFF_REPORT_H_
#define KESTRAV_TOOLS_DIFF_REPORT_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sequence_diff.h"

namespace kestrav::tool {

// How many records of a kind, or of all, are alike and how many differ.
struct DiffCounts {
  std::uint64_t same = 0;
  std::uint64_t only_in_a = 0;
  std::uint64_t only_in_b = 0;
  std::uint64_t changed = 0;
  std::uint64_t moved = 0;
  std::int64_t largest_move_ms = 0;  // positive: B's record is later
  std::int64_t sum_of_moves_ms = 0;

  std::uint64_t Differences() const { return only_in_a + only_in_b + changed + moved; }
  double MeanMoveMs() const {
    return moved == 0 ? 0 : static_cast<double>(sum_of_moves_ms) / static_cast<double>(moved);
  }
};

// The records of one client with one data id.
struct RecordKind {
  std::string client;  // its name; of a client without one the id
  bool is_named = false;
  std::uint16_t data_id = 0;
  DiffCounts counts;
  SequenceDiff diff;
};

struct DiffSide {
  std::string path;
  std::uint64_t records = 0;  // that were compared
};

// Collects what two logs differ in, and tells it.
class DiffReport {
 public:
  // Differences beyond `most_listed` are only counted.
  explicit DiffReport(std::size_t most_listed) : most_listed_(most_listed) {}

  void AddSame(RecordKind& kind);
  void Add(RecordKind& kind, const Difference& difference);

  bool IsSame() const { return total_.Differences() == 0; }
  // What is listed comes by time from now on.
  void SortList();
  std::string Text(const DiffSide& a, const DiffSide& b,
                   const std::vector<const RecordKind*>& kinds) const;
  std::string JsonText(const DiffSide& a, const DiffSide& b,
                       const std::vector<const RecordKind*>& kinds) const;

 private:
  const std::size_t most_listed_;
  DiffCounts total_;
  std::vector<std::pair<const RecordKind*, Difference>> listed_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_DIFF_REPORT_H_
