#include "kestrav/rescue/run_choice.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "kestrav/format/stream_header.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/rescue/chain_walk.h"

namespace kestrav::rescue {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// The chain with the most records that can stand in front of a run: of all runs that end by its
// begin and whose indices are below its own. A tree of maxima over the indices.
class Heaviest {
 public:
  // Throws when memory is short.
  explicit Heaviest(const std::vector<Judged>& judged)
      : weights_(judged.size()), before_(judged.size(), kNone), by_end_(judged.size()) {
    for (const Judged& one : judged) ends_.push_back(one.run.next_index);
    std::sort(ends_.begin(), ends_.end());
    ends_.erase(std::unique(ends_.begin(), ends_.end()), ends_.end());
    tree_.assign(ends_.size() + 1, kNone);
    std::iota(by_end_.begin(), by_end_.end(), 0);
    std::sort(by_end_.begin(), by_end_.end(), [&](std::uint32_t a, std::uint32_t b) {
      return judged[a].run.end < judged[b].run.end;
    });
  }

  // The last run of the heaviest chain; `Before` leads to the first.
  std::uint32_t Find(const std::vector<Judged>& judged) {
    std::size_t entered = 0;
    std::uint32_t heaviest = kNone;
    for (std::uint32_t i = 0; i < judged.size(); ++i) {
      const Run& run = judged[i].run;
      while (judged[by_end_[entered]].run.end <= run.begin) Enter(judged, by_end_[entered++]);
      before_[i] = Best(run.index);
      weights_[i] = Weight(run) + (before_[i] == kNone ? 0 : weights_[before_[i]]);
      if (heaviest == kNone || weights_[i] > weights_[heaviest]) heaviest = i;
    }
    return heaviest;
  }

  std::uint32_t Before(std::uint32_t run) const { return before_[run]; }

 private:
  // What begins where a log begins is this log. A log inside a payload counts when there is nothing
  // else.
  static std::uint64_t Weight(const Run& run) {
    constexpr std::uint64_t kCertain = std::uint64_t{1} << 40;
    if (run.begin == kStreamHeaderSize && run.index == 0) return kCertain + run.records;
    return run.embedded ? 1 : run.records;
  }

  void Enter(const std::vector<Judged>& judged, std::uint32_t run) {
    const auto rank = std::lower_bound(ends_.begin(), ends_.end(), judged[run].run.next_index);
    for (auto slot = static_cast<std::size_t>(rank - ends_.begin()) + 1; slot < tree_.size();
         slot += slot & (~slot + 1)) {
      if (tree_[slot] == kNone || weights_[run] > weights_[tree_[slot]]) tree_[slot] = run;
    }
  }

  // Of the runs entered whose indices are all below `index`.
  std::uint32_t Best(std::uint32_t index) const {
    const auto rank = std::upper_bound(ends_.begin(), ends_.end(), index);
    std::uint32_t best = kNone;
    for (auto slot = static_cast<std::size_t>(rank - ends_.begin()); slot > 0;
         slot -= slot & (~slot + 1)) {
      const std::uint32_t run = tree_[slot];
      if (run != kNone && (best == kNone || weights_[run] > weights_[best])) best = run;
    }
    return best;
  }

  std::vector<std::uint64_t> weights_;  // of the heaviest chain up to each run
  std::vector<std::uint32_t> before_;
  std::vector<std::uint32_t> by_end_;
  std::vector<std::uint32_t> ends_;  // all values of next_index, ascending
  std::vector<std::uint32_t> tree_;  // slot n: the heaviest of the ranks that it stands for
};

// The first run from `from` on that was taken; null: there is none.
const Run* NextTaken(const std::vector<Judged>& judged, std::size_t from) {
  for (; from < judged.size(); ++from) {
    if (judged[from].taken) return &judged[from].run;
  }
  return nullptr;
}

bool IsLater(std::uint32_t time, std::uint32_t than) {
  return static_cast<std::int32_t>(time - than) >= 0;
}

// Whether the bytes between two runs are accounted for by the indices between them.
bool IsExplained(std::uint32_t bytes, std::uint32_t missing) { return bytes == 0 || missing > 0; }

}  // namespace

bool RunChoice::Choose(const std::vector<Run>& runs, std::vector<Judged>& judged) {
  if (!SplitCopies(runs, judged) || !TakeHeaviest(judged)) return false;
  DropWeak(judged);
  return NameDoubts(judged);
}

bool RunChoice::SplitCopies(const std::vector<Run>& runs, std::vector<Judged>& judged) const {
  const Run* earlier = nullptr;
  for (const Run& found : runs) {
    Run run = found;
    Run copies;
    if (earlier != nullptr && Split(*earlier, run, copies) &&
        !Memory::Append(judged, Judged{copies})) {
      return false;
    }
    if (!Memory::Append(judged, Judged{run})) return false;
    if (found.records > 1) earlier = &found;
  }
  return true;
}

