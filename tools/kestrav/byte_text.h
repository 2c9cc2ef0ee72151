#ifndef KESTRAV_TOOLS_BYTE_TEXT_H_
#define KESTRAV_TOOLS_BYTE_TEXT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "kestrav/host/memory/byte_order.h"

// Little-endian integers in a string of bytes.

namespace kestrav::tool {

template <class Integer>
void PutInteger(std::string& out, std::size_t at, Integer value) {
  Memory::PutLittleEndian(reinterpret_cast<std::uint8_t*>(out.data() + at), value);
}

template <class Integer>
void AppendInteger(std::string& out, Integer value) {
  std::array<std::uint8_t, sizeof(Integer)> bytes;
  Memory::PutLittleEndian(bytes.data(), value);
  out.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_BYTE_TEXT_H_
