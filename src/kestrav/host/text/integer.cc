#include "kestrav/host/text/integer.h"

namespace kestrav::Text {
namespace {

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

std::wstring_view Trimmed(std::wstring_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace

bool ReadUnsigned(std::wstring_view text, std::uint32_t& value, std::uint32_t max) {
  std::wstring_view digits = Trimmed(text);
  const bool negative = !digits.empty() && digits.front() == L'-';
  if (negative || (!digits.empty() && digits.front() == L'+')) digits.remove_prefix(1);
  if (digits.empty()) return false;
  std::uint64_t number = 0;
  for (const wchar_t c : digits) {
    if (c < L'0' || c > L'9') return false;
    number = number * 10 + static_cast<std::uint64_t>(c - L'0');
    if (number > max) return false;
  }
  const auto magnitude = static_cast<std::uint32_t>(number);
  value = negative ? 0U - magnitude : magnitude;
  return true;
}

}  // namespace kestrav::Text
