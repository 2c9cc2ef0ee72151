#ifndef KESTRAV_TESTS_UNIT_FORMAT_WINDOW_STREAMS_H_
#define KESTRAV_TESTS_UNIT_FORMAT_WINDOW_STREAMS_H_

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <utility>

#include "support/streams.h"

namespace kestrav::test {

inline constexpr std::uint32_t kNoLimit = std::numeric_limits<std::uint32_t>::max();

// An input stream that shows only so many bytes at a time, as one with a buffer does. It can be
// told to show no more after a while and to seek no more.
class WindowInputStream final : public Io::IInputStream {
 public:
  WindowInputStream(Bytes bytes, std::uint32_t window)
      : bytes_(std::move(bytes)), window_(window) {}

  bool Read(std::uint8_t* data, std::uint32_t size) override {
    ++reads;
    if (size > Remaining()) return false;
    const std::uint32_t at = Position();
    std::copy_n(bytes_.data() + at, size, data);
    MoveTo(at + size);
    return true;
  }
  bool Seek(std::uint32_t position) override {
    if (seeks_left == 0 || position > Size()) return false;
    if (seeks_left != kNoLimit) --seeks_left;
    MoveTo(position);
    return true;
  }
  std::uint32_t Position() const override { return end_ - static_cast<std::uint32_t>(ViewSize()); }
  std::uint32_t Remaining() const override { return Size() - Position(); }

  std::uint32_t views_left = kNoLimit;
  std::uint32_t seeks_left = kNoLimit;
  std::uint32_t reads = 0;

 protected:
  bool LoadView(std::uint32_t size) override {
    if (views_left == 0 || size > window_ || size > Remaining()) return false;
    if (views_left != kNoLimit) --views_left;
    const std::uint32_t at = Position();
    end_ = at + std::min(window_, Remaining());
    SetView(bytes_.data() + at, bytes_.data() + end_);
    return true;
  }

 private:
  std::uint32_t Size() const { return static_cast<std::uint32_t>(bytes_.size()); }
  void MoveTo(std::uint32_t position) {
    end_ = position;
    SetView(nullptr, nullptr);
  }

  const Bytes bytes_;
  const std::uint32_t window_;
  std::uint32_t end_ = 0;  // of the view
};

// An output stream with a buffer of so many bytes, in which records are made where they belong;
// what does not fit the buffer is written in one piece. It takes `limit` bytes in all, and no more
// while it is broken.
class RoomOutputStream final : public Io::IOutputStream {
 public:
  explicit RoomOutputStream(std::uint32_t buffer, std::size_t limit = kNoLimit)
      : buffer_(buffer), limit_(limit) {
    SetRoom(buffer_.data(), buffer_.data());
  }

  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    ++writes;
    if (!Flush() || is_broken || position_ + size > limit_) return false;
    Put(data, size);
    return true;
  }
  bool Seek(std::uint32_t position) override {
    if (!Flush()) return false;
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override {
    return static_cast<std::uint32_t>(position_) + Unflushed();
  }
  // Takes the room back.
  bool Flush() override {
    const std::uint32_t buffered = Unflushed();
    if (is_broken && buffered > 0) return false;
    DropUnflushed();
    Put(buffer_.data(), buffered);
    return true;
  }
  std::uint32_t Unflushed() const override {
    return has_room_ ? static_cast<std::uint32_t>(room_ - RoomSize()) : 0;
  }
  void DropUnflushed() override {
    has_room_ = false;
    SetRoom(buffer_.data(), buffer_.data());
  }

  const Bytes& Content() {
    Flush();
    return bytes_;
  }
  int writes = 0;
  bool is_broken = false;

 protected:
  bool MakeRoom(std::uint32_t size) override {
    if (!Flush() || is_broken) return false;
    const std::size_t room = std::min(buffer_.size(), limit_ - position_);
    if (size > room) return false;
    has_room_ = true;
    room_ = room;
    SetRoom(buffer_.data(), buffer_.data() + room);
    return true;
  }

 private:
  void Put(const std::uint8_t* data, std::uint32_t size) {
    bytes_.resize(std::max(bytes_.size(), position_ + size));
    std::copy_n(data, size, bytes_.begin() + static_cast<std::ptrdiff_t>(position_));
    position_ += size;
  }

  Bytes buffer_;
  Bytes bytes_;
  const std::size_t limit_;
  std::size_t position_ = 0;
  std::size_t room_ = 0;
  bool has_room_ = false;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_FORMAT_WINDOW_STREAMS_H_
