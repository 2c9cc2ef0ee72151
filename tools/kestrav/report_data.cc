#include "report_data.h"

#include <algorithm>
#include <string_view>

namespace kestrav::tool {
namespace {

std::string_view Text(const Memory::MemBlock& payload) {
  return {reinterpret_cast<const char*>(payload.Data()), payload.Size()};
}

}  // namespace

std::int64_t ReportData::Look(const LogWalk& walk) {
  // A recorder writes a dictionary every ten seconds: there is no longer step without a reason.
  constexpr std::int64_t kLongestStepMs = 30'000;
  const BinaryLogRecordHeader& header = walk.Header();
  const std::int64_t before_ms = time_.Now();
  const std::int64_t at_ms = time_.Next(header.time_stamp);
  const std::int64_t step_ms = at_ms - before_ms;
  const auto index = std::int64_t{header.record_index};
  const auto expected = static_cast<std::int64_t>(damage_.ExpectedIndex());
  const auto mark = [&](Mark::Kind kind, std::int64_t amount) {
    const std::uint32_t start = walk.End() - kRecordHeaderSize - header.payload_size;
    AddMark({kind, at_ms, amount, header.record_index, start});
  };
  Reach(at_ms);
  if (walk.SkippedBytes() > 0) mark(Mark::Kind::kDamage, walk.SkippedBytes());
  if (index > expected) mark(Mark::Kind::kMissing, index - expected);
  if (index < expected) mark(Mark::Kind::kMisplaced, expected - index);
  if (step_ms < 0) mark(Mark::Kind::kBack, -step_ms);
  if (step_ms > kLongestStepMs) mark(Mark::Kind::kAhead, step_ms);
  damage_.CountRecord(walk);
  ++all_records_;
  return at_ms;
}

void ReportData::Count(const LogWalk& walk, std::int64_t at_ms) {
  const BinaryLogRecordHeader& header = walk.Header();
  Lane& lane = LaneOf(header.client_id);
  lane.Add(header, at_ms, shift_);
  ++records_;
  if (&lane == &others_) return;
  if (const std::optional<Fix> fix = ReadFix(Text(walk.Payload()))) lane.track.Add(at_ms, *fix);
}

void ReportData::LeaveOut(std::int64_t at_ms) {
  first_left_out_ms_ = std::min(first_left_out_ms_.value_or(at_ms), at_ms);
}

void ReportData::End(const LogFile& log, const LogWalk& walk, double to_scnds) {
  damage_.CountEnd(log, walk);
  const std::uint64_t lost = damage_.Found().trailing_bytes + damage_.Found().cut_bytes;
  if (lost > 0) {
    AddMark({Mark::Kind::kTail, time_.Now(), static_cast<std::int64_t>(lost),
             static_cast<std::uint32_t>(damage_.ExpectedIndex()), walk.End()});
  }
  const double end_ms = std::min(static_cast<double>(end_ms_), to_scnds * 1000);
  for (const auto& [id, lane] : lanes_) {
    lane->End(static_cast<std::int64_t>(end_ms));
    lane->buckets.Widen(shift_);
  }
  others_.buckets.Widen(shift_);
  mark_buckets_.Widen(shift_);
}

void ReportData::AddMark(const Mark& mark) {
  ++mark_count_;
  mark_buckets_.Add(mark.at_ms, shift_, 0);
  if (marks_.size() < kMostMarks) marks_.push_back(mark);
}

void ReportData::Reach(std::int64_t at_ms) {
  end_ms_ = std::max(end_ms_, at_ms);
  while (static_cast<std::size_t>(end_ms_ >> shift_) >= Buckets::kMost) ++shift_;
}

Lane& ReportData::LaneOf(std::uint16_t client_id) {
  if (last_lane_ != nullptr && client_id == last_client_) return *last_lane_;
  const auto found = lanes_.find(client_id);
  if (found != lanes_.end()) {
    last_lane_ = found->second.get();
  } else if (lanes_.size() == kMostLanes) {
    last_lane_ = &others_;
  } else {
    last_lane_ = lanes_.emplace(client_id, std::make_unique<Lane>()).first->second.get();
  }
  last_client_ = client_id;
  return *last_lane_;
}

}  // namespace kestrav::tool
