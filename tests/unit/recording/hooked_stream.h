#ifndef KESTRAV_TESTS_UNIT_RECORDING_HOOKED_STREAM_H_
#define KESTRAV_TESTS_UNIT_RECORDING_HOOKED_STREAM_H_

#include <cstdint>
#include <functional>

#include "support/streams.h"

namespace kestrav::test {

// A stream that does something after each write and each flush, on the thread that writes.
class HookedStream final : public Io::IOutputStream {
 public:
  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    const bool written = bytes_.Write(data, size);
    if (after_write) after_write();
    return written;
  }
  bool Seek(std::uint32_t position) override { return bytes_.Seek(position); }
  std::uint32_t Position() const override { return bytes_.Position(); }
  bool Flush() override {
    const bool flushed = bytes_.Flush();
    if (after_flush) after_flush();
    return flushed;
  }

  Bytes Content() const { return bytes_.Content(); }
  int Flushes() const { return bytes_.Flushes(); }

  // Set while nobody writes, or by themselves.
  std::function<void()> after_write;
  std::function<void()> after_flush;

 private:
  BytesOutputStream bytes_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_RECORDING_HOOKED_STREAM_H_
