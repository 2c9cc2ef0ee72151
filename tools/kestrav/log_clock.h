#ifndef KESTRAV_TOOLS_LOG_CLOCK_H_
#define KESTRAV_TOOLS_LOG_CLOCK_H_

#include <cstdint>
#include <string>

#include "kestrav/format/stream_header.h"

namespace kestrav::tool {

// Places the records of a log in time.
class LogClock {
 public:
  explicit LogClock(const BinaryLogStreamHeader& header)
      : start_clock_(header.start_clock), start_unix_ms_(std::int64_t{header.start_time} * 1000) {}

  // Milliseconds since the start of the log.
  std::uint32_t SinceStart(std::uint32_t time_stamp) const { return time_stamp - start_clock_; }
  // Milliseconds since 1970-01-01 UTC.
  std::int64_t UnixMs(std::uint32_t time_stamp) const {
    return start_unix_ms_ + SinceStart(time_stamp);
  }
  // Appends the time of day as in 2020-02-07T02:14:17.250Z.
  void AppendUtc(std::string& out, std::uint32_t time_stamp);

 private:
  const std::uint32_t start_clock_;
  const std::int64_t start_unix_ms_;
  std::int64_t scnds_ = -1;  // whose text is kept: many records share it
  std::string text_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_CLOCK_H_
