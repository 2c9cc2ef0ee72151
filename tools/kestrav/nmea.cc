#include <array>
#include <chrono>

#include "nmea_sentence.h"
#include "trace_parser.h"

// Sentences of satellite receivers: `$GNRMC,021417.00,A,...*4A`.

namespace kestrav::tool {
namespace {

constexpr std::int64_t kDayMs = 24 * 60 * 60 * 1000;
constexpr std::uint16_t kProprietaryDataId = 11;
constexpr std::uint16_t kOtherDataId = 99;

struct SentenceType {
  std::string_view name;
  std::uint16_t data_id;
};
constexpr std::array<SentenceType, 10> kTypes = {{{"RMC", 1},
                                                  {"GGA", 2},
                                                  {"GSA", 3},
                                                  {"GSV", 4},
                                                  {"VTG", 5},
                                                  {"GLL", 6},
                                                  {"ZDA", 7},
                                                  {"GST", 8},
                                                  {"GNS", 9},
                                                  {"TXT", 10}}};

std::uint16_t DataId(std::string_view address) {
  if (address[0] == 'P') return kProprietaryDataId;
  const std::string_view type = address.substr(address.size() - 3);
  for (const SentenceType& known : kTypes) {
    if (type == known.name) return known.data_id;
  }
  return kOtherDataId;
}

// hhmmss or hhmmss.sss
bool ReadTimeOfDay(std::string_view text, std::int64_t& ms) {
  std::int64_t hms = 0;
  if (text.size() < 6 || !ReadDigits(text.substr(0, 6), hms)) return false;
  std::int64_t fraction = 0;
  if (text.size() > 6) {
    std::string digits(text.substr(7, 3));
    if (text[6] != '.' || (text.size() > 7 && !ReadDigits(text.substr(7), fraction))) return false;
    digits.resize(3, '0');
    ReadDigits(digits, fraction);
  }
  const std::int64_t hours = hms / 10000;
  const std::int64_t minutes = hms / 100 % 100;
  const std::int64_t scnds = hms % 100;
  if (hours > 23 || minutes > 59 || scnds > 60) return false;  // 60: a leap second
  ms = ((hours * 60 + minutes) * 60 + scnds) * 1000 + fraction;
  return true;
}

// ddmmyy, as days since 1970
bool ReadDate(std::string_view text, std::int64_t& day) {
  std::int64_t dmy = 0;
  if (text.size() != 6 || !ReadDigits(text, dmy)) return false;
  const auto short_year = static_cast<int>(dmy % 100);
  const std::chrono::year_month_day date(
      std::chrono::year(short_year < 80 ? 2000 + short_year : 1900 + short_year),
      std::chrono::month(static_cast<unsigned>(dmy / 100 % 100)),
      std::chrono::day(static_cast<unsigned>(dmy / 10000)));
  if (!date.ok()) return false;
  day = std::chrono::sys_days(date).time_since_epoch().count();
  return true;
}

// Puts times of day in a row. Until a date is known days count from 0, and go on counting so.
class Calendar {
 public:
  std::int64_t TimeWithoutDate(std::int64_t time_of_day) {
    if (time_of_day < last_time_of_day_ - kDayMs / 2) ++day_;
    if (time_of_day > last_time_of_day_ + kDayMs / 2 && seen_) --day_;
    return Remember(time_of_day);
  }

  std::int64_t TimeWithDate(std::int64_t time_of_day, std::int64_t unix_day) {
    if (!unix_offset_days_) {
      TimeWithoutDate(time_of_day);
      unix_offset_days_ = unix_day - day_;
    }
    day_ = unix_day - *unix_offset_days_;
    return Remember(time_of_day);
  }

  std::optional<std::int64_t> UnixOffsetMs() const {
    if (!unix_offset_days_) return std::nullopt;
    return *unix_offset_days_ * kDayMs;
  }

 private:
  std::int64_t Remember(std::int64_t time_of_day) {
    seen_ = true;
    last_time_of_day_ = time_of_day;
    return day_ * kDayMs + time_of_day;
  }

  bool seen_ = false;
  std::int64_t day_ = 0;
  std::int64_t last_time_of_day_ = 0;
  std::optional<std::int64_t> unix_offset_days_;
};

class NmeaParser final : public TraceParser {
 public:
  ParsedLine Parse(std::string_view line) override {
    ParsedLine parsed;
    parsed.payload = line;
    const std::string_view address = SentenceAddress(line);
    if (address.empty()) return parsed;
    parsed.data_id = DataId(address);
    std::string_view body;
    parsed.wrong_checksum = CheckSentence(line, body) == SentenceChecksum::kWrong;
    // A damaged time could lie years ahead.
    if (!parsed.wrong_checksum) parsed.time_ms = ReadTime(parsed.data_id, body);
    return parsed;
  }

  std::optional<std::int64_t> UnixOffsetMs() const override { return calendar_.UnixOffsetMs(); }

 private:
  std::optional<std::int64_t> ReadTime(std::uint16_t data_id, std::string_view body) {
    constexpr std::uint16_t kRmc = 1;
    constexpr std::uint16_t kGga = 2;
    std::int64_t time_of_day = 0;
    std::int64_t day = 0;
    if (data_id != kRmc && data_id != kGga) return std::nullopt;
    if (!ReadTimeOfDay(SentenceField(body, 1), time_of_day)) return std::nullopt;
    // Before its first fix (status V) a receiver may state any date.
    const bool dated =
        data_id == kRmc && SentenceField(body, 2) != "V" && ReadDate(SentenceField(body, 9), day);
    return dated ? calendar_.TimeWithDate(time_of_day, day)
                 : calendar_.TimeWithoutDate(time_of_day);
  }

  Calendar calendar_;
};

}  // namespace

bool IsNmeaSentence(std::string_view line) { return !SentenceAddress(line).empty(); }

std::string NmeaDataIdTable() {
  std::string table;
  for (const SentenceType& type : kTypes) {
    table += std::string(type.name) + " " + std::to_string(type.data_id) + ", ";
  }
  return table + "proprietary " + std::to_string(kProprietaryDataId) + ", any other " +
         std::to_string(kOtherDataId);
}

std::unique_ptr<TraceParser> MakeNmeaParser() { return std::make_unique<NmeaParser>(); }

}  // namespace kestrav::tool
