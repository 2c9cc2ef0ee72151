#include "log_walk.h"

namespace kestrav::tool {

ResultCode LogWalk::Next() {
  if (decoder_.GetRemainingBytes() == 0) return kNotEnoughData;
  ResultCode result = decoder_.GetNextRecordHeader(header_);
  if (result != kSuccess) return result;
  result = ReadPayload();
  if (result == kDamaged) {
    if (decoder_.ScanForNextValidHeader() != kSuccess) return kDamaged;
    static_cast<void>(decoder_.GetNextRecordHeader(header_));
    result = ReadPayload();
  }
  if (result != kSuccess) return result;
  if (header_.client_id == kNoId || header_.data_id == kNoId) return kDamaged;
  const std::uint32_t start = decoder_.Getoffset() - payload_.Size() - kRecordHeaderSize;
  skipped_ = start - end_;
  end_ = decoder_.Getoffset();
  next_index_ = header_.record_index + 1;
  return kSuccess;
}

// The decoder has counted a header that it could read, whatever came behind it.
void LogWalk::StepBack() {
  BinaryLogRecordHeader header;
  static_cast<void>(decoder_.SetOffset(end_));
  if (decoder_.ReadLogRecordHeader(header, next_index_) == kSuccess) {
    static_cast<void>(decoder_.SetToPreviousLogRecord(0));
  } else {
    static_cast<void>(decoder_.SetOffset(end_));
  }
}

}  // namespace kestrav::tool
