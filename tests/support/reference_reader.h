#ifndef KESTRAV_TESTS_SUPPORT_REFERENCE_READER_H_
#define KESTRAV_TESTS_SUPPORT_REFERENCE_READER_H_

#include <cstddef>
#include <cstdint>

#include "support/said.h"
#include "support/streams.h"

namespace kestrav::test {

// A second reader of logs, written without the library and as plainly as it gets: one byte at a
// time, one step after the other. A decoder must give the same answers at the same positions.
class ReferenceReader {
 public:
  enum Code : std::uint32_t { kGood = 0, kBad = 1, kShort = 2 };

  // Starts at the first record of a log whose stream header is whole; the log is not copied.
  explicit ReferenceReader(const Bytes& log) : log_(log) {}
  explicit ReferenceReader(Bytes&& log) = delete;

  std::uint32_t Position() const { return position_; }
  void SetPosition(std::uint32_t position) { position_ = position; }
  // As a reader stands at `position` that has read `index` records of a log without damage.
  void StandAt(std::uint32_t position, std::uint32_t index) {
    position_ = position;
    expected_index_ = index;
  }

  Code Scan();
  Code NextHeaderAndSkip(Said& said);
  Code Next(Said& said);
  Code NextSelected(Said& said, std::uint64_t selection);

 private:
  struct Header {
    std::uint32_t index = 0;
    std::uint32_t payload_size = 0;
    std::uint8_t payload_checksum = 0;
    Said said;  // without the payload
  };

  std::uint64_t Remaining() const { return log_.size() - position_; }
  std::uint8_t Unscrambled(std::size_t at, std::uint8_t stream_key, std::uint32_t index) const;
  std::uint32_t Number(std::size_t at, int size) const;
  Code ReadHeader(Header& header);
  Code ReadPayload(const Header& header, std::string& payload);
  Code Skip(const Header& header);
  Code NextHeader(Header& header);

  const Bytes& log_;
  std::uint32_t position_ = 128;
  std::uint32_t expected_index_ = 0;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_REFERENCE_READER_H_
