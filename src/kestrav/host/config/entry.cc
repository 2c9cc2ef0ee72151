#include "kestrav/host/config/entry.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kestrav::Config {
namespace {

bool EqualsAnyCase(std::wstring_view text, std::wstring_view lower) {
  const auto same = [](wchar_t a, wchar_t b) {
    return (a >= L'A' && a <= L'Z' ? a - L'A' + L'a' : a) == b;
  };
  return std::equal(text.begin(), text.end(), lower.begin(), lower.end(), same);
}

bool IsAnyOf(std::wstring_view text, const std::array<std::wstring_view, 4>& words) {
  return std::any_of(words.begin(), words.end(),
                     [&](std::wstring_view word) { return EqualsAnyCase(text, word); });
}

}  // namespace

Entry::Entry(String name, String key) : name_(std::move(name)), key_(std::move(key)) {}

bool Entry::Load(const String& text) {
  kept_ = true;  // also when memory runs out
  kept_ = !FromText(text);
  return !kept_;
}

BoolEntry::BoolEntry(String name, String key, bool preset, bool minimum, bool maximum, bool value)
    : Entry(std::move(name), std::move(key)),
      preset_(preset),
      minimum_(minimum),
      maximum_(maximum),
      value_(value) {}

bool BoolEntry::SetValue(bool value) {
  if (value < minimum_ || value > maximum_) return false;
  if (value != value_) Changed();
  value_ = value;
  return true;
}

String BoolEntry::ToText() const { return value_ ? L"true" : L"false"; }

bool BoolEntry::FromText(const String& text) {
  const bool on = IsAnyOf(text, {L"true", L"1", L"yes", L"on"});
  return (on || IsAnyOf(text, {L"false", L"0", L"no", L"off"})) && SetValue(on);
}

StringEntry::StringEntry(String name, String key, std::size_t max_length, String value)
    : Entry(std::move(name), std::move(key)), max_length_(max_length), value_(std::move(value)) {
  if (value_.size() > max_length_) value_.resize(max_length_);
}

bool StringEntry::SetValue(const String& value) {
  if (value.size() > max_length_) return false;
  const bool is_new = value != value_;
  value_ = value;
  if (is_new) Changed();
  return true;
}

bool StringEntry::FromText(const String& text) { return SetValue(text); }

}  // namespace kestrav::Config
