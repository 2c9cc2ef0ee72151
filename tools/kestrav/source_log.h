#ifndef KESTRAV_TOOLS_SOURCE_LOG_H_
#define KESTRAV_TOOLS_SOURCE_LOG_H_

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "damage.h"
#include "log_file.h"
#include "log_front.h"
#include "log_index.h"
#include "log_walk.h"

namespace kestrav::tool {

// A log whose records go into another one. Its front is known from the beginning, and the walk
// passes over it. Playback ends where time goes back, so a record that does is taken for one of the
// time before.
class SourceLog {
 public:
  // Throws `Failure` when the file cannot be opened or is no log.
  explicit SourceLog(const std::string& path);

  const LogFile& Log() const { return log_; }
  const ClientNames& Names() const { return found_.names; }
  const LogFront& Front() const { return found_.front; }
  // Of the clients that have records, when there is no dictionary.
  const std::set<std::uint16_t>& Ids() const { return found_.ids; }

  // Nobody asks for what lies before this time of the log: its loss is not told and, where there is
  // an index, most of it is not read. To be called before the first step.
  void StartFrom(double from_ms);

  // Steps to the next record that is whole. false: there is none. Throws `Failure` when the file
  // cannot be read.
  bool Next();

  const BinaryLogRecordHeader& Header() const { return header_; }
  const Memory::MemBlock& Payload() const { return walk_.Payload(); }
  // Where the record stands.
  std::uint32_t Offset() const { return walk_.End() - Header().payload_size - kRecordHeaderSize; }
  // Since the start of the log; negative for what was handed in before it. Also where the 32 bits
  // of time stamps start again.
  std::int64_t AtMs() const { return at_ms_; }
  bool IsFrontRecord() const { return tool::IsFrontRecord(Header().client_id, Header().data_id); }

  // When all was read: how long the log is. The recorder knows of time behind the last record.
  std::int64_t LengthMs() const;

  // Says in one line on standard error what of the log was found to be lost, and in another one
  // that time goes back. false: nothing was lost.
  bool ReportLoss(const std::string& command) const;

 private:
  // Blocks of the index between the first one, which tells how the time begins, and the last one
  // that holds no record to be asked for, which tells the index of the first that is.
  struct Gap {
    std::uint32_t begin = 0;  // 0: there is none
    std::uint32_t end = 0;
    std::uint32_t latest_ms = 0;  // the greatest of its records' times
  };

  Gap FindGap(const LogIndex& index) const;
  void LeaveOutGap();
  void CountTime();
  void CountDamage();
  bool IsAskedFor() const {
    return static_cast<double>(std::max<std::int64_t>(at_ms_, 0)) >= from_ms_;
  }
  bool IsWhole() const { return ended_ && log_.Header().stream_length == walk_.End(); }

  LogFile log_;
  const FoundFront found_;
  LogWalk walk_;
  BinaryLogRecordHeader header_;
  DamageCounter damage_;
  double from_ms_ = 0;
  Gap gap_;
  bool ended_ = false;
  bool any_ = false;
  std::uint64_t steps_back_ = 0;
  std::int64_t at_ms_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_SOURCE_LOG_H_
