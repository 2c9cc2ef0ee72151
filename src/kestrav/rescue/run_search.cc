#include "kestrav/rescue/run_search.h"

#include "kestrav/format/stream_header.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/rescue/chain_walk.h"

namespace kestrav::rescue {
namespace {

constexpr std::uint32_t kBytesBetweenLooks = 1 << 20;
constexpr std::size_t kMostSingles = 1 << 20;
constexpr std::size_t kClientIds = 0x10000;

}  // namespace

bool RunSearch::IsTime(std::uint32_t at) {
  if (at < next_look_) return true;
  next_look_ = at > 0xFFFFFFFF - kBytesBetweenLooks ? 0xFFFFFFFF : at + kBytesBetweenLooks;
  return go_on_(at);
}

SearchResult RunSearch::Search() {
  if (!Memory::Try([this] { known_ids_.resize(kClientIds); })) return SearchResult::kNoMemory;
  std::uint32_t at = kStreamHeaderSize;
  const SearchResult result = TakeRun(at, 0);
  if (result != SearchResult::kDone) return result;
  return SearchFrom(runs_.empty() ? 0 : at);
}

SearchResult RunSearch::SearchFrom(std::uint32_t at) {
  if (at < log_.Size() && !log_.LoadSums()) return SearchResult::kNoMemory;
  BinaryLogRecordHeader header;
  while ((at = log_.FindHeader(at)) < log_.Size()) {
    if (!IsTime(at)) return SearchResult::kCancelled;
    if (!log_.ReadKeyedHeader(at, header)) {
      ++at;
      continue;
    }
    const SearchResult result = TakeRun(at, header.record_index);
    if (result != SearchResult::kDone) return result;
  }
  return SearchResult::kDone;
}

SearchResult RunSearch::TakeRun(std::uint32_t& at, std::uint32_t index) {
  using Step = ChainWalk::Step;
  Run run;
  run.begin = at;
  run.index = index;
  ChainWalk walk(log_, at, index);
  Step step;
  while ((step = walk.Next()) != Step::kEnd && step != Step::kUnconfirmed) {
    if (!IsTime(walk.End())) return SearchResult::kCancelled;
    const bool is_last = walk.End() == log_.Size();
    if (step == Step::kRecord || is_last) {
      run.end = walk.End();
      run.next_index = walk.Index() + 1;
    }
    if (step != Step::kRecord) continue;
    const BinaryLogRecordHeader& header = walk.Header();
    if (run.records == 0) run.first_time = header.time_stamp;
    run.last_time = header.time_stamp;
    if (++run.records >= kLongRun) known_ids_[header.client_id] = true;
  }
  // Behind a run it is found again when the search goes on there.
  if (step == Step::kUnconfirmed && run.records == 0 && unconfirmed_.size() < kMostDoubtful &&
      !Memory::Append(unconfirmed_,
                      DoubtfulRecord{walk.Offset(), walk.Bytes(), walk.Header().record_index,
                                     Doubt::kWeakEvidence})) {
    return SearchResult::kNoMemory;
  }
  return Keep(run, at);
}

// A single record may be stray bytes and hide a true one.
SearchResult RunSearch::Keep(Run& run, std::uint32_t& at) {
  const bool is_single = run.records < 2 && run.begin != kStreamHeaderSize;
  at = is_single || run.records == 0 ? run.begin + 1 : run.end;
  if (run.records == 0 || (is_single && runs_.size() >= kMostSingles)) return SearchResult::kDone;
  run.embedded = IsEmbedded(run.begin, run.index);
  if (!Memory::Append(runs_, run)) return SearchResult::kNoMemory;
  if (run.end == log_.StatedEnd()) log_.Shorten(run.end);
  return SearchResult::kDone;
}

bool RunSearch::IsEmbedded(std::uint32_t at, std::uint32_t index) const {
  return index == 0 && at > kStreamHeaderSize &&
         Memory::GetLittleEndian<std::uint32_t>(log_.At(at - kStreamHeaderSize)) == kStreamMagic;
}

}  // namespace kestrav::rescue
