#ifndef KESTRAV_HOST_IO_STREAM_H_
#define KESTRAV_HOST_IO_STREAM_H_

#include <cstddef>
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
  std::span<const std::uint8_t> View(std::uint32_t size) {
    if (size > ViewSize() && !LoadView(size)) return {};
    return {view_, view_end_};
  }
  // Moves the position over `size` bytes of the last view.
  void Advance(std::uint32_t size) { view_ += size; }

 protected:
  // What `View` shows from now on: from the position to `end`. A stream that shows nothing need not
  // call it.
  void SetView(const std::uint8_t* begin, const std::uint8_t* end) {
    view_ = begin;
    view_end_ = end;
  }
  // What `Advance` has left of it.
  std::size_t ViewSize() const { return static_cast<std::size_t>(view_end_ - view_); }

  // Sets a view of at least `size` bytes. false: there is none to be had.
  [[nodiscard]] virtual bool LoadView(std::uint32_t /*size*/) { return false; }

 private:
  // Here, so that looking at the next record calls nothing.
  const std::uint8_t* view_ = nullptr;
  const std::uint8_t* view_end_ = nullptr;
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
  std::uint8_t* Reserve(std::uint32_t size) {
    return size <= RoomSize() || MakeRoom(size) ? room_ : nullptr;
  }
  // The same without making room. Null: there is too little of it now.
  std::uint8_t* Room(std::uint32_t size) const { return size <= RoomSize() ? room_ : nullptr; }
  void Commit(std::uint32_t size) { room_ += size; }

  // Sets the position, counted from the start. false: it lies beyond the end, or what is buffered
  // could not be handed on; the position is as before.
  [[nodiscard]] virtual bool Seek(std::uint32_t position) = 0;

  virtual std::uint32_t Position() const = 0;

  // Hands what is buffered to the system. false: some of it is still buffered.
  virtual bool Flush() { return true; }

  // Bytes that were taken but not yet handed to the system.
  virtual std::uint32_t Unflushed() const { return 0; }

  // Gives them up: they are not offered again, and the position is where they began.
  virtual void DropUnflushed() {}

 protected:
  // Where `Reserve` gives room from now on. A stream that gives none need not call it.
  void SetRoom(std::uint8_t* begin, std::uint8_t* end) {
    room_ = begin;
    room_end_ = end;
  }

  // What `Commit` has left of it.
  std::size_t RoomSize() const { return static_cast<std::size_t>(room_end_ - room_); }

  // Sets room for at least `size` bytes. false: there is none to be had.
  [[nodiscard]] virtual bool MakeRoom(std::uint32_t /*size*/) { return false; }

 private:
  std::uint8_t* room_ = nullptr;
  std::uint8_t* room_end_ = nullptr;
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_STREAM_H_
