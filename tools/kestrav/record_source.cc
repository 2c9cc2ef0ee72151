#include "record_source.h"

#include <algorithm>
#include <utility>

namespace kestrav::tool {

RecordSource::RecordSource(LogFile& log, const RecordFilter& filter, std::optional<LogIndex> index)
    : log_(log), filter_(filter), index_(std::move(index)) {}

ResultCode RecordSource::Next(LogMessage& message) {
  while (index_ && left_ == 0) {
    const ResultCode result = NextBlock();
    if (result != kSuccess) return result;
  }
  const ResultCode result = log_.Decoder().GetNextLogRecord(message);
  if (result != kSuccess) return result;
  ++next_ordinal_;
  if (index_) --left_;
  return kSuccess;
}

ResultCode RecordSource::NextBlock() {
  const std::size_t follows = block_;  // whose checkpoint the decoder has come to
  const auto& blocks = index_->blocks;
  while (block_ < blocks.size() && !MayHold(blocks[block_])) ++block_;
  if (block_ == blocks.size()) return index_->scan.end;
  const IndexBlock& block = blocks[block_];
  if (block_ != follows) log_.GoTo(block.offset);
  left_ = block.records;
  next_ordinal_ = block.first_record;
  ++block_;
  return kSuccess;
}

bool RecordSource::MayHold(const IndexBlock& block) const {
  return filter_.MatchesSpan(block.earliest_ms, block.latest_ms) &&
         std::ranges::any_of(block.clients, [this](const auto& client) {
           return filter_.MatchesClient(client.first);
         });
}

}  // namespace kestrav::tool
