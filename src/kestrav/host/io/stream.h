#ifndef KESTRAV_HOST_IO_STREAM_H_
#define KESTRAV_HOST_IO_STREAM_H_

#include <cstdint>

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
};

// A sink for bytes with a position. One thread at a time.
class KESTRAV_API IOutputStream {
 public:
  virtual ~IOutputStream() = default;

  // Writes all `size` bytes at the position, or none. false: nothing was written, the position is
  // as before, and a later write may succeed.
  [[nodiscard]] virtual bool Write(const std::uint8_t* data, std::uint32_t size) = 0;

  // Sets the position, counted from the start. false: it lies beyond the end, or what is buffered
  // could not be handed on; the position is as before.
  [[nodiscard]] virtual bool Seek(std::uint32_t position) = 0;

  virtual std::uint32_t Position() const = 0;

  // Hands what is buffered to the system. false: some of it is still buffered.
  virtual bool Flush() { return true; }
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_STREAM_H_
