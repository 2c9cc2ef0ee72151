#ifndef KESTRAV_HOST_TEXT_STRING_H_
#define KESTRAV_HOST_TEXT_STRING_H_

#include <string>
#include <string_view>

#include "kestrav/host/api.h"

namespace kestrav {

// One code point a character; compared character by character by numeric value.
using String = std::wstring;

namespace Text {

// UTF-8 of `text`; a value that is no code point becomes U+FFFD. Throws std::bad_alloc only.
KESTRAV_API std::string ToUtf8(std::wstring_view text);

// The text that `bytes` holds in UTF-8; each byte that belongs to no valid sequence becomes U+FFFD.
// Throws std::bad_alloc only.
KESTRAV_API String FromUtf8(std::string_view bytes);

// Whether the low 16 bits of `character` are an upper or lower case letter (Unicode categories Lu
// and Ll). A character above U+FFFF counts as the one with the same low 16 bits.
KESTRAV_API bool IsLetter(wchar_t character);

}  // namespace Text
}  // namespace kestrav

#endif  // KESTRAV_HOST_TEXT_STRING_H_
