#ifndef KESTRAV_TESTS_SUPPORT_STREAMS_H_
#define KESTRAV_TESTS_SUPPORT_STREAMS_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <vector>

#include "kestrav/host/io/stream.h"

namespace kestrav::test {

using Bytes = std::vector<std::uint8_t>;

// An input stream that owns its bytes and can be told to fail.
class BytesInputStream final : public Io::IInputStream {
 public:
  explicit BytesInputStream(Bytes bytes) : bytes_(std::move(bytes)) {}

  bool Read(std::uint8_t* data, std::uint32_t size) override {
    ++reads;
    bytes_read += size;
    if (fail_reads || size > Remaining()) return false;
    if (size > 0) std::memcpy(data, bytes_.data() + position_, size);
    position_ += size;
    return true;
  }
  bool Seek(std::uint32_t position) override {
    if (fail_seeks || position > bytes_.size()) return false;
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override { return position_; }
  std::uint32_t Remaining() const override {
    return static_cast<std::uint32_t>(bytes_.size()) - position_;
  }

  bool fail_reads = false;
  bool fail_seeks = false;
  std::uint64_t reads = 0;
  std::uint64_t bytes_read = 0;

 private:
  Bytes bytes_;
  std::uint32_t position_ = 0;
};

// An output stream that grows as a file does. It takes `room` bytes, all or nothing for each write.
// `Content` may be asked from any thread.
class BytesOutputStream final : public Io::IOutputStream {
 public:
  explicit BytesOutputStream(std::uint64_t room = std::numeric_limits<std::uint64_t>::max())
      : room_(room) {}

  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    const std::lock_guard lock(mutex_);
    ++writes_;
    const std::size_t end = std::size_t{position_} + size;
    if (fail_writes_ || end > room_) return false;
    bytes_.resize(std::max(bytes_.size(), end));
    std::copy_n(data, size, bytes_.begin() + position_);
    position_ += size;
    return true;
  }
  bool Seek(std::uint32_t position) override {
    const std::lock_guard lock(mutex_);
    if (fail_seeks_ || position > bytes_.size()) return false;
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override {
    const std::lock_guard lock(mutex_);
    return position_;
  }
  bool Flush() override {
    const std::lock_guard lock(mutex_);
    ++flushes_;
    return true;
  }

  Bytes Content() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
  }
  int Writes() const {
    const std::lock_guard lock(mutex_);
    return writes_;
  }
  int Flushes() const {
    const std::lock_guard lock(mutex_);
    return flushes_;
  }
  void SetRoom(std::uint64_t room) {
    const std::lock_guard lock(mutex_);
    room_ = room;
  }
  void FailWrites(bool fail) {
    const std::lock_guard lock(mutex_);
    fail_writes_ = fail;
  }
  void FailSeeks(bool fail) {
    const std::lock_guard lock(mutex_);
    fail_seeks_ = fail;
  }

 private:
  mutable std::mutex mutex_;
  Bytes bytes_;
  std::uint64_t room_;
  std::uint32_t position_ = 0;
  int writes_ = 0;
  int flushes_ = 0;
  bool fail_writes_ = false;
  bool fail_seeks_ = false;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_STREAMS_H_
