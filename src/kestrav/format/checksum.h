#ifndef KESTRAV_FORMAT_CHECKSUM_H_
#define KESTRAV_FORMAT_CHECKSUM_H_

#include <cstdint>

#include "kestrav/host/api.h"

namespace kestrav {

// The XOR of all bytes, 0 for none.
KESTRAV_API std::uint8_t ComputeChecksum(const std::uint8_t* data, std::uint32_t size);

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_CHECKSUM_H_
