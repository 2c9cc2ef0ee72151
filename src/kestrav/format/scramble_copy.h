#ifndef KESTRAV_FORMAT_SCRAMBLE_COPY_H_
#define KESTRAV_FORMAT_SCRAMBLE_COPY_H_

#include <cstddef>
#include <cstdint>

namespace kestrav {

// XORs `size` bytes at `data` with `key` where they stand, copies them to `copy` and returns the
// XOR of the bytes as they stood, all in one pass. In the widest vectors that the processor knows,
// which is worth the call from some hundred bytes on.
std::uint8_t ScrambleCopy(std::uint8_t* data, std::uint8_t* copy, std::size_t size,
                          std::uint8_t key);

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_SCRAMBLE_COPY_H_
