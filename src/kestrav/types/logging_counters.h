#ifndef KESTRAV_TYPES_LOGGING_COUNTERS_H_
#define KESTRAV_TYPES_LOGGING_COUNTERS_H_

#include <cstdint>

#include "kestrav/host/api.h"

namespace kestrav {

// What became of the messages of one recording, the recorder's own records among them. While it
// runs, the difference of `accepted` to `written` and the dropped ones is what is on its way.
struct LoggingCounters {
  std::uint64_t accepted = 0;  // messages that were taken
  std::uint64_t written = 0;   // records in the log

  // Messages that were taken and are not in the log:
  std::uint64_t dropped_without_log = 0;  // the log could not be started
  std::uint64_t dropped_by_stream = 0;    // the stream refused the record, or memory was short
  std::uint64_t dropped_at_stop = 0;  // buffered by the stream, which could not write it any more

  std::uint64_t bytes = 0;             // of the log, its stream header included
  std::uint64_t highest_queue = 0;     // most messages that waited at a time
  std::uint64_t longest_write_us = 0;  // longest wait of records for the stream, in microseconds

  std::uint64_t Dropped() const {
    return dropped_without_log + dropped_by_stream + dropped_at_stop;
  }
};

// What can be asked of a recorder beside its 46 operations. Any thread may ask at any time.
class KESTRAV_API ILoggingCounters {
 public:
  virtual ~ILoggingCounters() = default;
  // Of the recording that runs, else of the last one.
  virtual LoggingCounters GetLoggingCounters() const = 0;
};

}  // namespace kestrav

#endif  // KESTRAV_TYPES_LOGGING_COUNTERS_H_
