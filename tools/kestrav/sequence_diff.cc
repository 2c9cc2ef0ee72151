#include "sequence_diff.h"

#include <algorithm>
#include <cstdlib>

namespace kestrav::tool {
namespace {

using Records = std::vector<RecordTrace>;

// Pairs records with one payload: as many as can be in the order of both sequences and, of the ways
// to do that, the one that moves them least.
class Alignment {
 public:
  Alignment(const Records& a, const Records& b)
      : a_(a), b_(b), width_(b.size() + 1), scores_((a.size() + 1) * width_) {
    for (std::size_t i = 1; i <= a.size(); ++i) {
      for (std::size_t j = 1; j <= b.size(); ++j) At(i, j) = Best(i, j);
    }
    MarkPairs();
  }

  bool IsPaired(SequenceDiff::Side side, std::size_t at) const { return paired_[side][at]; }

 private:
  std::int64_t& At(std::size_t i, std::size_t j) { return scores_[i * width_ + j]; }

  // A pair is worth more than all the time of a window.
  std::int64_t WithPair(std::size_t i, std::size_t j) {
    constexpr std::int64_t kPair = std::int64_t{1} << 48;
    constexpr std::int64_t kLongest = std::int64_t{1} << 32;
    const std::int64_t moved = std::abs(b_[j - 1].at_ms - a_[i - 1].at_ms);
    return At(i - 1, j - 1) + kPair - std::min(moved, kLongest);
  }
  bool IsSame(std::size_t i, std::size_t j) const { return a_[i - 1].hash == b_[j - 1].hash; }

  std::int64_t Best(std::size_t i, std::size_t j) {
    const std::int64_t without = std::max(At(i - 1, j), At(i, j - 1));
    return IsSame(i, j) ? std::max(without, WithPair(i, j)) : without;
  }

  void MarkPairs() {
    paired_[SequenceDiff::kA].resize(a_.size());
    paired_[SequenceDiff::kB].resize(b_.size());
    std::size_t i = a_.size();
    std::size_t j = b_.size();
    while (i > 0 && j > 0) {
      if (IsSame(i, j) && At(i, j) == WithPair(i, j)) {
        paired_[SequenceDiff::kA][--i] = true;
        paired_[SequenceDiff::kB][--j] = true;
      } else if (At(i, j) == At(i - 1, j)) {
        --i;
      } else {
        --j;
      }
    }
  }

  const Records& a_;
  const Records& b_;
  const std::size_t width_;
  std::vector<std::int64_t> scores_;
  std::array<std::vector<bool>, 2> paired_;
};

}  // namespace

void SequenceDiff::Add(Side side, const RecordTrace& record, DifferenceSink& sink) {
  Records& other = pending_[side == kA ? kB : kA];
  for (std::size_t at = other.size(); at > 0 && other[at - 1].at_ms >= record.at_ms; --at) {
    const RecordTrace& candidate = other[at - 1];
    if (candidate.at_ms != record.at_ms || candidate.hash != record.hash) continue;
    other.erase(other.begin() + static_cast<std::ptrdiff_t>(at - 1));
    sink.OnSame();
    return;
  }
  pending_[side].push_back(record);
  if (Pending() > kWindow) Decide(kWindow / 2, sink);
}

void SequenceDiff::Flush(DifferenceSink& sink) { Decide(Pending(), sink); }

std::size_t SequenceDiff::TakeMovedAlike(std::size_t count, DifferenceSink& sink) {
  const Records& a = pending_[kA];
  const Records& b = pending_[kB];
  std::size_t taken = 0;
  while (last_move_ms_ != 0 && taken < std::min({a.size(), b.size(), count}) &&
         a[taken].hash == b[taken].hash && b[taken].at_ms - a[taken].at_ms == last_move_ms_) {
    sink.OnDifference({DifferenceKind::kMoved, a[taken], b[taken]});
    ++taken;
  }
  for (Records& records : pending_) {
    records.erase(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(taken));
  }
  return 2 * taken;
}

void SequenceDiff::Decide(std::size_t count, DifferenceSink& sink) {
  const std::size_t taken = TakeMovedAlike(count, sink);
  if (taken >= count) return;
  Records& a = pending_[kA];
  Records& b = pending_[kB];
  const Alignment alignment(a, b);
  std::size_t i = 0;
  std::size_t j = 0;
  while (taken + i + j < count && (i < a.size() || j < b.size())) {
    const bool a_alone = i < a.size() && !alignment.IsPaired(kA, i);
    const bool b_alone = j < b.size() && !alignment.IsPaired(kB, j);
    if (a_alone && b_alone && a[i].at_ms == b[j].at_ms) {
      sink.OnDifference({DifferenceKind::kChanged, a[i++], b[j++]});
    } else if (a_alone && (!b_alone || a[i].at_ms < b[j].at_ms)) {
      sink.OnDifference({DifferenceKind::kOnlyInA, a[i++], {}});
    } else if (b_alone) {
      sink.OnDifference({DifferenceKind::kOnlyInB, {}, b[j++]});
    } else {
      last_move_ms_ = b[j].at_ms - a[i].at_ms;
      sink.OnDifference({DifferenceKind::kMoved, a[i++], b[j++]});
    }
  }
  a.erase(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(i));
  b.erase(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(j));
}

}  // namespace kestrav::tool
