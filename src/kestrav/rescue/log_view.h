#ifndef KESTRAV_RESCUE_LOG_VIEW_H_
#define KESTRAV_RESCUE_LOG_VIEW_H_

#include <cstdint>
#include <span>
#include <vector>

#include "kestrav/format/crypter.h"
#include "kestrav/format/record_header.h"
#include "kestrav/format/xor_copy.h"

namespace kestrav::rescue {

// The bytes of a log, and what looks like a record in them. Positions count from the start.
class LogView {
 public:
  explicit LogView(std::span<const std::uint8_t> bytes);

  const std::uint8_t* At(std::uint32_t at) const { return bytes_ + at; }
  std::uint32_t Size() const { return size_; }
  // What stands from `size` on is none of the log's.
  void Shorten(std::uint32_t size);
  // Where the log ends by its stream header; 0: unknown. A run that ends there is the last one.
  std::uint32_t StatedEnd() const { return stated_end_; }
  void SetStatedEnd(std::uint32_t end) { stated_end_ = end; }

  void SetKeys(std::uint8_t header_key, std::uint8_t data_key);
  std::uint8_t HeaderKey(std::uint32_t index) const { return header_crypter_.RecordKey(index); }
  std::uint8_t DataKey(std::uint32_t index) const { return data_crypter_.RecordKey(index); }

  // Remembers sums of blocks, so that the checksum of any range costs the same. false: memory is
  // short.
  [[nodiscard]] bool LoadSums();

  // Whether a sound header stands at `at`, of whatever index and whatever key: the sum of its
  // twenty bytes is that of the marker, since an even number of keys is none. Sets its fields.
  bool ReadHeader(std::uint32_t at, BinaryLogRecordHeader& header) const;
  // The same, and its key is the one of its index.
  bool ReadKeyedHeader(std::uint32_t at, BinaryLogRecordHeader& header) const;
  // Whether the sound header of the record `index` stands at `at`.
  bool ReadHeaderOf(std::uint32_t index, std::uint32_t at, BinaryLogRecordHeader& header) const;
  // The first position from `at` on where `ReadHeader` may say yes, the size if there is none.
  // Looks at what is in front of `until`: a result from there on may be any position.
  std::uint32_t FindHeader(std::uint32_t at, std::uint32_t until) const;

  // The XOR of bytes as they stand.
  std::uint8_t Sum(std::uint32_t at, std::uint32_t size) const {
    return size < kFewBytes || sums_.empty() ? XorSum(bytes_ + at, size) : SumOfBlocks(at, size);
  }
  // Whether the payload behind the header at `at` passes its checksum.
  bool PayloadHolds(std::uint32_t at, const BinaryLogRecordHeader& header) const;

  // Whether nothing but zeros stands from `at` to the end.
  bool IsZeroFrom(std::uint32_t at) const { return at >= zero_tail_; }

 private:
  static constexpr std::uint32_t kBlock = 256;
  static constexpr std::uint32_t kFewBytes = 2 * kBlock;

  bool IsSound(std::uint32_t at, const BinaryLogRecordHeader& header) const;
  std::uint8_t SumOfBlocks(std::uint32_t at, std::uint32_t size) const;
  void FindZeroTail();

  const std::uint8_t* bytes_;
  std::uint32_t size_;
  std::uint32_t zero_tail_ = 0;
  std::uint32_t stated_end_ = 0;
  Crypter header_crypter_;
  Crypter data_crypter_;
  std::vector<std::uint8_t> sums_;  // of all bytes in front of each block
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_LOG_VIEW_H_
