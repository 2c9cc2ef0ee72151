#ifndef KESTRAV_FORMAT_RECORD_HEADER_H_
#define KESTRAV_FORMAT_RECORD_HEADER_H_

#include <cstdint>

#include "kestrav/format/log_message.h"
#include "kestrav/host/api.h"
#include "kestrav/host/memory/mem_block.h"

namespace kestrav {

inline constexpr std::uint32_t kRecordHeaderSize = 20;
inline constexpr std::uint8_t kRecordMarker = 0x4C;

// The header in front of every record; its bytes are described in docs/log-format.md. Both
// checksums are over plain bytes: a reader unscrambles first.
class KESTRAV_API BinaryLogRecordHeader {
 public:
  BinaryLogRecordHeader() = default;
  BinaryLogRecordHeader(const BinaryLogRecordHeader&) = default;
  BinaryLogRecordHeader& operator=(const BinaryLogRecordHeader&) = default;
  virtual ~BinaryLogRecordHeader() = default;

  void Assign(const BinaryLogRecordHeader& other) { *this = other; }

  // Takes the fields from `message` and writes the 20 bytes to the start of `block`, which grows
  // when it is shorter. false: it cannot grow; the fields are set all the same.
  [[nodiscard]] bool InitAndSerialize(Memory::MemBlock& block, const LogMessage& message,
                                      std::uint32_t recordIndex);

  // Parses the first 20 bytes of `block`. false: it is shorter, the marker is wrong, or the header
  // checksum is; in the last two cases the fields are set all the same.
  [[nodiscard]] bool ReadData(const Memory::MemBlock& block);
  // The same from 20 bytes that stand anywhere.
  [[nodiscard]] bool ReadData(const std::uint8_t* bytes);

  std::uint8_t marker = 0;
  std::uint8_t header_checksum = 0;  // over bytes 2 to 19 of the header
  std::uint8_t payload_checksum = 0;
  std::uint8_t reserved = 0;
  std::uint32_t record_index = 0;
  std::uint16_t client_id = kNoId;
  std::uint16_t data_id = kNoId;
  std::uint32_t time_stamp = 0;    // milliseconds of the recorder's clock
  std::uint32_t payload_size = 0;  // bytes
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_RECORD_HEADER_H_
