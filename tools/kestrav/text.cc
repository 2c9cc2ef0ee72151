#include "text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace kestrav::tool {
namespace {

template <class... Values>
std::string Format(const char* format, Values... values) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

bool IsPrintableByte(char byte) { return byte >= ' ' && byte <= '~'; }

}  // namespace

std::string HumanCount(std::uint64_t count) {
  std::string text = std::to_string(count);
  for (std::size_t at = text.size(); at > 3;) {
    at -= 3;
    text.insert(at, 1, ',');
  }
  return text;
}

std::string Percent(std::uint64_t done, std::uint64_t all) {
  return std::to_string(all == 0 ? 100 : 100 * done / all) + " %";
}

std::string HumanSize(std::uint64_t bytes) {
  if (bytes < 1000) return Format("%u bytes", static_cast<unsigned>(bytes));
  auto size = static_cast<double>(bytes);
  for (const char* const unit : {"kB", "MB", "GB"}) {
    size /= 1000;
    if (size < 999.95) return Format("%.1f %s", size, unit);
  }
  return Format("%.1f TB", size / 1000);
}

std::string HumanDuration(std::int64_t ms) {
  const long long scnds = ms / 1000;
  const std::string rest = Format("%02lld.%03lld", scnds % 60, static_cast<long long>(ms % 1000));
  if (scnds < 3600) return Format("%lld:", scnds / 60) + rest;
  return Format("%lld:%02lld:", scnds / 3600, scnds / 60 % 60) + rest;
}

std::string Utc(std::int64_t unix_scnds) {
  using std::chrono::floor;
  const std::chrono::sys_seconds time{std::chrono::seconds(unix_scnds)};
  const auto day = floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return Format("%04d-%02u-%02u %02d:%02d:%02d UTC", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
}

std::string Seconds(std::int64_t ms) {
  const auto size = static_cast<long long>(ms < 0 ? -ms : ms);
  return Format(ms < 0 ? "-%lld.%03lld" : "%lld.%03lld", size / 1000, size % 1000);
}

std::string OneLine(std::string text) {
  const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text;
}

std::string Fixed(double value, int decimals) { return Format("%.*f", decimals, value); }

std::string Counted(std::uint64_t count, std::string_view one, std::string_view many) {
  return HumanCount(count).append(" ").append(count == 1 ? one : many);
}

void AppendHex(std::string& out, const std::uint8_t* data, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const std::size_t start = out.size();
  out.resize(start + 2 * size);
  char* at = out.data() + start;
  for (std::size_t i = 0; i < size; ++i) {
    *at++ = kDigits[data[i] >> 4];
    *at++ = kDigits[data[i] & 0xF];
  }
}

bool IsPrintable(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), IsPrintableByte);
}

std::string Printable(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    if (IsPrintableByte(byte)) {
      text += byte;
    } else {
      text += Format("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    }
  }
  return text;
}

}  // namespace kestrav::tool
