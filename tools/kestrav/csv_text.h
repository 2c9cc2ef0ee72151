#ifndef KESTRAV_TOOLS_CSV_TEXT_H_
#define KESTRAV_TOOLS_CSV_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

// Fields of a CSV table as RFC 4180 has them, in UTF-8, such that no spreadsheet takes text for a
// formula or hex digits for a number.

namespace kestrav::tool {

inline constexpr std::string_view kCsvLineEnd = "\r\n";

// Whether a spreadsheet could compute what it was given: text that begins as a formula does and is
// no plain number.
bool LooksLikeFormula(std::string_view text);

// Appends valid UTF-8 as one field, quoted where that is needed.
void AppendCsvText(std::string& out, std::string_view text);
// Appends bytes as one field: 0x0A1B; of none an empty one.
void AppendCsvHex(std::string& out, std::string_view bytes);
// Appends two fields, one of which is empty: the payload as text, or in hex when it is no text or
// looks like a formula.
void AppendCsvPayload(std::string& out, std::string_view payload);
// A client's name as a field; what is no harmless text has its first or all odd bytes as \xHH.
std::string CsvName(const std::string& name);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CSV_TEXT_H_
