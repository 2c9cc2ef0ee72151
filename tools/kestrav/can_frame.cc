#include "can_frame.h"

#include "kestrav/host/memory/byte_order.h"

namespace kestrav::tool {
namespace {

constexpr std::size_t kLengthOffset = 4;

void AppendUpperHex(std::string& out, std::uint32_t value, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    out += "0123456789ABCDEF"[value >> shift & 0xF];
  }
}

}  // namespace

std::uint32_t CanId(std::string_view frame) {
  return Memory::GetLittleEndian<std::uint32_t>(
      reinterpret_cast<const std::uint8_t*>(frame.data()));
}

std::size_t CanLength(std::string_view frame) {
  return static_cast<std::uint8_t>(frame[kLengthOffset]);
}

std::string_view CanData(std::string_view frame) {
  const bool remote = (CanId(frame) & kCanRemoteFlag) != 0;
  return frame.substr(kCanDataOffset, remote ? 0 : CanLength(frame));
}

bool IsCanFrame(std::string_view payload) {
  if (payload.size() != kCanFrameSize || CanLength(payload) > kCanLongestData) return false;
  const std::uint32_t id = CanId(payload);
  const bool wide = (id & (kCanExtendedFlag | kCanErrorFlag)) != 0;
  if (!wide && (id & kCanExtendedIds) > kCanStandardIds) return false;
  const auto is_zero = [](std::string_view bytes) {
    return bytes.find_first_not_of('\0') == std::string_view::npos;
  };
  return is_zero(payload.substr(kLengthOffset + 1, kCanDataOffset - kLengthOffset - 1)) &&
         is_zero(payload.substr(kCanDataOffset + CanData(payload).size()));
}

void AppendCanId(std::string& out, std::string_view frame) {
  const std::uint32_t id = CanId(frame);
  const bool wide = (id & (kCanExtendedFlag | kCanErrorFlag)) != 0;
  AppendUpperHex(out, id & ~(kCanExtendedFlag | kCanRemoteFlag), wide ? 8 : 3);
}

void AppendCanFrame(std::string& out, std::string_view frame) {
  AppendCanId(out, frame);
  out += '#';
  if ((CanId(frame) & kCanRemoteFlag) != 0) {
    out += 'R';
    if (CanLength(frame) > 0) out += static_cast<char>('0' + CanLength(frame));
    return;
  }
  for (const char byte : CanData(frame)) AppendUpperHex(out, static_cast<std::uint8_t>(byte), 2);
}

}  // namespace kestrav::tool
