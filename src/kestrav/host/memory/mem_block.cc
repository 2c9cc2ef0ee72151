#include "kestrav/host/memory/mem_block.h"

#include <cstring>
#include <new>
#include <utility>

namespace kestrav::Memory {

MemBlock::MemBlock(MemBlock&& other) noexcept
    : data_(std::move(other.data_)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

MemBlock& MemBlock::operator=(MemBlock&& other) noexcept {
  data_ = std::move(other.data_);
  size_ = std::exchange(other.size_, 0);
  capacity_ = std::exchange(other.capacity_, 0);
  return *this;
}

bool MemBlock::Resize(std::uint32_t size) {
  if (size > capacity_) {
    std::unique_ptr<std::uint8_t[]> grown(new (std::nothrow) std::uint8_t[size]);
    if (!grown) return false;
    if (size_ > 0) std::memcpy(grown.get(), data_.get(), size_);
    data_ = std::move(grown);
    capacity_ = size;
  }
  size_ = size;
  return true;
}

bool MemBlock::Assign(const std::uint8_t* data, std::uint32_t size) {
  if (!Resize(size)) return false;
  if (size > 0) std::memmove(data_.get(), data, size);
  return true;
}

void MemBlock::Clear() {
  data_.reset();
  size_ = 0;
  capacity_ = 0;
}

void MemBlock::FillWithZeros() {
  if (size_ > 0) std::memset(data_.get(), 0, size_);
}

}  // namespace kestrav::Memory