bool RunChoice::Split(const Run& earlier, Run& run, Run& copies) const {
  if (run.begin < earlier.end || run.index < earlier.index || run.index >= earlier.next_index ||
      run.next_index <= earlier.next_index) {
    return false;
  }
  ChainWalk original(log_, earlier.begin, earlier.index);
  while (original.Next() != ChainWalk::Step::kEnd && original.Index() < run.index) {
  }
  if (original.Index() != run.index ||
      std::memcmp(log_.At(original.Offset()), log_.At(run.begin), kRecordHeaderSize) != 0) {
    return false;
  }
  copies = run;
  copies.records = 0;
  ChainWalk walk(log_, run.begin, run.index);
  ChainWalk::Step step;
  while ((step = walk.Next()) != ChainWalk::Step::kEnd) {
    if (step != ChainWalk::Step::kRecord) continue;
    if (walk.Index() >= earlier.next_index) break;
    ++copies.records;
    copies.end = walk.End();
    copies.next_index = walk.Index() + 1;
    copies.last_time = walk.Header().time_stamp;
  }
  run.begin = walk.Offset();
  run.index = walk.Index();
  run.first_time = walk.Header().time_stamp;
  run.records -= copies.records;
  run.continues = true;
  return true;
}

bool RunChoice::TakeHeaviest(std::vector<Judged>& judged) const {
  if (judged.empty()) return true;
  return Memory::Try([&] {
    Heaviest heaviest(judged);
    for (std::uint32_t i = heaviest.Find(judged); i != kNone; i = heaviest.Before(i)) {
      judged[i].taken = true;
    }
  });
}

// Against the nearest runs that are taken so far.
void RunChoice::DropWeak(std::vector<Judged>& judged) {
  std::uint32_t longest = 0;
  for (const Judged& one : judged) {
    if (one.taken) longest = std::max(longest, one.run.records);
  }
  const auto is_sure = [&](const Run& run) {
    return run.records >= std::min(longest, kLongRun) || run.continues;
  };
  for (const Judged& one : judged) {
    if (one.taken && is_sure(one.run)) KnowIds(one.run);
  }
  const Run* before = nullptr;
  for (std::size_t i = 0; i < judged.size(); ++i) {
    Judged& one = judged[i];
    if (!one.taken) continue;
    if (!is_sure(one.run) && !IsPlausible(before, one.run, NextTaken(judged, i + 1))) {
      one.taken = false;
      one.doubt = Doubt::kWeakEvidence;
      continue;
    }
    before = &one.run;
  }
}

bool RunChoice::IsPlausible(const Run* before, const Run& run, const Run* behind) const {
  const std::uint32_t from = before == nullptr ? kStreamHeaderSize : before->end;
  const std::uint32_t index = before == nullptr ? 0 : before->next_index;
  if (run.begin < from || !IsExplained(run.begin - from, run.index - index)) return false;
  if (before != nullptr && !IsLater(run.first_time, before->last_time)) return false;
  if (behind == nullptr) return HasKnownIds(run);
  return IsExplained(behind->begin - run.end, behind->index - run.next_index) &&
         IsLater(behind->first_time, run.last_time) && HasKnownIds(run);
}

// Those of its further records are known from the search.
void RunChoice::KnowIds(const Run& run) {
  ChainWalk walk(log_, run.begin, run.index);
  ChainWalk::Step step;
  for (std::uint32_t records = 0; records < kLongRun; ++records) {
    while ((step = walk.Next()) != ChainWalk::Step::kRecord && step != ChainWalk::Step::kEnd) {
    }
    if (step == ChainWalk::Step::kEnd || walk.Offset() >= run.end) return;
    known_ids_[walk.Header().client_id] = true;
  }
}

bool RunChoice::HasKnownIds(const Run& run) const {
  ChainWalk walk(log_, run.begin, run.index);
  ChainWalk::Step step;
  while ((step = walk.Next()) != ChainWalk::Step::kEnd && walk.Offset() < run.end) {
    if (step == ChainWalk::Step::kRecord && !known_ids_[walk.Header().client_id]) return false;
  }
  return true;
}

bool RunChoice::NameDoubts(std::vector<Judged>& judged) const {
  std::vector<const Run*> taken;  // ascending by place and by index
  const bool listed = Memory::Try([&] {
    for (const Judged& one : judged) {
      if (one.taken) taken.push_back(&one.run);
    }
  });
  if (!listed) return false;
  for (Judged& one : judged) {
    if (one.taken) continue;
    const auto behind = std::partition_point(
        taken.begin(), taken.end(), [&](const Run* run) { return run->end <= one.run.begin; });
    const auto same = std::partition_point(taken.begin(), taken.end(), [&](const Run* run) {
      return run->next_index <= one.run.index;
    });
    if (behind != taken.end() && (*behind)->begin < one.run.end) {
      one.doubt = Doubt::kOverlap;
    } else if (same != taken.end() && (*same)->index <= one.run.index) {
      one.doubt = Doubt::kDuplicate;
    }
  }
  return true;
}

}  // namespace kestrav::rescue
