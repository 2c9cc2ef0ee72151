#include "source_log.h"

#include <algorithm>
#include <cstdio>

#include "text.h"

namespace kestrav::tool {

SourceLog::SourceLog(const std::string& path)
    : log_(path), found_(FindFront(path)), walk_(log_.Decoder()) {
  header_.time_stamp = log_.Header().start_clock;
}

bool SourceLog::Next() {
  if (ended_) return false;
  while (walk_.Next() == kSuccess) {
    damage_.CountRecord(walk_);
    const std::uint32_t at = walk_.End() - walk_.Payload().Size() - kRecordHeaderSize;
    if (at == found_.dictionary_at || at == found_.extended_selection_at) continue;
    const std::uint32_t before = header_.time_stamp;
    header_ = walk_.Header();
    const auto step_ms = static_cast<std::int32_t>(header_.time_stamp - before);
    if (any_ && step_ms < 0) {
      header_.time_stamp = before;
      ++steps_back_;
    } else {
      at_ms_ += step_ms;
    }
    any_ = true;
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
