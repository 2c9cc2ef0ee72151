#include "kestrav/host/io/memory_stream.h"

#include <cstring>

namespace kestrav::Io {

bool MemoryInputStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining()) return false;
  if (size > 0) std::memcpy(data, View(size).data(), size);
  Advance(size);
  return true;
}

bool MemoryInputStream::Seek(std::uint32_t position) {
  if (position > size_) return false;
  SetView(data_ + position, data_ + size_);
  return true;
}

bool MemoryOutputStream::Write(const std::uint8_t* data, std::uint32_t size) {
  if (position_ > block_.Size() || size > block_.Size() - position_) return false;
  if (size > 0) std::memcpy(block_.Data() + position_, data, size);
  position_ += size;
  return true;
}

bool MemoryOutputStream::Seek(std::uint32_t position) {
  if (position > block_.Size()) return false;
  position_ = position;
  return true;
}

}  // namespace kestrav::Io
