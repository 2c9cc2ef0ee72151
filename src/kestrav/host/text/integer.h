#ifndef KESTRAV_HOST_TEXT_INTEGER_H_
#define KESTRAV_HOST_TEXT_INTEGER_H_

#include <cstdint>
#include <limits>
#include <string_view>

#include "kestrav/host/api.h"

namespace kestrav::Text {

// Reads an unsigned decimal number of at most `max` out of the whole of `text`. Blanks and tabs
// around it and one leading sign are accepted; a minus sign negates modulo 2^32.
// false: anything else, no digit, or a number above `max`; `value` is then unchanged.
[[nodiscard]] KESTRAV_API bool ReadUnsigned(
    std::wstring_view text, std::uint32_t& value,
    std::uint32_t max = std::numeric_limits<std::uint32_t>::max());

}  // namespace kestrav::Text

#endif  // KESTRAV_HOST_TEXT_INTEGER_H_
