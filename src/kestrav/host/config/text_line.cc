#include "kestrav/host/config/text_line.h"

#include <algorithm>
#include <optional>

#include "kestrav/host/text/string.h"

namespace kestrav::Config {
namespace {

constexpr char kQuote = '"';
constexpr std::size_t kHexDigits = 4;  // of "\u0085"

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view WithoutEnd(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

// Also what an editor may take for the end of a line.
bool IsControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
}

std::wstring Escaped(wchar_t c) {
  switch (c) {
    case L'\n':
      return L"\\n";
    case L'\r':
      return L"\\r";
    case L'\t':
      return L"\\t";
    case L'"':
    case L'\\':
      return {L'\\', c};
    default:
      break;
  }
  if (!IsControl(c)) return {c};
  std::wstring text = L"\\u";
  for (int shift = 12; shift >= 0; shift -= 4) text += L"0123456789abcdef"[(c >> shift) & 0xF];
  return text;
}

std::string Quoted(std::string_view text) {
  std::wstring quoted = L"\"";
  for (const wchar_t c : Text::FromUtf8(text)) quoted += Escaped(c);
  return Text::ToUtf8(quoted + L"\"");
}

bool IsPlain(std::string_view text) {
  if (text.empty() || text.front() == kQuote || Trimmed(text) != text) return false;
  const String characters = Text::FromUtf8(text);
  return std::none_of(characters.begin(), characters.end(), IsControl);
}

std::optional<wchar_t> HexValue(std::string_view digits) {
  wchar_t value = 0;
  for (const char c : digits) {
    const std::size_t digit = std::string_view("0123456789abcdefABCDEF").find(c);
    if (digit == std::string_view::npos) return std::nullopt;
    value = value * 16 + static_cast<wchar_t>(digit < 16 ? digit : digit - 6);
  }
  const bool is_surrogate = value >= 0xD800 && value < 0xE000;
  return digits.size() == kHexDigits && !is_surrogate ? std::optional(value) : std::nullopt;
}

// Takes the rest of an escape, what follows its backslash, off the front of `text`.
bool TakeEscape(std::string_view& text, std::string& out) {
  constexpr std::string_view kLetters = "\"\\nrt";
  constexpr std::string_view kMeanings = "\"\\\n\r\t";
  if (text.empty()) return false;
  const char letter = text.front();
  text.remove_prefix(1);
  if (const std::size_t at = kLetters.find(letter); at != std::string_view::npos) {
    out += kMeanings[at];
    return true;
  }
  const std::optional<wchar_t> value = HexValue(text.substr(0, kHexDigits));
  if (letter != 'u' || !value) return false;
  text.remove_prefix(kHexDigits);
  out += Text::ToUtf8({&*value, 1});
  return true;
}

// Takes a quoted text off the front of `text`. false: it does not end, or an escape is wrong.
bool TakeQuoted(std::string_view& text, std::string& out) {
  text.remove_prefix(1);
  while (!text.empty()) {
    const char c = text.front();
    text.remove_prefix(1);
    if (c == kQuote) return true;
    if (c != '\\') {
      out += c;
    } else if (!TakeEscape(text, out)) {
      return false;
    }
  }
  return false;
}

// The text that `written`, blanks around it removed, stands for.
bool Unwrap(std::string_view written, std::string& text) {
  if (!IsUtf8(written)) return false;
  text.clear();
  if (!written.starts_with(kQuote)) {
    text = written;
    return true;
  }
  return TakeQuoted(written, text) && written.empty();
}

TextLine ReadSection(std::string_view text) {
  TextLine line{TextLine::Kind::kBadSection, {}, 0, 0};
  if (!text.ends_with(']')) return line;
  const std::string_view name = Trimmed(text.substr(1, text.size() - 2));
  if (!name.empty() && Unwrap(name, line.name)) line.kind = TextLine::Kind::kSection;
  return line;
}

// The length of an entry's name as it is written, up to its "=".
std::size_t WrittenNameSize(std::string_view text) {
  std::string_view rest = text;
  std::string name;
  if (text.starts_with(kQuote) && !TakeQuoted(rest, name)) return std::string_view::npos;
  const std::size_t sign = rest.find('=');
  return sign == std::string_view::npos ? sign : text.size() - rest.size() + sign;
}

// `text` ends where the line does, or at blanks.
TextLine ReadEntry(std::string_view whole, std::string_view text) {
  TextLine line{TextLine::Kind::kUnreadable, {}, 0, 0};
  const std::size_t size = WrittenNameSize(text);
  if (size == std::string_view::npos) return line;
  const std::string_view name = Trimmed(text.substr(0, size));
  if (name.empty() || !Unwrap(name, line.name)) return line;
  line.kind = TextLine::Kind::kEntry;
  std::string_view value = text.substr(size + 1);
  while (!value.empty() && IsBlank(value.front())) value.remove_prefix(1);
  line.value_at = static_cast<std::size_t>(value.data() - whole.data());
  line.value_size = value.size();
  return line;
}

}  // namespace

bool IsUtf8(std::string_view bytes) { return Text::ToUtf8(Text::FromUtf8(bytes)) == bytes; }

TextLine ReadLine(std::string_view line) {
  const std::string_view text = Trimmed(WithoutEnd(line));
  if (text.empty()) return {TextLine::Kind::kBlank, {}, 0, 0};
  switch (text.front()) {
    case '#':
    case ';':
      return {TextLine::Kind::kComment, {}, 0, 0};
    case '[':
      return ReadSection(text);
    default:
      return ReadEntry(line, text);
  }
}

bool ReadValue(std::string_view written, std::string& value) {
  std::string text;
  if (!Unwrap(written, text)) return false;
  value = std::move(text);
  return true;
}

std::string WrittenName(std::string_view name) {
  const bool clear = IsPlain(name) && name.find_first_of("\"=[]#;") == std::string_view::npos;
  return clear ? std::string(name) : Quoted(name);
}

std::string WrittenValue(std::string_view value) {
  return IsPlain(value) ? std::string(value) : Quoted(value);
}

}  // namespace kestrav::Config
