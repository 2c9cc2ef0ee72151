#!/usr/bin/env python3
"""Writes src/kestrav/host/text/letters.cc: the upper and lower case letters among the first 65,536
code points, as ranges, from Python's Unicode data."""
import pathlib
import unicodedata

ranges = []
for code in range(0x10000):
    if unicodedata.category(chr(code)) not in ("Lu", "Ll"):
        continue
    if ranges and ranges[-1][1] == code - 1:
        ranges[-1][1] = code
    else:
        ranges.append([code, code])

rows = [f"{{0x{first:04X}, 0x{last:04X}}}," for first, last in ranges]
lines = ["    " + " ".join(rows[i:i + 5]) for i in range(0, len(rows), 5)]
text = f"""// Made by scripts/make_letters.py from Unicode {unicodedata.unidata_version}; do not edit.
#include <algorithm>
#include <cstdint>
#include <iterator>

#include "kestrav/host/text/string.h"

namespace kestrav::Text {{
namespace {{

struct Range {{
  std::uint16_t first;
  std::uint16_t last;
}};

// clang-format off
constexpr Range kLetters[] = {{
{chr(10).join(lines)}
}};
// clang-format on

}}  // namespace

bool IsLetter(wchar_t character) {{
  const auto code = static_cast<std::uint16_t>(character);
  const Range* next = std::upper_bound(std::begin(kLetters), std::end(kLetters), code,
                                       [](std::uint16_t c, const Range& r) {{ return c < r.first; }});
  return next != std::begin(kLetters) && code <= std::prev(next)->last;
}}

}}  // namespace kestrav::Text
"""
target = pathlib.Path(__file__).parent.parent / "src/kestrav/host/text/letters.cc"
target.write_text(text, encoding="ascii")
