#ifndef KESTRAV_FORMAT_STREAM_HEADER_H_
#define KESTRAV_FORMAT_STREAM_HEADER_H_

#include <array>
#include <cstdint>

#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/ptr.h"

namespace kestrav {

inline constexpr std::uint32_t kStreamHeaderSize = 128;
inline constexpr std::uint32_t kReservedSize = 100;
inline constexpr std::uint32_t kStreamMagic = 0x3A474F4C;  // "LOG:", as the bytes stand in the file

// The header at the start of every log; its bytes are described in docs/log-format.md.
class KESTRAV_API BinaryLogStreamHeader {
 public:
  BinaryLogStreamHeader() = default;
  BinaryLogStreamHeader(const BinaryLogStreamHeader&) = default;
  BinaryLogStreamHeader& operator=(const BinaryLogStreamHeader&) = default;
  virtual ~BinaryLogStreamHeader() = default;

  // Takes magic, times and clock rate for a recording that starts now and leaves the other fields.
  // false: a clock cannot be read.
  [[nodiscard]] bool Initialize();
  void Reset();
  void Assign(const BinaryLogStreamHeader& other) { *this = other; }

  // The 16 bits of the clients in `mask` (bit n: client id n) that the header holds. Bit 15 doubles
  // as the mark that they do not fit and stand in the extended selection record.
  static constexpr std::uint16_t Selection(std::uint64_t mask) {
    constexpr std::uint32_t kDoesNotFit = 0x8000;
    const auto low = static_cast<std::uint32_t>(mask);
    return static_cast<std::uint16_t>(mask <= 0xFFFF ? low : low | kDoesNotFit);
  }

  // Writes the 128 bytes at the stream's position. false: the magic is wrong or the start time
  // below 1, and nothing was written; or the write failed.
  [[nodiscard]] bool WriteOut(Io::IOutputStream& stream) const;
  // The bytes by which the stream moved: 128, or 0 when there is no stream or the write failed.
  [[nodiscard]] std::uint32_t WriteData(const SmartPtr::Ptr<Io::IOutputStream>& stream) const;

  // Reads at the stream's position. false: not the magic (4 bytes are then consumed), or the
  // stream ends within the header, the fields up to there being read.
  [[nodiscard]] bool ReadIn(Io::IInputStream& stream);
  [[nodiscard]] bool ReadData(const SmartPtr::Ptr<Io::IInputStream>& stream);
  // false too: the block holds fewer than 128 bytes.
  [[nodiscard]] bool ReadData(const Memory::MemBlock& block);

  std::uint32_t magic = 0;
  std::int64_t start_time = 0;  // wall-clock seconds; the log holds the low 32 bits
  std::uint16_t client_selection = 0;
  std::uint8_t header_key = 0;  // 0: the stream is not scrambled
  std::uint8_t data_key = 0;
  std::uint32_t recording_duration = 0;  // milliseconds
  std::uint32_t stream_length = 0;       // bytes
  std::uint32_t clock_rate = 0;          // ticks a second
  std::uint32_t start_clock = 0;         // milliseconds of the recorder's clock
  std::array<std::uint8_t, kReservedSize> reserved{};
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_STREAM_HEADER_H_
