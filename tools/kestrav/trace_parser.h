#ifndef KESTRAV_TOOLS_TRACE_PARSER_H_
#define KESTRAV_TOOLS_TRACE_PARSER_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kestrav::tool {

inline constexpr std::uint16_t kUnreadableDataId = 98;
inline constexpr std::uint16_t kCsvHeaderDataId = 1;
inline constexpr std::uint16_t kCsvSampleDataId = 2;

// What a line of a trace is.
struct ParsedLine {
  std::uint16_t data_id = kUnreadableDataId;
  std::string payload;                  // what is recorded; the line itself when it is unreadable
  std::optional<std::int64_t> time_ms;  // empty: the time of the line before
  bool wrong_checksum = false;          // the line's own
};

// Reads the lines of one kind of trace, in their order.
class TraceParser {
 public:
  virtual ~TraceParser() = default;

  virtual ParsedLine Parse(std::string_view line) = 0;

  // What added to a line's time makes milliseconds since 1970. Empty: nothing tells the date (yet).
  virtual std::optional<std::int64_t> UnixOffsetMs() const = 0;

  // Whether the trace is of this kind at all, asked at its end; if not, `reason` says why not.
  virtual bool IsComplete(std::string& /*reason*/) const { return true; }
};

std::unique_ptr<TraceParser> MakeNmeaParser();
std::unique_ptr<TraceParser> MakeCandumpParser();
// Throws `Failure` from `Parse` when the header has no column `time_column`.
std::unique_ptr<TraceParser> MakeCsvParser(const std::string& time_column);

// Whether the line begins as a sentence does: $GNRMC,
bool IsNmeaSentence(std::string_view line);

// What `kestrav import --help` says of the data ids of sentences.
std::string NmeaDataIdTable();

// Unix time in milliseconds and not the time since some start: later than 1973.
inline bool IsUnixTime(std::int64_t ms) { return ms >= 100'000'000'000; }

// Reads decimal digits alone; false: something else, none, or too many for the result.
bool ReadDigits(std::string_view text, std::int64_t& value);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_TRACE_PARSER_H_
