#include "kestrav/rescue/copy_split.h"

#include <algorithm>
#include <cstring>

#include "kestrav/host/memory/try.h"
#include "kestrav/rescue/chain_walk.h"

namespace kestrav::rescue {
namespace {

using Step = ChainWalk::Step;

void AddRecord(Run& piece, const ChainWalk& walk) {
  if (piece.records == 0) {
    piece.begin = walk.Offset();
    piece.index = walk.Index();
    piece.first_time = walk.Header().time_stamp;
  }
  ++piece.records;
  piece.end = walk.End();
  piece.next_index = walk.Index() + 1;
  piece.last_time = walk.Header().time_stamp;
}

// Into the first `count` values, which are in order.
template <class Values>
void Insert(Values& values, std::size_t count, std::uint32_t value) {
  for (; count > 0 && values[count - 1] > value; --count) values[count] = values[count - 1];
  values[count] = value;
}

}  // namespace

bool CopySplit::Split(const std::vector<Run>& runs, std::vector<Run>& pieces) {
  std::array<const Run*, kCompared> earlier{};  // the last runs of several records
  std::size_t seen = 0;
  for (const Run& run : runs) {
    Cuts cuts;
    std::size_t count = 0;
    for (const Run* const one : earlier) {
      if (one != nullptr && HasCopies(*one, run)) Insert(cuts, count++, one->next_index);
    }
    if (!Cut(run, cuts, count, pieces)) return false;
    if (run.records > 1) earlier[seen++ % kCompared] = &run;
  }
  return true;
}

bool CopySplit::HasCopies(const Run& earlier, const Run& run) const {
  const std::uint32_t first = std::max(earlier.index, run.index);
  std::uint32_t original = 0;
  std::uint32_t copy = 0;
  return run.records > 1 && run.begin >= earlier.end && first < earlier.next_index &&
         run.next_index > earlier.next_index && FindRecord(earlier, first, original) &&
         FindRecord(run, first, copy) &&
         std::memcmp(log_.At(original), log_.At(copy), kRecordHeaderSize) == 0;
}

bool CopySplit::FindRecord(const Run& run, std::uint32_t index, std::uint32_t& at) const {
  ChainWalk walk(log_, run.begin, run.index);
  for (Step step = walk.Next(); step != Step::kEnd && walk.Offset() < run.end; step = walk.Next()) {
    if (walk.Index() < index) continue;
    at = walk.Offset();
    return walk.Index() == index && step == Step::kRecord;
  }
  return false;
}

bool CopySplit::Cut(const Run& run, const Cuts& cuts, std::size_t count,
                    std::vector<Run>& pieces) const {
  if (count == 0) return Memory::Append(pieces, run);
  Run piece;
  piece.embedded = run.embedded;
  std::size_t next = 0;
  ChainWalk walk(log_, run.begin, run.index);
  for (Step step = walk.Next(); step != Step::kEnd && walk.Offset() < run.end; step = walk.Next()) {
    if (step != Step::kRecord) continue;
    const bool is_cut = next < count && walk.Index() >= cuts[next];
    while (next < count && walk.Index() >= cuts[next]) ++next;
    if (is_cut && piece.records > 0) {
      if (!Memory::Append(pieces, piece)) return false;
      piece.records = 0;
      piece.continues = true;
    }
    AddRecord(piece, walk);
  }
  piece.tail_end = run.tail_end;
  piece.tail_leads = run.tail_leads;
  piece.next_index = run.next_index;
  return piece.records == 0 || Memory::Append(pieces, piece);
}

}  // namespace kestrav::rescue
