#ifndef KESTRAV_TOOLS_LOG_WALK_H_
#define KESTRAV_TOOLS_LOG_WALK_H_

#include <cstdint>

#include "kestrav/format/decoder.h"
#include "kestrav/format/record_header.h"
#include "kestrav/host/memory/mem_block.h"

namespace kestrav::tool {

// Walks the records of a log as `BinaryDecoder::GetNextLogRecord` does, and shows where each of
// them stands and which index it has.
class LogWalk {
 public:
  // Starts where the decoder stands.
  explicit LogWalk(BinaryDecoder& decoder) : decoder_(decoder), end_(decoder.Getoffset()) {}

  // Steps to the next record that is whole. Any other code than kSuccess ends the walk.
  ResultCode Next();
  // Goes on where the decoder has been set to.
  void Restart() { end_ = decoder_.Getoffset(); }
  // After a step that failed: the next one tries the same again, with what the stream has by then.
  void StepBack();

  const BinaryLogRecordHeader& Header() const { return header_; }
  const Memory::MemBlock& Payload() const { return payload_; }
  // The bytes between the record before, or the start, and this one: damage.
  std::uint32_t SkippedBytes() const { return skipped_; }
  // Where the last whole record ends.
  std::uint32_t End() const { return end_; }

 private:
  ResultCode ReadPayload() {
    return decoder_.GetRecordData(payload_, header_.payload_size, header_.record_index,
                                  header_.payload_checksum);
  }

  BinaryDecoder& decoder_;
  BinaryLogRecordHeader header_;
  Memory::MemBlock payload_;
  std::uint32_t end_;
  std::uint32_t next_index_ = 0;  // as the decoder expects it behind the last whole record
  std::uint32_t skipped_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_WALK_H_
