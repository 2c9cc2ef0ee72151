#ifndef KESTRAV_FORMAT_SCAN_PATTERN_H_
#define KESTRAV_FORMAT_SCAN_PATTERN_H_

#include <cstdint>
#include <span>

#include "kestrav/format/xor_copy.h"

namespace kestrav {

inline constexpr std::uint32_t kScanBlockSize = 50;

// Finds what the search for the next record looks at. The search takes blocks of 50 bytes, of which
// it unscrambles the first 20, and tries a header at the first marker in them: after a header that
// is none the next block begins one byte further on, after a block without a marker behind it.
class ScanPattern {
 public:
  // The key of the header that is looked for; 0: plain.
  explicit ScanPattern(std::uint8_t key);

  // Walks over whole blocks of `bytes` and adds to `at` what it passed. true: a valid header stands
  // there. false: from there on too few bytes are left to decide.
  bool Find(std::span<const std::uint8_t> bytes, std::uint32_t& at) const;

 private:
  // Where in the block the first marker stands; kScanBlockSize: nowhere.
  std::uint32_t FirstMarker(const std::uint8_t* block) const;

  const std::uint8_t key_;
  wide::Bytes first_;   // what markers look like in bytes 0 to 15 of a block,
  wide::Bytes second_;  // 16 to 31,
  wide::Bytes rest_;    // and from 32 on
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_SCAN_PATTERN_H_
