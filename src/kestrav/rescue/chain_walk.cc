#include "kestrav/rescue/chain_walk.h"

#include <algorithm>
#include <bit>

#include "kestrav/host/memory/byte_order.h"

namespace kestrav::rescue {
namespace {

constexpr std::uint32_t kSizeAt = 16;

// How many damaged headers in a row are stepped over.
constexpr int kInARow = 3;

}  // namespace

ChainWalk::ChainWalk(const LogView& log, std::uint32_t at, std::uint32_t index)
    : log_(log), end_(at), index_(index) {
  LookAhead();
}

ChainWalk::Step ChainWalk::Next() {
  if (ahead_ == Ahead::kNothing) return Step::kEnd;
  offset_ = end_;
  if (ahead_ == Ahead::kHeader) return TakeRecord();
  end_ = damaged_end_;
  ++index_;
  LookAhead();
  return Step::kDamagedHeader;
}

ChainWalk::Step ChainWalk::TakeRecord() {
  header_ = next_;
  if (has_time_ && static_cast<std::int32_t>(header_.time_stamp - time_) < 0) {
    ahead_ = Ahead::kNothing;
    return Step::kEnd;
  }
  const bool holds = log_.PayloadHolds(offset_, header_);
  end_ += kRecordHeaderSize + header_.payload_size;
  ++index_;
  LookAhead();
  const bool leads_on = ahead_ != Ahead::kNothing || end_ == log_.Size();
  if (!holds) return leads_on ? Step::kDamagedPayload : Step::kEnd;
  if (!leads_on && !IsConfirmed()) return Step::kUnconfirmed;
  if (IsOutOfTime()) return Step::kOutOfTime;
  time_ = header_.time_stamp;
  has_time_ = true;
  return Step::kRecord;
}

// One header in 256 passes its checksum although its times or ids are damaged.
bool ChainWalk::IsOutOfTime() const {
  if (!has_time_ || ahead_ != Ahead::kHeader) return false;
  const std::uint32_t between = next_.time_stamp - time_;
  return static_cast<std::int32_t>(between) >= 0 && header_.time_stamp - time_ > between;
}

void ChainWalk::LookAhead() {
  ahead_ = Ahead::kNothing;
  if (end_ >= log_.Size()) return;
  if (log_.ReadHeaderOf(index_, end_, next_)) {
    ahead_ = Ahead::kHeader;
  } else if (StepsOver(end_, index_, damaged_end_, kInARow)) {
    ahead_ = Ahead::kDamagedHeader;
  }
}

// One changed bit shows in the header's sum, which tells its place in its byte. So only four other
// sizes are possible. The longest that leads on holds: a shorter one may lead to a record inside
// the payload. A sound header of another index is no damaged one.
bool ChainWalk::StepsOver(std::uint32_t at, std::uint32_t index, std::uint32_t& end,
                          int further) const {
  BinaryLogRecordHeader other;
  if (further == 0 || log_.Size() - at <= kRecordHeaderSize || log_.ReadKeyedHeader(at, other)) {
    return false;
  }
  const auto key = static_cast<std::uint32_t>(wide::Repeat(log_.HeaderKey(index)));
  const std::uint32_t size = Memory::GetLittleEndian<std::uint32_t>(log_.At(at) + kSizeAt) ^ key;
  const std::uint32_t changed = XorSum(log_.At(at), kRecordHeaderSize) ^ kRecordMarker;
  const std::uint32_t shifts = std::popcount(changed) == 1 ? 32 : 0;
  std::uint32_t longest = LeadsOn(at, size, index, further) ? size : 0;
  for (std::uint32_t shift = 0; shift < shifts; shift += 8) {
    const std::uint32_t other_size = size ^ changed << shift;
    if (other_size > longest && LeadsOn(at, other_size, index, further)) longest = other_size;
  }
  end = at + kRecordHeaderSize + longest;
  return longest > 0;
}

bool ChainWalk::LeadsOn(std::uint32_t at, std::uint32_t size, std::uint32_t index,
                        int further) const {
  if (size == 0 || size > log_.Size() - at - kRecordHeaderSize) return false;
  const std::uint32_t end = at + kRecordHeaderSize + size;
  BinaryLogRecordHeader header;
  std::uint32_t ignored = 0;
  return end == log_.Size() || log_.ReadHeaderOf(index + 1, end, header) ||
         StepsOver(end, index + 1, ignored, further - 1);
}

// One payload in 256 passes its checksum although it is damaged. Where the next record begins as it
// should, the damage is not in this one. Nor is it where nothing but zeros follow a byte that is
// none, or reach to the end of the file: bytes that the system had not yet written.
bool ChainWalk::IsConfirmed() const {
  if (end_ == log_.StatedEnd()) return true;
  BinaryLogRecordHeader other;
  if (log_.ReadKeyedHeader(end_, other)) return false;
  const std::uint8_t* const next = log_.At(end_);
  if (*next == (kRecordMarker ^ log_.HeaderKey(index_)) || log_.IsZeroFrom(end_)) return true;
  const std::uint32_t seen = std::min(log_.Size() - end_, kRecordHeaderSize);
  return next[-1] != 0 && std::all_of(next, next + seen, [](std::uint8_t b) { return b == 0; });
}

}  // namespace kestrav::rescue
