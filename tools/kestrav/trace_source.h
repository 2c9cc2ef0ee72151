#ifndef KESTRAV_TOOLS_TRACE_SOURCE_H_
#define KESTRAV_TOOLS_TRACE_SOURCE_H_

#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "line_reader.h"
#include "source_spec.h"
#include "trace_parser.h"

namespace kestrav::tool {

// The kinds of traces that can be imported.
std::vector<std::string> TraceKinds();
// The client that a trace of this kind is recorded as unless a name is given.
std::string DefaultClientName(const std::string& kind);

// One line of a trace on its way into the log.
struct TraceLine {
  std::uint16_t data_id = kUnreadableDataId;
  std::string payload;      // never empty
  std::uint32_t at_ms = 0;  // since the trace's first time; never less than the line before
};

// A trace, read line by line. Lines before the first one with a time get the trace's first time;
// lines without a time, or with an earlier one, that of the line before.
class TraceSource {
 public:
  // The latest time that the log's clock can hold, with room for its start and end.
  static constexpr std::uint32_t kLatestMs = std::numeric_limits<std::uint32_t>::max() - 60'000;

  struct Options {
    std::string time_column;
    std::uint32_t limit_ms = kLatestMs;  // later lines are left out
  };

  // Opens the trace and reads ahead until its first time is known. Throws `Failure`.
  TraceSource(SourceSpec spec, const Options& options);

  // The next line, or null at the end. Throws `Failure` when reading fails.
  const TraceLine* Front();
  void Pop() { ahead_.pop_front(); }

  const SourceSpec& Spec() const { return spec_; }
  std::uint64_t BytesRead() const { return reader_.BytesRead(); }
  // The trace's first time in milliseconds since 1970, when it tells.
  std::optional<std::int64_t> FirstUnixMs() const;

  // Of the lines read so far.
  std::uint64_t Lines() const { return lines_; }
  std::uint64_t WrongChecksums() const { return wrong_checksums_; }
  std::uint64_t TooLate() const { return too_late_; }   // with a time that no log can hold
  std::uint64_t Backward() const { return backward_; }  // with a time before the line before
  std::uint64_t Unreadable() const { return unreadable_; }
  std::uint64_t FirstUnreadable() const { return first_unreadable_; }  // its number, from 1

 private:
  bool ReadLine();
  ParsedLine Parse(std::string_view text);
  bool PlaceInTime(const ParsedLine& parsed);

  const SourceSpec spec_;
  const std::uint32_t limit_ms_;
  LineReader reader_;
  std::unique_ptr<TraceParser> parser_;
  std::deque<TraceLine> ahead_;
  bool ended_ = false;
  std::optional<std::int64_t> first_ms_;
  std::uint32_t at_ms_ = 0;  // of the line read last
  std::uint64_t number_ = 0;
  std::uint64_t lines_ = 0;
  std::uint64_t wrong_checksums_ = 0;
  std::uint64_t too_late_ = 0;
  std::uint64_t backward_ = 0;
  std::uint64_t unreadable_ = 0;
  std::uint64_t first_unreadable_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_TRACE_SOURCE_H_
