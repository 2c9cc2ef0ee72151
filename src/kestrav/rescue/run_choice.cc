#include "kestrav/rescue/run_choice.h"

#include <algorithm>
#include <numeric>

#include "kestrav/format/stream_header.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/rescue/chain_walk.h"
#include "kestrav/rescue/copy_split.h"

namespace kestrav::rescue {
namespace {

constexpr int kRounds = 4;
constexpr std::uint32_t kNone = 0xFFFFFFFF;

// What begins where a log begins is this log.
bool IsStart(const Run& run) { return run.begin == kStreamHeaderSize && run.index == 0; }

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
      if (judged[i].rejected) continue;
      before_[i] = Best(run.index);
      weights_[i] = Weight(run) + (before_[i] == kNone ? 0 : weights_[before_[i]]);
      if (heaviest == kNone || weights_[i] > weights_[heaviest]) heaviest = i;
    }
    return heaviest;
  }

  std::uint32_t Before(std::uint32_t run) const { return before_[run]; }

 private:
  static std::uint64_t Weight(const Run& run) {
    constexpr std::uint64_t kCertain = std::uint64_t{1} << 40;
    return run.records + (IsStart(run) ? kCertain : 0);
  }

  void Enter(const std::vector<Judged>& judged, std::uint32_t run) {
    if (judged[run].rejected) return;
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
bool IsExplained(std::uint32_t bytes, std::uint32_t missing) {
  return (bytes > 0) == (missing > 0);
}

// Where a run ends for the one behind it. An unconfirmed record at its end counts unless that one
// begins in it.
std::uint32_t EndOf(const Run& run, const Run& behind) {
  return run.tail_end != 0 && run.tail_end <= behind.begin ? run.tail_end : run.end;
}

}  // namespace

bool RunChoice::Choose(const std::vector<Run>& runs, std::vector<Judged>& judged) {
  std::vector<Run> pieces;
  if (!CopySplit(log_).Split(runs, pieces)) return false;
  for (const Run& piece : pieces) {
    if (!Memory::Append(judged, Judged{piece})) return false;
  }
  RejectEmbedded(judged);
  for (int round = 0; round < kRounds; ++round) {
    if (!TakeHeaviest(judged)) return false;
    bool dropped = false;
    if (!DropWeak(judged, dropped)) return false;
    if (!dropped) break;
  }
  ConfirmTails(judged);
  for (const Judged& head : heads_) {
    if (!Memory::Append(judged, head)) return false;
  }
  return NameDoubts(judged);
}

// A log inside a payload counts when there is nothing else.
void RunChoice::RejectEmbedded(std::vector<Judged>& judged) {
  const bool others = std::any_of(judged.begin(), judged.end(), [](const Judged& one) {
    return !one.run.embedded && (one.run.records > 1 || IsStart(one.run));
  });
  for (Judged& one : judged) one.rejected = others && one.run.embedded;
}

bool RunChoice::TakeHeaviest(std::vector<Judged>& judged) const {
  if (judged.empty()) return true;
  return Memory::Try([&] {
    Heaviest heaviest(judged);
    for (Judged& one : judged) one.taken = false;
    for (std::uint32_t i = heaviest.Find(judged); i != kNone; i = heaviest.Before(i)) {
      judged[i].taken = true;
    }
  });
}

// Against the nearest runs that are taken so far.
bool RunChoice::DropWeak(std::vector<Judged>& judged, bool& dropped) {
  std::uint32_t longest = 0;
  for (const Judged& one : judged) {
    if (one.taken) longest = std::max(longest, one.run.records);
  }
  const auto is_sure = [&](const Run& run) {
    return run.records >= std::min(longest, kLongRun) || run.continues || IsStart(run);
  };
  for (const Judged& one : judged) {
    if (one.taken && is_sure(one.run)) KnowIds(one.run);
  }
  const Run* before = nullptr;
  for (std::size_t i = 0; i < judged.size(); ++i) {
    Judged& one = judged[i];
    if (!one.taken) continue;
    const Run* const behind = NextTaken(judged, i + 1);
    if (before != nullptr && IsHeadStray(*before, one.run) && !CutHead(one.run)) return false;
    const bool fits =
        is_sure(one.run) ? !IsStray(before, one.run, behind) : IsPlausible(before, one.run, behind);
    if (!fits) {
      one.taken = false;
      one.rejected = true;
      one.doubt = Doubt::kWeakEvidence;
      dropped = true;
      continue;
    }
    before = &one.run;
  }
  return true;
}

// Whether time goes back from the run to the next one, and would not without it.
bool RunChoice::IsStray(const Run* before, const Run& run, const Run* behind) const {
  if (before == nullptr || behind == nullptr || run.end == behind->begin) return false;
  return !IsLater(behind->first_time, run.last_time) &&
         IsLater(behind->first_time, before->last_time) && behind->records >= kLongRun;
}

// The first record of a run may be one inside the payload of the damaged record in front of it: it
// is, for all that is known, where bytes in front of it belong to no missing record and begin with
// no sound header.
bool RunChoice::IsHeadStray(const Run& before, const Run& run) const {
  BinaryLogRecordHeader other;
  const std::uint32_t end = EndOf(before, run);
  return !run.continues && !IsStart(run) && run.records > 1 && before.next_index == run.index &&
         end != run.begin && !log_.ReadKeyedHeader(end, other);
}

bool RunChoice::CutHead(Run& run) {
  ChainWalk walk(log_, run.begin, run.index);
  ChainWalk::Step step = walk.Next();
  while (step != ChainWalk::Step::kEnd && (step = walk.Next()) != ChainWalk::Step::kRecord) {
  }
  if (step == ChainWalk::Step::kEnd) return true;
  Judged head{run, false, true, Doubt::kWeakEvidence};
  head.run.end = walk.Offset();
  head.run.tail_end = 0;
  head.run.records = 1;
  head.run.next_index = walk.Index();
  run.begin = walk.Offset();
  run.index = walk.Index();
  run.first_time = walk.Header().time_stamp;
  --run.records;
  return Memory::Append(heads_, head);
}

bool RunChoice::IsPlausible(const Run* before, const Run& run, const Run* behind) const {
  const std::uint32_t from = before == nullptr ? kStreamHeaderSize : EndOf(*before, run);
  const std::uint32_t index = before == nullptr ? 0 : before->next_index;
  if (run.begin < from || !IsExplained(run.begin - from, run.index - index)) return false;
  if (before != nullptr && run.begin == from) return true;
  if (before != nullptr && !IsLater(run.first_time, before->last_time)) return false;
  if (behind == nullptr) return HasKnownIds(run);
  return IsExplained(behind->begin - EndOf(run, *behind), behind->index - run.next_index) &&
         IsLater(behind->first_time, run.last_time) && HasKnownIds(run);
}

// An unconfirmed record that ends where another one begins counts when no records stand inside it.
void RunChoice::ConfirmTails(std::vector<Judged>& judged) const {
  for (std::size_t i = 0; i < judged.size(); ++i) {
    Run& run = judged[i].run;
    if (!judged[i].taken || !run.tail_leads) continue;
    std::size_t next = i + 1;
    while (next < judged.size() && judged[next].run.begin < run.tail_end && !judged[next].taken &&
           judged[next].run.records < 2) {
      ++next;
    }
    if (next < judged.size() && judged[next].run.begin < run.tail_end) continue;
    run.end = run.tail_end;
    ++run.records;
  }
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
