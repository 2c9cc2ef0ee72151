#include "kestrav/host/text/string.h"

#include <cstddef>
#include <cstdint>

namespace kestrav::Text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsCodePoint(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

void AppendUtf8(std::string& out, char32_t c) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (c < 0x80) {
    put(c);
    return;
  }
  if (c < 0x800) {
    put(0xC0 | (c >> 6));
  } else {
    if (c < 0x10000) {
      put(0xE0 | (c >> 12));
    } else {
      put(0xF0 | (c >> 18));
      put(0x80 | ((c >> 12) & 0x3F));
    }
    put(0x80 | ((c >> 6) & 0x3F));
  }
  put(0x80 | (c & 0x3F));
}

struct Decoded {
  char32_t character;
  std::size_t length;
};

// The length that the lead byte announces, 0 for a byte that can lead no sequence.
std::size_t SequenceLength(std::uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return lead < 0xF5 ? 4 : 0;
}

Decoded DecodeOne(std::string_view bytes) {
  constexpr Decoded kBad{kReplacement, 1};
  constexpr std::uint8_t kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<std::uint8_t>(bytes[0]);
  const std::size_t length = SequenceLength(lead);
  if (length == 0 || length > bytes.size()) return kBad;
  char32_t c = lead & kLeadBits[length];
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<std::uint8_t>(bytes[i]);
    if ((byte & 0xC0) != 0x80) return kBad;
    c = (c << 6) | (byte & 0x3F);
  }
  if (c < kSmallest[length] || !IsCodePoint(c)) return kBad;
  return {c, length};
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t w : text) {
    const auto c = static_cast<char32_t>(w);
    AppendUtf8(out, IsCodePoint(c) ? c : kReplacement);
  }
  return out;
}

String FromUtf8(std::string_view bytes) {
  String out;
  out.reserve(bytes.size());
  while (!bytes.empty()) {
    const Decoded decoded = DecodeOne(bytes);
    out.push_back(static_cast<wchar_t>(decoded.character));
    bytes.remove_prefix(decoded.length);
  }
  return out;
}

}  // namespace kestrav::Text
