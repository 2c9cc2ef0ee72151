#include "source_log.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "text.h"

namespace kestrav::tool {
namespace {

constexpr double kLongestStepMs = 0x8000'0000;

}  // namespace

SourceLog::SourceLog(const std::string& path)
    : log_(path), found_(FindFront(path)), walk_(log_.Decoder()) {
  header_.time_stamp = log_.Header().start_clock;
}

void SourceLog::StartFrom(double from_ms) {
  from_ms_ = from_ms;
  if (from_ms <= 0) return;
  if (const std::optional<LogIndex> index = OpenIndex(log_)) gap_ = FindGap(*index);
}

// Up to half the range of time stamps, where no step forward looks like one back, the time reached
// is the greatest that there was.
SourceLog::Gap SourceLog::FindGap(const LogIndex& index) const {
  const std::vector<IndexBlock>& blocks = index.blocks;
  const std::size_t asked_for = index.FirstBlockFrom(std::min(from_ms_, kLongestStepMs), 1);
  if (asked_for < 3) return {};
  Gap gap{blocks[1].offset, blocks[asked_for - 1].offset, 0};
  for (std::size_t i = 1; i + 1 < asked_for; ++i) {
    gap.latest_ms = std::max(gap.latest_ms, blocks[i].latest_ms);
  }
  const std::uint32_t front = std::max(found_.dictionary_at, found_.extended_selection_at);
  return front < gap.begin ? gap : Gap{};  // the times of those do not count
}

void SourceLog::LeaveOutGap() {
  const bool is_plain = at_ms_ >= 0 && static_cast<double>(at_ms_) < kLongestStepMs;
  if (!is_plain || IsAskedFor()) return;
  at_ms_ = std::max<std::int64_t>(at_ms_, gap_.latest_ms);
  header_.time_stamp = log_.Header().start_clock + static_cast<std::uint32_t>(at_ms_);
  log_.GoTo(gap_.end);
  walk_.Restart();
}

bool SourceLog::Next() {
  if (ended_) return false;
  for (;;) {
    if (walk_.End() == gap_.begin) LeaveOutGap();
    if (walk_.Next() != kSuccess) break;
    const std::uint32_t at = walk_.End() - walk_.Payload().Size() - kRecordHeaderSize;
    const bool is_front = at == found_.dictionary_at || at == found_.extended_selection_at;
    if (!is_front) CountTime();
    CountDamage();
    if (!is_front) return true;
  }
  log_.CheckReads();
  damage_.CountEnd(log_, walk_);
  ended_ = true;
  return false;
}

void SourceLog::CountTime() {
  const std::uint32_t before = header_.time_stamp;
  header_ = walk_.Header();
  const auto step_ms = static_cast<std::int32_t>(header_.time_stamp - before);
  if (any_ && step_ms < 0) {
    header_.time_stamp = before;
    if (IsAskedFor()) ++steps_back_;
  } else {
    at_ms_ += step_ms;
  }
  any_ = true;
}

void SourceLog::CountDamage() {
  if (IsAskedFor()) {
    damage_.CountRecord(walk_);
  } else {
    damage_.PassRecord(walk_);
  }
}

std::int64_t SourceLog::LengthMs() const {
  const std::int64_t stated = IsWhole() ? log_.Header().recording_duration : 0;
  return std::max(stated, at_ms_);
}

bool SourceLog::ReportLoss(const std::string& command) const {
  const auto say = [&](const std::string& text) {
    std::fprintf(stderr, "kestrav: %s: %s: %s\n", command.c_str(), OneLine(log_.Path()).c_str(),
                 text.c_str());
  };
  if (steps_back_ > 0) {
    say(Counted(steps_back_, "record goes", "records go") +
        " back in time (taken for the time before)");
  }
  std::string text = DamageText(damage_.Found());
  if (ended_ && log_.Header().stream_length == 0) {
    text += text.empty() ? "" : "; ";
    text += "the recording was not finished, its end may be missing";
  }
  if (text.empty()) return false;
  say(text);
  return true;
}

}  // namespace kestrav::tool
