#ifndef KESTRAV_RESCUE_CHAIN_WALK_H_
#define KESTRAV_RESCUE_CHAIN_WALK_H_

#include <cstdint>

#include "kestrav/format/record_header.h"
#include "kestrav/rescue/log_view.h"

namespace kestrav::rescue {

// Walks records that stand one behind the other with rising indices and no step back in time. A
// damaged record ends the walk only when its size, as it stands or with one bit changed, does not
// lead to the next record: what its payload holds, be it a whole log, is never looked at then.
class ChainWalk {
 public:
  enum class Step : std::uint8_t {
    kRecord,
    kDamagedHeader,
    kDamagedPayload,
    kOutOfTime,    // whole, but its time is not between those of its neighbours, which are in order
    kUnconfirmed,  // whole, but what follows it is neither a record's start nor an end; the last
                   // step
    kEnd,
  };

  // The record `index` is to stand at `at`.
  ChainWalk(const LogView& log, std::uint32_t at, std::uint32_t index);

  // Looks at the next record; its place and, unless that is damaged, its header can be asked.
  Step Next();

  const BinaryLogRecordHeader& Header() const { return header_; }
  std::uint32_t Offset() const { return offset_; }
  std::uint32_t Bytes() const { return end_ - offset_; }
  std::uint32_t End() const { return end_; }
  std::uint32_t Index() const { return index_ - 1; }

 private:
  enum class Ahead : std::uint8_t { kHeader, kDamagedHeader, kNothing };

  Step TakeRecord();
  // Looks at what stands at `end_` and is to be the record `index_`.
  void LookAhead();
  bool StepsOver(std::uint32_t at, std::uint32_t index, std::uint32_t& end, int further) const;
  bool LeadsOn(std::uint32_t at, std::uint32_t size, std::uint32_t index, int further) const;
  bool IsConfirmed() const;
  bool IsOutOfTime() const;

  const LogView& log_;
  BinaryLogRecordHeader header_;  // of the record looked at
  BinaryLogRecordHeader next_;    // and of the one behind it
  Ahead ahead_ = Ahead::kNothing;
  bool has_time_ = false;
  std::uint32_t time_ = 0;  // of the last record that was in time
  std::uint32_t damaged_end_ = 0;
  std::uint32_t offset_ = 0;
  std::uint32_t end_;
  std::uint32_t index_;  // of the record that is to stand at `end_`
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_CHAIN_WALK_H_
