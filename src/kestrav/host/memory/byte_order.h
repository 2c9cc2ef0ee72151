#ifndef KESTRAV_HOST_MEMORY_BYTE_ORDER_H_
#define KESTRAV_HOST_MEMORY_BYTE_ORDER_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestrav::Memory {

// Little-endian integers at any address, on hosts of either byte order.
template <class T>
void PutLittleEndian(std::uint8_t* out, T value) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(out, &value, sizeof(T));
    return;
  }
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    out[i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
  }
}

template <class T>
T GetLittleEndian(const std::uint8_t* in) {
  if constexpr (std::endian::native == std::endian::little) {
    T whole;
    std::memcpy(&whole, in, sizeof(T));
    return whole;
  }
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) value |= std::uint64_t{in[i]} << (8 * i);
  return static_cast<T>(value);
}

}  // namespace kestrav::Memory

#endif  // KESTRAV_HOST_MEMORY_BYTE_ORDER_H_
