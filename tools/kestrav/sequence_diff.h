#ifndef KESTRAV_TOOLS_SEQUENCE_DIFF_H_
#define KESTRAV_TOOLS_SEQUENCE_DIFF_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrav::tool {

// What is kept of a record to compare it.
struct RecordTrace {
  std::uint64_t hash = 0;  // of the payload
  std::int64_t at_ms = 0;
  std::uint32_t index = 0;
  std::uint32_t offset = 0;
};

enum class DifferenceKind { kOnlyInA, kOnlyInB, kChanged, kMoved };

// A record of one log, or one of each.
struct Difference {
  DifferenceKind kind = DifferenceKind::kMoved;
  RecordTrace a;
  RecordTrace b;
};

class DifferenceSink {
 public:
  virtual ~DifferenceSink() = default;
  virtual void OnSame() = 0;
  virtual void OnDifference(const Difference& difference) = 0;
};

// Compares two sequences of records, A and B, that come in by the order of their times. Records are
// the same when payload and time are. Of the others, those with one payload have moved, in an order
// that both sequences have and as little as possible; of what then remains, those with one time
// have changed. Looks at `kWindow` records at a time, so a record that moved by more of them stands
// in A alone and in B alone.
class SequenceDiff {
 public:
  enum Side : std::uint8_t { kA, kB };
  static constexpr std::size_t kWindow = 1024;

  void Add(Side side, const RecordTrace& record, DifferenceSink& sink);
  // Decides on all records that came in.
  void Flush(DifferenceSink& sink);

  // Records that are not decided on.
  std::size_t Pending() const { return pending_[kA].size() + pending_[kB].size(); }

 private:
  // Decides on at least so many, the oldest.
  void Decide(std::size_t count, DifferenceSink& sink);
  // Where both sequences go on as they did: no search is needed.
  std::size_t TakeMovedAlike(std::size_t count, DifferenceSink& sink);

  std::array<std::vector<RecordTrace>, 2> pending_;
  std::int64_t last_move_ms_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_SEQUENCE_DIFF_H_
