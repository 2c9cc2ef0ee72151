#ifndef KESTRAV_TOOLS_TEXT_H_
#define KESTRAV_TOOLS_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

// Numbers and bytes as people read them.

namespace kestrav::tool {

std::string HumanCount(std::uint64_t count);                 // 45,498
std::string HumanSize(std::uint64_t bytes);                  // 2.8 MB
std::string Percent(std::uint64_t done, std::uint64_t all);  // 42 %
std::string HumanDuration(std::int64_t ms);                  // 28:47.000
std::string Utc(std::int64_t unix_scnds);                    // 2020-02-07 02:14:17 UTC
std::string Seconds(std::int64_t ms);                        // 1727.250
std::string Fixed(double value, int decimals);               // 26.3

// "1 line", "2 lines".
std::string Counted(std::uint64_t count, std::string_view one, std::string_view many);

void AppendNumber(std::string& out, std::uint64_t value);  // 45498
void AppendHex(std::string& out, const std::uint8_t* data, std::size_t size);
void AppendHex(std::string& out, std::string_view bytes);

// The bytes as text, whatever is no printable ASCII as \xHH: safe to write to a terminal.
std::string Printable(std::string_view bytes);
bool IsPrintable(std::string_view bytes);

// Whether the bytes are valid UTF-8 without control characters other than tabs and line ends.
bool IsText(std::string_view bytes);

// Appends valid UTF-8 as a JSON string, with its quotes.
void AppendJsonString(std::string& out, std::string_view text);

// The text with a ? in place of each control character: one line, safe to write to a terminal.
std::string OneLine(std::string text);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_TEXT_H_
