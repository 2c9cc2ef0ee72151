#ifndef KESTRAV_TOOLS_CRC32_H_
#define KESTRAV_TOOLS_CRC32_H_

#include <array>
#include <cstdint>
#include <string_view>

namespace kestrav::tool {

// Per number of zero bytes that follow a byte, what the byte makes of the checksum.
using Crc32Tables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr Crc32Tables MakeCrc32Tables() {
  Crc32Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t sum = byte;
    for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ ((sum & 1) != 0 ? 0xEDB88320 : 0);
    tables[0][byte] = sum;
  }
  for (std::size_t zeros = 1; zeros < tables.size(); ++zeros) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t sum = tables[zeros - 1][byte];
      tables[zeros][byte] = sum >> 8 ^ tables[0][sum & 0xFF];
    }
  }
  return tables;
}

// The checksum of zip, PNG and Ethernet, four bytes at a time.
inline std::uint32_t Crc32(std::string_view bytes) {
  static constexpr Crc32Tables kTables = MakeCrc32Tables();
  std::uint32_t sum = 0xFFFFFFFF;
  const auto at = [&](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i]));
  };
  std::size_t i = 0;
  for (; i + 4 <= bytes.size(); i += 4) {
    sum ^= at(i) | at(i + 1) << 8 | at(i + 2) << 16 | at(i + 3) << 24;
    sum = kTables[3][sum & 0xFF] ^ kTables[2][sum >> 8 & 0xFF] ^ kTables[1][sum >> 16 & 0xFF] ^
          kTables[0][sum >> 24];
  }
  for (; i < bytes.size(); ++i) sum = sum >> 8 ^ kTables[0][(sum ^ at(i)) & 0xFF];
  return ~sum;
}

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CRC32_H_
