#ifndef KESTRAV_TESTS_SUPPORT_LOG_BUILDER_H_
#define KESTRAV_TESTS_SUPPORT_LOG_BUILDER_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/streams.h"

namespace kestrav::test {

// Builds the bytes of a log without using the library's encoder, so that a mistake in the one shows
// in the other, and damages them.
class LogBuilder {
 public:
  explicit LogBuilder(std::uint8_t header_key = 0, std::uint8_t data_key = 0);

  // Fields of the stream header.
  LogBuilder& StartClock(std::uint32_t ms);
  LogBuilder& Duration(std::uint32_t ms);
  LogBuilder& Selection(std::uint16_t mask);

  // Appends a record; its index is the number of records before it.
  LogBuilder& Record(std::uint16_t client, std::uint16_t data_id, std::uint32_t time_ms,
                     std::string_view payload);
  // Appends the dictionary record of these ASCII string ids (client 12, data id 1200).
  LogBuilder& Dictionary(const std::map<std::string, int>& entries, std::uint32_t time_ms);
  // Appends bytes as they are.
  LogBuilder& Raw(const Bytes& bytes);
  // The next record takes this index.
  LogBuilder& NextIndex(std::uint32_t index);

  // Damage, at an offset from the start of the log.
  LogBuilder& Flip(std::size_t offset, std::uint8_t bits = 0x01);
  LogBuilder& Cut(std::size_t size);
  LogBuilder& Zero(std::size_t offset, std::size_t size);
  LogBuilder& Insert(std::size_t offset, const Bytes& bytes);

  // Where record `n` starts, as it was appended.
  std::size_t RecordOffset(std::size_t n) const { return offsets_.at(n); }
  std::size_t Size() const { return bytes_.size(); }

  // The bytes, with the stream length filled in unless the log was damaged.
  Bytes Build() const;

 private:
  Bytes bytes_;
  std::vector<std::size_t> offsets_;
  std::uint8_t header_key_;
  std::uint8_t data_key_;
  std::uint32_t next_index_ = 0;
  bool damaged_ = false;
};

// The key byte of a record: never 0 in a scrambled stream, no scrambling with a stream key of 0.
std::uint8_t RecordKey(std::uint8_t stream_key, std::uint32_t index);

// The XOR of all bytes, one by one.
std::uint8_t Xor(std::string_view bytes);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_LOG_BUILDER_H_
