#include "kestrav/format/checksum.h"

#include <cstring>

namespace kestrav {

std::uint8_t ComputeChecksum(const std::uint8_t* data, std::uint32_t size) {
  // XOR does not care about order: eight bytes at a time, folded at the end.
  std::uint64_t wide = 0;
  std::uint32_t done = 0;
  for (; size - done >= sizeof(wide); done += sizeof(wide)) {
    std::uint64_t word;
    std::memcpy(&word, data + done, sizeof(word));
    wide ^= word;
  }
  wide ^= wide >> 32;
  wide ^= wide >> 16;
  wide ^= wide >> 8;
  auto checksum = static_cast<std::uint8_t>(wide);
  for (; done < size; ++done) checksum ^= data[done];
  return checksum;
}

}  // namespace kestrav
