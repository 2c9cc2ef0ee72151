#include "text.h"

#include <algorithm>
#include <array>
#include <charconv>
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

bool IsTextByte(unsigned char byte) {
  return byte >= ' ' ? byte != 0x7F : byte == '\t' || byte == '\n' || byte == '\r';
}

// The bytes of the UTF-8 sequence that begins with a byte above 0x7F; 0: it is not valid.
std::size_t SequenceSize(std::string_view bytes) {
  const auto at = [&](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
  };
  const auto follows = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80; };
  const unsigned first = at(0);
  const unsigned second = at(1);
  if (first < 0xC2 || first > 0xF4 || !follows(1)) return 0;
  // C1 controls; overlong forms, surrogates and what lies beyond Unicode
  if (first < 0xE0) return first == 0xC2 && second < 0xA0 ? 0 : 2;
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) || !follows(2)) return 0;
  if (first < 0xF0) return 3;
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F) || !follows(3)) return 0;
  return 4;
}

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

void AppendNumber(std::string& out, std::uint64_t value) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  out.append(digits.data(), end);
}

void AppendHex(std::string& out, std::string_view bytes) {
  AppendHex(out, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
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

bool IsText(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (byte < 0x80) {
      if (!IsTextByte(byte)) return false;
      ++at;
      continue;
    }
    const std::size_t size = SequenceSize(bytes.substr(at, 4));
    if (size == 0) return false;
    at += size;
  }
  return true;
}

void AppendJsonString(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (c >= 0 && c < ' ') {
      out += Format("\\u%04x", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  out += '"';
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
