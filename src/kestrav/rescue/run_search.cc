#include "kestrav/rescue/run_search.h"

#include <algorithm>

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
  while (at < log_.Size()) {
    const std::uint32_t until = at + std::min(log_.Size() - at, kBytesBetweenLooks);
    at = log_.FindHeader(at, until);
    if (!IsTime(at)) return SearchResult::kCancelled;
    if (at >= until) continue;
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
  const auto embedded_end = EmbeddedEnd(at);
  run.embedded = embedded_end.has_value();
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
    if (walk.End() == embedded_end) break;
  }
  if (step == Step::kUnconfirmed && run.records > 0 && walk.Offset() == run.end) {
    run.tail_end = walk.End();
    run.next_index = walk.Index() + 1;
    BinaryLogRecordHeader other;
    run.tail_leads = log_.ReadKeyedHeader(run.tail_end, other);
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
  if (!Memory::Append(runs_, run)) return SearchResult::kNoMemory;
  if (run.end == log_.StatedEnd()) log_.Shorten(run.end);
  return SearchResult::kDone;
}

// The recorder never writes a stream header between records. In a scrambled payload each of its
// bytes is changed by the same one.
std::optional<std::uint32_t> RunSearch::EmbeddedEnd(std::uint32_t at) const {
  if (at <= kStreamHeaderSize) return std::nullopt;
  constexpr std::uint32_t kLengthAt = 16;
  const std::uint8_t* const header = log_.At(at - kStreamHeaderSize);
  const auto magic = Memory::GetLittleEndian<std::uint32_t>(header) ^ kStreamMagic;
  const auto key = static_cast<std::uint32_t>(wide::Repeat(static_cast<std::uint8_t>(magic)));
  if (magic != key) return std::nullopt;
  const auto length = Memory::GetLittleEndian<std::uint32_t>(header + kLengthAt) ^ key;
  return at - kStreamHeaderSize + length;
}

}  // namespace kestrav::rescue
