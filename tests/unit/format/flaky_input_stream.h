#ifndef KESTRAV_TESTS_UNIT_FORMAT_FLAKY_INPUT_STREAM_H_
#define KESTRAV_TESTS_UNIT_FORMAT_FLAKY_INPUT_STREAM_H_

#include <cstdint>
#include <limits>
#include <utility>

#include "support/streams.h"

namespace kestrav::test {

// An input stream of which one read or one seek fails, counted from 0, and which notices requests
// that reach beyond its end.
class FlakyInputStream final : public Io::IInputStream {
 public:
  static constexpr std::uint32_t kNever = std::numeric_limits<std::uint32_t>::max();

  explicit FlakyInputStream(Bytes bytes, std::uint32_t failing_read = kNever,
                            std::uint32_t failing_seek = kNever)
      : stream_(std::move(bytes)), failing_read_(failing_read), failing_seek_(failing_seek) {}

  bool Read(std::uint8_t* data, std::uint32_t size) override {
    overreached = overreached || size > Remaining();
    return reads++ != failing_read_ && stream_.Read(data, size);
  }
  bool Seek(std::uint32_t position) override {
    overreached = overreached || position > Position() + Remaining();
    return seeks++ != failing_seek_ && stream_.Seek(position);
  }
  std::uint32_t Position() const override { return stream_.Position(); }
  std::uint32_t Remaining() const override { return stream_.Remaining(); }

  bool overreached = false;
  std::uint32_t reads = 0;
  std::uint32_t seeks = 0;

 private:
  BytesInputStream stream_;
  const std::uint32_t failing_read_;
  const std::uint32_t failing_seek_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_FORMAT_FLAKY_INPUT_STREAM_H_
