#include "payload_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>

#include "kestrav/host/memory/byte_order.h"
#include "text.h"

namespace kestrav::tool {
namespace {

// Whether the payload can be a CAN frame: all bytes that a frame leaves unused are 0.
bool IsFrame(const LogMessage& message) {
  constexpr std::uint32_t kFrameSize = 16;
  const std::uint8_t* const data = message.GetDataPointer();
  if (message.GetDataSize() != kFrameSize || data[4] > 8) return false;
  const bool remote = (data[3] & 0x40) != 0;
  const auto is_zero = [](std::uint8_t byte) { return byte == 0; };
  return std::all_of(data + 5, data + 8, is_zero) &&
         std::all_of(data + 8 + (remote ? 0 : data[4]), data + kFrameSize, is_zero);
}

void AppendFrame(std::string& out, const std::uint8_t* data) {
  constexpr std::uint32_t kExtended = 0x80000000;
  constexpr std::uint32_t kRemote = 0x40000000;
  constexpr std::uint32_t kError = 0x20000000;
  const auto id = Memory::GetLittleEndian<std::uint32_t>(data);
  const bool wide = (id & (kExtended | kError)) != 0;
  std::array<char, 16> text;
  std::snprintf(text.data(), text.size(), wide ? "%08X#" : "%03X#", id & ~(kExtended | kRemote));
  out += text.data();
  if ((id & kRemote) != 0) {
    out += "R" + std::to_string(data[4]);
    return;
  }
  std::string hex;
  AppendHex(hex, data + 8, data[4]);
  for (const char digit : hex) out += static_cast<char>(std::toupper(digit));
}

}  // namespace

std::string_view Payload(const LogMessage& message) {
  return {reinterpret_cast<const char*>(message.GetDataPointer()), message.GetDataSize()};
}

void AppendPayloadText(std::string& out, const LogMessage& message) {
  if (IsPrintable(Payload(message))) {
    out += Payload(message);
  } else if (IsFrame(message)) {
    AppendFrame(out, message.GetDataPointer());
  } else {
    AppendHex(out, message.GetDataPointer(), message.GetDataSize());
  }
}

}  // namespace kestrav::tool
