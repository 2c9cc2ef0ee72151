#ifndef KESTRAV_FORMAT_RECORD_HEADER_H_
#define KESTRAV_FORMAT_RECORD_HEADER_H_

#include <cstdint>

#include "kestrav/format/log_message.h"
#include "kestrav/format/xor_copy.h"
#include "kestrav/host/api.h"
#include "kestrav/host/memory/byte_order.h"
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

  // Sets the marker and the checksums when all else is set.
  void Seal(std::uint8_t payloadChecksum);
  // Writes 20 bytes, each XORed with `key`.
  void Serialize(std::uint8_t* out, std::uint8_t key) const;

  // Parses the first 20 bytes of `block`. false: it is shorter, the marker is wrong, or the header
  // checksum is; in the last two cases the fields are set all the same.
  [[nodiscard]] bool ReadData(const Memory::MemBlock& block);
  // The same from 20 bytes that stand anywhere, each of them XORed with `key`.
  [[nodiscard]] bool ReadData(const std::uint8_t* bytes, std::uint8_t key = 0);

  std::uint8_t marker = 0;
  std::uint8_t header_checksum = 0;  // over bytes 2 to 19 of the header
  std::uint8_t payload_checksum = 0;
  std::uint8_t reserved = 0;
  std::uint32_t record_index = 0;
  std::uint16_t client_id = kNoId;
  std::uint16_t data_id = kNoId;
  std::uint32_t time_stamp = 0;    // milliseconds of the recorder's clock
  std::uint32_t payload_size = 0;  // bytes

 private:
  // The bytes as the little-endian words that they are read and written in.
  struct Words {
    std::uint64_t start_and_index;  // marker, both checksums, reserved; record index
    std::uint64_t ids_and_time;
    std::uint32_t size;

    // Over bytes 2 to 19.
    std::uint8_t Checksum() const {
      return wide::Fold(start_and_index >> 16 ^ ids_and_time ^ size);
    }
  };

  Words ToWords() const;
};

// The rest stands here to be inlined: every record goes through it.

inline BinaryLogRecordHeader::Words BinaryLogRecordHeader::ToWords() const {
  return {std::uint64_t{marker} | std::uint64_t{header_checksum} << 8 |
              std::uint64_t{payload_checksum} << 16 | std::uint64_t{reserved} << 24 |
              std::uint64_t{record_index} << 32,
          std::uint64_t{client_id} | std::uint64_t{data_id} << 16 | std::uint64_t{time_stamp} << 32,
          payload_size};
}

inline void BinaryLogRecordHeader::Seal(std::uint8_t payloadChecksum) {
  marker = kRecordMarker;
  payload_checksum = payloadChecksum;
  header_checksum = ToWords().Checksum();
}

inline void BinaryLogRecordHeader::Serialize(std::uint8_t* out, std::uint8_t key) const {
  const Words words = ToWords();
  const std::uint64_t wide_key = wide::Repeat(key);
  Memory::PutLittleEndian(out, words.start_and_index ^ wide_key);
  Memory::PutLittleEndian(out + 8, words.ids_and_time ^ wide_key);
  Memory::PutLittleEndian(out + 16, words.size ^ static_cast<std::uint32_t>(wide_key));
}

inline bool BinaryLogRecordHeader::ReadData(const std::uint8_t* bytes, std::uint8_t key) {
  const std::uint64_t wide_key = wide::Repeat(key);
  Words words;
  words.start_and_index = Memory::GetLittleEndian<std::uint64_t>(bytes) ^ wide_key;
  words.ids_and_time = Memory::GetLittleEndian<std::uint64_t>(bytes + 8) ^ wide_key;
  words.size =
      Memory::GetLittleEndian<std::uint32_t>(bytes + 16) ^ static_cast<std::uint32_t>(wide_key);
  marker = static_cast<std::uint8_t>(words.start_and_index);
  header_checksum = static_cast<std::uint8_t>(words.start_and_index >> 8);
  payload_checksum = static_cast<std::uint8_t>(words.start_and_index >> 16);
  reserved = static_cast<std::uint8_t>(words.start_and_index >> 24);
  record_index = static_cast<std::uint32_t>(words.start_and_index >> 32);
  client_id = static_cast<std::uint16_t>(words.ids_and_time);
  data_id = static_cast<std::uint16_t>(words.ids_and_time >> 16);
  time_stamp = static_cast<std::uint32_t>(words.ids_and_time >> 32);
  payload_size = words.size;
  return marker == kRecordMarker && header_checksum == words.Checksum();
}

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_RECORD_HEADER_H_
