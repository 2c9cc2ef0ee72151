#include "csv_text.h"

#include <charconv>

#include "text.h"

namespace kestrav::tool {
namespace {

constexpr std::string_view kFormulaStarts = "=+-@\t\r\n";

bool IsNumber(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  if (text.find_first_not_of("+-.0123456789eE") != std::string_view::npos) return false;
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return stop == end && error != std::errc::invalid_argument;
}

}  // namespace

bool LooksLikeFormula(std::string_view text) {
  return !text.empty() && kFormulaStarts.find(text[0]) != std::string_view::npos && !IsNumber(text);
}

void AppendCsvText(std::string& out, std::string_view text) {
  const bool padded = !text.empty() && (text.front() == ' ' || text.back() == ' ');
  if (!padded && text.find_first_of("\",\r\n") == std::string_view::npos) {
    out += text;
    return;
  }
  out += '"';
  for (std::size_t quote; (quote = text.find('"')) != std::string_view::npos;) {
    out.append(text.substr(0, quote + 1)).push_back('"');
    text.remove_prefix(quote + 1);
  }
  out.append(text).push_back('"');
}

void AppendCsvHex(std::string& out, std::string_view bytes) {
  if (bytes.empty()) return;
  out += "0x";
  AppendHex(out, bytes);
}

void AppendCsvPayload(std::string& out, std::string_view payload) {
  const bool as_text = IsText(payload) && !LooksLikeFormula(payload);
  if (as_text) AppendCsvText(out, payload);
  out += ',';
  if (!as_text) AppendCsvHex(out, payload);
}

std::string CsvName(const std::string& name) {
  std::string text = IsText(name) ? name : Printable(name);
  if (LooksLikeFormula(text)) {
    std::string first = "\\x";
    AppendHex(first, std::string_view(text).substr(0, 1));
    text.replace(0, 1, first);
  }
  std::string field;
  AppendCsvText(field, text);
  return field;
}

}  // namespace kestrav::tool
