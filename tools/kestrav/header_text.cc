#include "header_text.h"

#include "text.h"

namespace kestrav::tool {

std::string Hex(std::uint32_t value) {
  std::string text = "0x";
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(value >> 8),
                                static_cast<std::uint8_t>(value)};
  const bool wide = value > 0xFF;
  AppendHex(text, wide ? bytes : bytes + 1, wide ? 2 : 1);
  return text;
}

std::string DurationText(const BinaryLogStreamHeader& header) {
  return header.stream_length == 0 ? "unknown" : HumanDuration(header.recording_duration);
}

std::string StreamLengthText(const BinaryLogStreamHeader& header) {
  return header.stream_length == 0 ? "unknown" : HumanCount(header.stream_length) + " bytes";
}

}  // namespace kestrav::tool
