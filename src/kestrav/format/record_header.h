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

  // Takes the fields from `message`, whose payload has this checksum.
  void Init(const LogMessage& message, std::uint32_t recordIndex, std::uint8_t payloadChecksum);
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
    std::uint32_t first;  // marker, header checksum, payload checksum, reserved
    std::uint64_t index_and_ids;
    std::uint64_t time_and_size;

    // Over bytes 2 to 19.
    std::uint8_t Checksum() const {
      return wide::Fold(index_and_ids ^ time_and_size ^ (first >> 16));
    }
  };

  Words ToWords() const;
};

// The rest stands here to be inlined: every record goes through it.

inline BinaryLogRecordHeader::Words BinaryLogRecordHeader::ToWords() const {
  return {
      std::uint32_t{marker} | std::uint32_t{header_checksum} << 8 |
          std::uint32_t{payload_checksum} << 16 | std::uint32_t{reserved} << 24,
      std::uint64_t{record_index} | std::uint64_t{client_id} << 32 | std::uint64_t{data_id} << 48,
      std::uint64_t{time_stamp} | std::uint64_t{payload_size} << 32};
}

inline void BinaryLogRecordHeader::Init(const LogMessage& message, std::uint32_t recordIndex,
                                        std::uint8_t payloadChecksum) {
  marker = kRecordMarker;
  payload_checksum = payloadChecksum;
  reserved = 0;
  record_index = recordIndex;
  client_id = message.GetClientID();
  data_id = message.GetDataID();
  time_stamp = message.time_stamp;
  payload_size = message.GetDataSize();
  header_checksum = ToWords().Checksum();
}

inline void BinaryLogRecordHeader::Serialize(std::uint8_t* out, std::uint8_t key) const {
  const Words words = ToWords();
  const std::uint64_t wide_key = wide::Repeat(key);
  Memory::PutLittleEndian(out, words.first ^ static_cast<std::uint32_t>(wide_key));
  Memory::PutLittleEndian(out + 4, words.index_and_ids ^ wide_key);
  Memory::PutLittleEndian(out + 12, words.time_and_size ^ wide_key);
}

inline bool BinaryLogRecordHeader::ReadData(const std::uint8_t* bytes, std::uint8_t key) {
  const std::uint64_t wide_key = wide::Repeat(key);
  Words words;
  words.first =
      Memory::GetLittleEndian<std::uint32_t>(bytes) ^ static_cast<std::uint32_t>(wide_key);
  words.index_and_ids = Memory::GetLittleEndian<std::uint64_t>(bytes + 4) ^ wide_key;
  words.time_and_size = Memory::GetLittleEndian<std::uint64_t>(bytes + 12) ^ wide_key;
  marker = static_cast<std::uint8_t>(words.first);
  header_checksum = static_cast<std::uint8_t>(words.first >> 8);
  payload_checksum = static_cast<std::uint8_t>(words.first >> 16);
  reserved = static_cast<std::uint8_t>(words.first >> 24);
  record_index = static_cast<std::uint32_t>(words.index_and_ids);
  client_id = static_cast<std::uint16_t>(words.index_and_ids >> 32);
  data_id = static_cast<std::uint16_t>(words.index_and_ids >> 48);
  time_stamp = static_cast<std::uint32_t>(words.time_and_size);
  payload_size = static_cast<std::uint32_t>(words.time_and_size >> 32);
  return marker == kRecordMarker && header_checksum == words.Checksum();
}

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_RECORD_HEADER_H_
