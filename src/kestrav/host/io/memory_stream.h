#ifndef KESTRAV_HOST_IO_MEMORY_STREAM_H_
#define KESTRAV_HOST_IO_MEMORY_STREAM_H_

#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"

namespace kestrav::Io {

// Reads the bytes of a block, which it does not own and which must not change meanwhile.
class KESTRAV_API MemoryInputStream : public IInputStream {
 public:
  explicit MemoryInputStream(const Memory::MemBlock& block)
      : MemoryInputStream(block.Data(), block.Size()) {}
  MemoryInputStream(const std::uint8_t* data, std::uint32_t size) { SetBytes(data, size); }

  [[nodiscard]] bool Read(std::uint8_t* data, std::uint32_t size) override;
  [[nodiscard]] bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override { return size_ - Remaining(); }
  std::uint32_t Remaining() const override { return static_cast<std::uint32_t>(ViewSize()); }

 protected:
  // Starts again with these bytes.
  void SetBytes(const std::uint8_t* data, std::uint32_t size) {
    data_ = data;
    size_ = size;
    SetView(data, data + size);
  }

 private:
  const std::uint8_t* data_ = nullptr;
  std::uint32_t size_ = 0;
};

// Writes over the bytes of a block, which it does not own and does not grow: what does not fit is
// refused.
class KESTRAV_API MemoryOutputStream final : public IOutputStream {
 public:
  explicit MemoryOutputStream(Memory::MemBlock& block) : block_(block) {}

  [[nodiscard]] bool Write(const std::uint8_t* data, std::uint32_t size) override;
  [[nodiscard]] bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override { return position_; }

 private:
  Memory::MemBlock& block_;
  std::uint32_t position_ = 0;
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_MEMORY_STREAM_H_
