#ifndef KESTRAV_TOOLS_CAN_FRAME_H_
#define KESTRAV_TOOLS_CAN_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// CAN frames as payloads: 16 bytes as the Linux kernel hands them out on a little-endian machine.
// The id with its flags (4), the length (1), three zeros, the data (8, unused ones 0).

namespace kestrav::tool {

inline constexpr std::size_t kCanFrameSize = 16;
inline constexpr std::size_t kCanDataOffset = 8;
inline constexpr std::size_t kCanLongestData = 8;
inline constexpr std::uint32_t kCanExtendedFlag = 0x80000000;
inline constexpr std::uint32_t kCanRemoteFlag = 0x40000000;
inline constexpr std::uint32_t kCanErrorFlag = 0x20000000;
inline constexpr std::uint32_t kCanStandardIds = 0x7FF;
inline constexpr std::uint32_t kCanExtendedIds = 0x1FFFFFFF;

// Whether the payload can be a frame: its id is one, and all that a frame leaves unused is 0.
bool IsCanFrame(std::string_view payload);

// Of a payload that is a frame:
std::uint32_t CanId(std::string_view frame);  // with the flags
std::size_t CanLength(std::string_view frame);
// None of a remote frame.
std::string_view CanData(std::string_view frame);

// Appends the digits of the id, three or, of an extended or error frame, eight.
void AppendCanId(std::string& out, std::string_view frame);
// Appends the frame as candump writes it: 12D#800000000A9A0001, 00000123#R2.
void AppendCanFrame(std::string& out, std::string_view frame);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CAN_FRAME_H_
