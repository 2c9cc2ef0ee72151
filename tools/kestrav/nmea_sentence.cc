#include "nmea_sentence.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace kestrav::tool {

SentenceChecksum CheckSentence(std::string_view line, std::string_view& body) {
  const std::size_t star = line.find('*');
  body = line.substr(1, star == std::string_view::npos ? star : star - 1);
  if (star == std::string_view::npos) return SentenceChecksum::kNone;
  const std::string_view digits = line.substr(star + 1);
  unsigned stated = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, stated, 16);
  if (digits.size() != 2 || error != std::errc() || stop != end) return SentenceChecksum::kWrong;
  unsigned sum = 0;
  for (const char c : body) sum ^= static_cast<unsigned char>(c);
  return sum == stated ? SentenceChecksum::kRight : SentenceChecksum::kWrong;
}

std::string_view SentenceAddress(std::string_view line) {
  constexpr std::size_t kShortest = 4;
  if (line.empty() || (line[0] != '$' && line[0] != '!')) return {};
  const std::string_view address = line.substr(1, line.find_first_of(",*") - 1);
  const auto fits = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); };
  const bool good =
      address.size() >= kShortest && std::all_of(address.begin(), address.end(), fits);
  return good ? address : std::string_view();
}

std::string_view SentenceField(std::string_view body, std::size_t number) {
  for (; number > 0; --number) {
    const std::size_t comma = body.find(',');
    if (comma == std::string_view::npos) return {};
    body.remove_prefix(comma + 1);
  }
  return body.substr(0, body.find(','));
}

}  // namespace kestrav::tool
