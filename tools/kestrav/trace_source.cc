#include "trace_source.h"

#include <algorithm>
#include <array>
#include <utility>

#include "exit_codes.h"

namespace kestrav::tool {
namespace {

constexpr std::size_t kMostLinesAhead = 1000;

struct Kind {
  const char* name;
  const char* client;
};
constexpr std::array<Kind, 3> kKinds = {{{"nmea", "GPS"}, {"candump", "CAN"}, {"csv", "IMU"}}};

std::unique_ptr<TraceParser> MakeParser(const std::string& kind, const std::string& time_column) {
  if (kind == "nmea") return MakeNmeaParser();
  if (kind == "candump") return MakeCandumpParser();
  return MakeCsvParser(time_column);
}

}  // namespace

std::vector<std::string> TraceKinds() {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) names.emplace_back(kind.name);
  return names;
}

std::string DefaultClientName(const std::string& kind) {
  const auto found =
      std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind& k) { return kind == k.name; });
  return found == kKinds.end() ? std::string() : found->client;
}

TraceSource::TraceSource(SourceSpec spec, const Options& options)
    : spec_(std::move(spec)),
      limit_ms_(options.limit_ms),
      reader_(spec_.file),
      parser_(MakeParser(spec_.kind, options.time_column)) {
  while (!FirstUnixMs() && ahead_.size() < kMostLinesAhead && ReadLine()) {
  }
}

std::optional<std::int64_t> TraceSource::FirstUnixMs() const {
  const std::optional<std::int64_t> offset = parser_->UnixOffsetMs();
  if (!first_ms_ || !offset) return std::nullopt;
  return *first_ms_ + *offset;
}

const TraceLine* TraceSource::Front() {
  while (ahead_.empty()) {
    if (!ReadLine()) return nullptr;
  }
  return &ahead_.front();
}

// false: the trace has ended.
bool TraceSource::ReadLine() {
  std::string_view text;
  if (ended_ || !reader_.Next(text)) {
    std::string reason;
    if (!ended_ && !parser_->IsComplete(reason)) throw Failure(reader_.Name() + ": " + reason);
    ended_ = true;
    return false;
  }
  ++number_;
  if (text.empty()) return true;
  ParsedLine parsed = Parse(text);
  if (!PlaceInTime(parsed)) {
    ended_ = true;
    return false;
  }
  ++lines_;
  wrong_checksums_ += parsed.wrong_checksum ? 1 : 0;
  if (parsed.data_id == kUnreadableDataId && unreadable_++ == 0) first_unreadable_ = number_;
  ahead_.push_back({parsed.data_id, std::move(parsed.payload), at_ms_});
  return true;
}

ParsedLine TraceSource::Parse(std::string_view text) {
  try {
    return parser_->Parse(text);
  } catch (const Failure& failure) {
    throw Failure(reader_.Name() + ": " + failure.what(), failure.code);
  }
}

// false: the line lies beyond the limit. A time that a log cannot hold, or one before that of the
// line before, does not count.
bool TraceSource::PlaceInTime(const ParsedLine& parsed) {
  if (!parsed.time_ms) return true;
  if (!first_ms_) first_ms_ = *parsed.time_ms;
  const std::int64_t since_first = *parsed.time_ms - *first_ms_;
  if (limit_ms_ < kLatestMs && since_first > std::int64_t{limit_ms_}) return false;
  if (since_first > std::int64_t{kLatestMs}) {
    ++too_late_;
  } else if (since_first < std::int64_t{at_ms_}) {
    ++backward_;
  } else {
    at_ms_ = static_cast<std::uint32_t>(since_first);
  }
  return true;
}

}  // namespace kestrav::tool
