#include <charconv>
#include <cmath>
#include <vector>

#include "exit_codes.h"
#include "trace_parser.h"

// Comma-separated values: a header line with the names of the columns, then a sample a line, with
// its time in milliseconds in one of the columns.

namespace kestrav::tool {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string_view Unquote(std::string_view text) {
  text = Trim(text);
  const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  return quoted ? text.substr(1, text.size() - 2) : text;
}

// The fields of a line; a comma between quotes separates nothing.
void Split(std::string_view line, std::vector<std::string_view>& fields) {
  fields.clear();
  bool quoted = false;
  std::size_t start = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] != ',' || quoted) continue;
    fields.push_back(Unquote(line.substr(start, i - start)));
    start = i + 1;
  }
  fields.push_back(Unquote(line.substr(start)));
}

bool ReadWholeMs(std::string_view text, std::int64_t& time_ms) {
  constexpr double kLargest = 9e15;  // whole milliseconds are exact up to here
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || !(std::fabs(value) < kLargest)) return false;
  time_ms = static_cast<std::int64_t>(std::floor(value));
  return true;
}

class CsvParser final : public TraceParser {
 public:
  explicit CsvParser(std::string time_column) : time_column_(std::move(time_column)) {}

  ParsedLine Parse(std::string_view line) override {
    ParsedLine parsed;
    parsed.payload = line;
    if (columns_ == 0) {
      if (line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
      ReadHeader(line);
      parsed.data_id = kCsvHeaderDataId;
      return parsed;
    }
    Split(line, fields_);
    std::int64_t time_ms = 0;
    if (fields_.size() < columns_ || !ReadWholeMs(fields_[time_at_], time_ms)) return parsed;
    parsed.data_id = kCsvSampleDataId;
    parsed.time_ms = time_ms;
    is_unix_time_ = is_unix_time_ || IsUnixTime(time_ms);
    return parsed;
  }

  std::optional<std::int64_t> UnixOffsetMs() const override {
    return is_unix_time_ ? std::optional<std::int64_t>(0) : std::nullopt;
  }

  bool IsComplete(std::string& reason) const override {
    if (columns_ == 0) reason = "no header line";
    return columns_ > 0;
  }

 private:
  void ReadHeader(std::string_view line) {
    Split(line, fields_);
    for (std::size_t i = fields_.size(); i-- > 0;) {
      if (fields_[i] != time_column_) continue;
      time_at_ = i;
      columns_ = fields_.size();
    }
    if (columns_ == 0) throw Failure("no column '" + time_column_ + "' in the header line");
  }

  const std::string time_column_;
  std::vector<std::string_view> fields_;  // kept from line to line
  std::size_t columns_ = 0;               // 0: the header has not been read
  std::size_t time_at_ = 0;
  bool is_unix_time_ = false;
};

}  // namespace

std::unique_ptr<TraceParser> MakeCsvParser(const std::string& time_column) {
  return std::make_unique<CsvParser>(time_column);
}

}  // namespace kestrav::tool
