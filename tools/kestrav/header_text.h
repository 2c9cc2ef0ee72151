#ifndef KESTRAV_TOOLS_HEADER_TEXT_H_
#define KESTRAV_TOOLS_HEADER_TEXT_H_

#include <cstdint>
#include <string>

#include "kestrav/format/stream_header.h"

// What a stream header says, as people read it.

namespace kestrav::tool {

std::string Hex(std::uint32_t value);  // 0x07, 0x9000
std::string DurationText(const BinaryLogStreamHeader& header);
// "unknown" when the recording was not finished.
std::string StreamLengthText(const BinaryLogStreamHeader& header);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_HEADER_TEXT_H_
