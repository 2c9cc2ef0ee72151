#include "damage.h"

#include "text.h"

namespace kestrav::tool {

void DamageCounter::CountRecord(const LogWalk& walk) {
  damage_.skipped_bytes += walk.SkippedBytes();
  damage_.places += walk.SkippedBytes() > 0 ? 1 : 0;
  const std::uint64_t index = walk.Header().record_index;
  if (index > expected_index_) damage_.missing_records += index - expected_index_;
  if (index < expected_index_) ++damage_.misplaced_records;
  PassRecord(walk);
}

void DamageCounter::PassRecord(const LogWalk& walk) {
  expected_index_ = std::uint64_t{walk.Header().record_index} + 1;
}

void DamageCounter::CountEnd(const LogFile& log, const LogWalk& walk) {
  damage_.trailing_bytes = log.Size() - walk.End();
  const std::uint64_t stated_size = log.Header().stream_length;
  if (stated_size > log.Size()) damage_.cut_bytes = stated_size - log.Size();
}

std::string DamageText(const Damage& damage) {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  const auto bytes = [](std::uint64_t count) { return Counted(count, "byte", "bytes"); };
  if (damage.skipped_bytes > 0) {
    add(bytes(damage.skipped_bytes) + " damaged in " + Counted(damage.places, "place", "places"));
  }
  if (damage.missing_records > 0) {
    add(Counted(damage.missing_records, "record", "records") + " missing");
  }
  if (damage.misplaced_records > 0) {
    add(Counted(damage.misplaced_records, "record", "records") + " out of order");
  }
  if (damage.trailing_bytes > 0) {
    add(bytes(damage.trailing_bytes) + " behind the last whole record");
  }
  if (damage.cut_bytes > 0) add(bytes(damage.cut_bytes) + " cut off");
  return text;
}

}  // namespace kestrav::tool
