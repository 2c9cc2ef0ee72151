#ifndef KESTRAV_RESCUE_LOG_WRITER_H_
#define KESTRAV_RESCUE_LOG_WRITER_H_

#include <cstdint>
#include <vector>

#include "kestrav/format/encoder.h"
#include "kestrav/rescue/chain_walk.h"
#include "kestrav/rescue/key_search.h"
#include "kestrav/rescue/run_choice.h"

namespace kestrav::rescue {

// Goes through the runs that were taken, writes their records and reports what lies between them.
class LogWriter {
 public:
  LogWriter(const LogView& log, const HeaderReading& reading, const FoundKeys& keys,
            const std::vector<Judged>& judged, RecoveryReport& report, const Continue& go_on)
      : log_(log),
        reading_(reading),
        keys_(keys),
        judged_(judged),
        report_(report),
        go_on_(go_on) {}

  // `out` may be null. kWhole: all went well.
  RecoveryResult Write(Io::IOutputStream* out);
  // Where the last run ends.
  std::uint32_t End() const { return end_; }

 private:
  void FindStart();
  bool IsDictionary(const ChainWalk& walk);
  [[nodiscard]] bool PutDictionaryFirst();
  [[nodiscard]] RecoveryResult WriteRun(const Run& run);
  [[nodiscard]] RecoveryResult WriteRecord(const ChainWalk& walk);
  [[nodiscard]] bool ListOutOfTime(const ChainWalk& walk);
  [[nodiscard]] bool ReportGap(const Run& next);
  BinaryLogStreamHeader NewHeader() const;
  std::uint32_t Duration() const;

  const LogView& log_;
  const HeaderReading& reading_;
  const FoundKeys& keys_;
  const std::vector<Judged>& judged_;
  RecoveryReport& report_;
  const Continue& go_on_;
  BinaryEncoder encoder_;
  bool writes_ = false;
  BinaryLogRecordHeader dictionary_;  // the first one
  std::uint32_t dictionary_at_ = 0;
  std::uint64_t client_ids_ = 0;  // bit n: client id n is in the dictionary, or has a record
  std::uint32_t first_time_ = 0;
  std::uint32_t last_time_ = 0;
  std::uint32_t end_ = kStreamHeaderSize;  // of the last run
  std::uint32_t next_index_ = 0;
  std::uint32_t next_look_ = 0;
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_LOG_WRITER_H_
