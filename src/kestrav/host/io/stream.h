#ifndef KESTRAV_HOST_IO_STREAM_H_
#define KESTRAV_HOST_IO_STREAM_H_

#include <cstdint>
#include <span>

#include "kestrav/host/api.h"

namespace kestrav::Io {

// A source of bytes with a position. One thread at a time.
class KESTRAV_API IInputStream {
 public:
  virtual ~IInputStream() = default;

  // Reads exactly `size` bytes. false: fewer remain or the read failed; the position is as before.
  [[nodiscard]] virtual bool Read(std::uint8_t* data, std::uint32_t size) = 0;

  // Sets the position, counted from the start. false: it lies beyond the end; nothing moved.
  [[nodiscard]] virtual bool Seek(std::uint32_t position) = 0;

  virtual std::uint32_t Position() const = 0;

  // Bytes from the position to the end.
  virtual std::uint32_t Remaining() const = 0;

  // For readers that want no copy: the bytes from the position on that lie side by side in memory,
  // at least `size` of them. They stay until the next call of another operation than `Advance`, and
  // the position does not move. Empty: there are none to be had, use `Read`.
  virtual std::span<const std::uint8_t> View(std::uint32_t /*size*/) { return {}; }

  // Moves the position over `size` bytes of the last view.
  virtual void Advance(std::uint32_t size) { static_cast<void>(Seek(Position() + size)); }
};

// A sink for bytes with a position. One thread at a time.
class KESTRAV_API IOutputStream {
 public:
  virtual ~IOutputStream() = default;

  // Writes all `size` bytes at the position, or none. false: nothing was written, the position is
  // as before, and a later write may succeed.
  [[nodiscard]] virtual bool Write(const std::uint8_t* data, std::uint32_t size) = 0;

  // For writers that want no copy: room for `size` bytes at the position, which `Commit` then
  // writes as `Write` would have. Any other call gives the room back. Null: use `Write`.
  virtual std::uint8_t* Reserve(std::uint32_t /*size*/) { return nullptr; }
  virtual void Commit(std::uint32_t /*size*/) {}

  // Sets the position, counted from the start. false: it lies beyond the end, or what is buffered
  // could not be handed on; the position is as before.
  [[nodiscard]] virtual bool Seek(std::uint32_t position) = 0;

  virtual std::uint32_t Position() const = 0;

  // Hands what is buffered to the system. false: some of it is still buffered.
  virtual bool Flush() { return true; }
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_STREAM_H_
