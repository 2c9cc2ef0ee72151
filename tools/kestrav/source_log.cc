#include "source_log.h"

#include <algorithm>
#include <cstdio>

#include "text.h"

namespace kestrav::tool {

SourceLog::SourceLog(const std::string& path)
    : log_(path),
      found_(FindFront(path)),
      walk_(log_.Decoder()),
      time_stamp_(log_.Header().start_clock) {}

bool SourceLog::Next() {
  if (ended_) return false;
  while (walk_.Next() == kSuccess) {
    damage_.CountRecord(walk_);
    const std::uint32_t at = Offset();
    if (at == found_.dictionary_at || at == found_.extended_selection_at) continue;
    at_ms_ += static_cast<std::int32_t>(Header().time_stamp - time_stamp_);
    time_stamp_ = Header().time_stamp;
    return true;
  }
  log_.CheckReads();
  damage_.CountEnd(log_, walk_);
  ended_ = true;
  return false;
}

std::int64_t SourceLog::LengthMs() const {
  const std::int64_t stated = IsWhole() ? log_.Header().recording_duration : 0;
  return std::max(stated, at_ms_);
}

bool SourceLog::ReportLoss(const std::string& command) const {
  std::string text = DamageText(damage_.Found());
  if (ended_ && log_.Header().stream_length == 0) {
    text += text.empty() ? "" : "; ";
    text += "the recording was not finished, its end may be missing";
  }
  if (text.empty()) return false;
  std::fprintf(stderr, "kestrav: %s: %s: %s\n", command.c_str(), OneLine(log_.Path()).c_str(),
               text.c_str());
  return true;
}

}  // namespace kestrav::tool
