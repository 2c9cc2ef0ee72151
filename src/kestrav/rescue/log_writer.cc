#include "kestrav/rescue/log_writer.h"

#include <algorithm>

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/host/time/source.h"
#include "kestrav/rescue/dictionary_scan.h"

namespace kestrav::rescue {
namespace {

constexpr std::uint32_t kBytesBetweenLooks = 1 << 20;

using Step = ChainWalk::Step;

// Of a run that is taken the unconfirmed record at its end counts too.
bool IsWritten(Step step) { return step == Step::kRecord || step == Step::kUnconfirmed; }

bool Lose(RecoveryReport& report, const LostRange& range) {
  return Memory::Append(report.lost, range);
}

}  // namespace

RecoveryResult LogWriter::Write(Io::IOutputStream* out) {
  FindStart();
  writes_ = out != nullptr;
  if (writes_) {
    // The caller's stream, without a share in it.
    encoder_.SetLogStream(SmartPtr::Ptr<Io::IOutputStream>(SmartPtr::Ptr<void>(), out));
    if (!encoder_.StartLike(NewHeader()) || !PutDictionaryFirst()) {
      return RecoveryResult::kWriteFailed;
    }
  }
  for (const Judged& one : judged_) {
    if (!one.taken) continue;
    const RecoveryResult result = WriteRun(one.run);
    if (result != RecoveryResult::kWhole) return result;
  }
  if (writes_ && !encoder_.Finish(Duration())) return RecoveryResult::kWriteFailed;
  return RecoveryResult::kWhole;
}

// Walks up to the first dictionary. Without one that is all of the log, and the clients are those
// that have records.
void LogWriter::FindStart() {
  bool any = false;
  std::uint64_t found_ids = 0;
  for (const Judged& one : judged_) {
    if (!one.taken) continue;
    ChainWalk walk(log_, one.run.begin, one.run.index);
    for (Step step = walk.Next(); step != Step::kEnd && walk.Offset() < one.run.end;
         step = walk.Next()) {
      if (!IsWritten(step)) continue;
      const BinaryLogRecordHeader& header = walk.Header();
      if (!any) first_time_ = header.time_stamp;
      found_ids |= ClientIdSet::Bit(header.client_id);
      if (IsDictionary(walk)) {
        dictionary_ = header;
        dictionary_at_ = walk.Offset();
        report_.dictionary_found = true;
        report_.dictionary_moved = any;
        return;
      }
      any = true;
    }
  }
  client_ids_ = found_ids;
}

bool LogWriter::IsDictionary(const ChainWalk& walk) {
  const BinaryLogRecordHeader& header = walk.Header();
  return header.client_id == kInfoClientId && header.data_id == kDictionaryDataId &&
         ScanDictionary({log_.At(walk.Offset() + kRecordHeaderSize), header.payload_size},
                        log_.DataKey(header.record_index), client_ids_);
}

bool LogWriter::PutDictionaryFirst() {
  if (!report_.dictionary_moved) return true;
  BinaryLogRecordHeader first = dictionary_;
  first.time_stamp = first_time_;  // time does not go back behind it
  return encoder_.CopyRecord(first, log_.At(dictionary_at_ + kRecordHeaderSize),
                             log_.DataKey(dictionary_.record_index));
}

RecoveryResult LogWriter::WriteRun(const Run& run) {
  if (!ReportGap(run)) return RecoveryResult::kNoMemory;
  ChainWalk walk(log_, run.begin, run.index);
  for (Step step = walk.Next(); step != Step::kEnd && walk.Offset() < run.end; step = walk.Next()) {
    if (walk.Offset() >= next_look_) {
      if (!go_on_(walk.Offset())) return RecoveryResult::kCancelled;
      next_look_ = walk.Offset() + std::min(kBytesBetweenLooks, log_.Size() - walk.Offset());
    }
    next_index_ = walk.Index() + 1;
    if (IsWritten(step)) {
      const RecoveryResult result = WriteRecord(walk);
      if (result != RecoveryResult::kWhole) return result;
      continue;
    }
    if (step == Step::kOutOfTime) {
      if (!ListOutOfTime(walk)) return RecoveryResult::kNoMemory;
      continue;
    }
    const Loss loss = step == Step::kDamagedHeader ? Loss::kHeader : Loss::kPayload;
    if (!Lose(report_, {walk.Offset(), walk.Bytes(), 1, walk.Index(), loss})) {
      return RecoveryResult::kNoMemory;
    }
  }
  end_ = run.end;
  return RecoveryResult::kWhole;
}

bool LogWriter::ListOutOfTime(const ChainWalk& walk) {
  return report_.doubtful.size() >= kMostDoubtful ||
         Memory::Append(report_.doubtful, DoubtfulRecord{walk.Offset(), walk.Bytes(), walk.Index(),
                                                         Doubt::kOutOfOrder});
}

RecoveryResult LogWriter::WriteRecord(const ChainWalk& walk) {
  const BinaryLogRecordHeader& header = walk.Header();
  const auto ahead = static_cast<std::int32_t>(header.time_stamp - last_time_);
  if (report_.records > 0 && ahead < 0 &&
      !Memory::Append(report_.steps_back,
                      StepBack{walk.Offset(), walk.Index(), last_time_ - header.time_stamp})) {
    return RecoveryResult::kNoMemory;
  }
  last_time_ = header.time_stamp;
  ++report_.records;
  report_.record_bytes += walk.Bytes();
  if (writes_ && !encoder_.CopyRecord(header, log_.At(walk.Offset() + kRecordHeaderSize),
                                      log_.DataKey(header.record_index))) {
    return RecoveryResult::kWriteFailed;
  }
  return RecoveryResult::kWhole;
}

bool LogWriter::ReportGap(const Run& next) {
  const std::uint32_t bytes = next.begin - std::min(end_, next.begin);
  const std::uint32_t records = next.index - next_index_;
  return (bytes == 0 && records == 0) ||
         Lose(report_, {next.begin - bytes, bytes, records, next_index_, Loss::kBytes});
}

// What the old header says is kept where it may be right.
BinaryLogStreamHeader LogWriter::NewHeader() const {
  BinaryLogStreamHeader header;
  if (reading_.usable) {
    header = reading_.fields;
  } else {
    header.start_clock = first_time_;
    header.client_selection = BinaryLogStreamHeader::Selection(client_ids_);
  }
  if (!reading_.magic) header.clock_rate = Time::kClocksPerSecond;
  header.magic = kStreamMagic;
  header.reserved = {};
  header.start_time = std::max<std::int64_t>(header.start_time, 1);  // 0 is no time
  header.header_key = keys_.header;
  header.data_key = keys_.data;
  return header;
}

// A recording that was stopped properly knows the time behind its last record, too.
std::uint32_t LogWriter::Duration() const {
  constexpr std::uint64_t kRoundingMs = 500;
  const std::uint32_t start = reading_.usable ? reading_.fields.start_clock : first_time_;
  const std::uint32_t since = last_time_ - start;
  const std::uint32_t seen =
      report_.records > 0 && static_cast<std::int32_t>(since) >= 0 ? since : 0;
  const std::uint32_t stated = reading_.fields.recording_duration;
  const bool finished = reading_.magic && reading_.fields.stream_length == end_;
  return finished && stated + kRoundingMs >= seen ? stated : seen;
}

}  // namespace kestrav::rescue
