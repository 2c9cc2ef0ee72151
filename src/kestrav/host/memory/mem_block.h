#ifndef KESTRAV_HOST_MEMORY_MEM_BLOCK_H_
#define KESTRAV_HOST_MEMORY_MEM_BLOCK_H_

#include <cstdint>
#include <memory>

#include "kestrav/host/api.h"

namespace kestrav::Memory {

// A growable byte buffer that owns its bytes. Not thread-safe. Copies are explicit (`Assign`),
// since they can fail.
class KESTRAV_API MemBlock {
 public:
  MemBlock() = default;
  MemBlock(MemBlock&& other) noexcept;
  MemBlock& operator=(MemBlock&& other) noexcept;

  // Makes the size `size` bytes; the bytes up to the smaller of the old and the new size are kept,
  // further ones are undefined. false: memory is short and nothing changed.
  [[nodiscard]] bool Resize(std::uint32_t size);

  // Replaces the content with a copy. false: memory is short and nothing changed.
  // `data` may be null only when `size` is 0.
  [[nodiscard]] bool Assign(const std::uint8_t* data, std::uint32_t size);

  // Empties the block and frees its memory.
  void Clear();

  void FillWithZeros();

  // Null while no memory is held.
  std::uint8_t* Data() { return data_.get(); }
  const std::uint8_t* Data() const { return data_.get(); }
  std::uint32_t Size() const { return size_; }
  bool IsEmpty() const { return size_ == 0; }

 private:
  std::unique_ptr<std::uint8_t[]> data_;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
};

}  // namespace kestrav::Memory

#endif  // KESTRAV_HOST_MEMORY_MEM_BLOCK_H_
