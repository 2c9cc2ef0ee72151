#include "kestrav/format/checksum.h"

#include "kestrav/format/xor_copy.h"

namespace kestrav {

std::uint8_t ComputeChecksum(const std::uint8_t* data, std::uint32_t size) {
  return XorSum(data, size);
}

}  // namespace kestrav
