#include "kestrav/format/stream_header.h"

#include <cstring>

#include "kestrav/host/io/memory_stream.h"
#include "kestrav/host/memory/byte_order.h"
#include "kestrav/host/time/source.h"

namespace kestrav {
namespace {

using Memory::GetLittleEndian;
using Memory::PutLittleEndian;

constexpr std::uint32_t kReservedOffset = kStreamHeaderSize - kReservedSize;

template <class T>
bool ReadInteger(Io::IInputStream& stream, T& value) {
  std::uint8_t bytes[sizeof(T)];
  if (!stream.Read(bytes, sizeof(T))) return false;
  value = GetLittleEndian<T>(bytes);
  return true;
}

}  // namespace

bool BinaryLogStreamHeader::Initialize() {
  start_time = 0;
  start_clock = 0;
  if (!Time::Source().ReadWallClockScnds(start_time)) return false;
  if (!Time::Source().ReadMs(start_clock)) return false;
  magic = kStreamMagic;
  clock_rate = Time::kClocksPerSecond;
  return true;
}

void BinaryLogStreamHeader::Reset() { *this = BinaryLogStreamHeader(); }

bool BinaryLogStreamHeader::WriteOut(Io::IOutputStream& stream) const {
  if (magic != kStreamMagic || start_time < 1) return false;
  std::array<std::uint8_t, kStreamHeaderSize> bytes{};
  std::uint8_t* const at = bytes.data();
  PutLittleEndian(at, magic);
  PutLittleEndian(at + 4, static_cast<std::uint32_t>(start_time));
  PutLittleEndian(at + 8, client_selection);
  at[10] = header_key;
  at[11] = data_key;
  PutLittleEndian(at + 12, recording_duration);
  PutLittleEndian(at + 16, stream_length);
  PutLittleEndian(at + 20, clock_rate);
  PutLittleEndian(at + 24, start_clock);
  std::memcpy(at + kReservedOffset, reserved.data(), reserved.size());
  return stream.Write(at, kStreamHeaderSize);
}

std::uint32_t BinaryLogStreamHeader::WriteData(
    const SmartPtr::Ptr<Io::IOutputStream>& stream) const {
  if (!stream) return 0;
  const std::uint32_t before = stream->Position();
  return WriteOut(*stream) ? stream->Position() - before : 0;
}

bool BinaryLogStreamHeader::ReadIn(Io::IInputStream& stream) {
  if (!ReadInteger(stream, magic) || magic != kStreamMagic) return false;
  std::uint32_t start = 0;
  if (!ReadInteger(stream, start)) return false;
  start_time = start;
  return ReadInteger(stream, client_selection) && ReadInteger(stream, header_key) &&
         ReadInteger(stream, data_key) && ReadInteger(stream, recording_duration) &&
         ReadInteger(stream, stream_length) && ReadInteger(stream, clock_rate) &&
         ReadInteger(stream, start_clock) && stream.Read(reserved.data(), kReservedSize);
}

bool BinaryLogStreamHeader::ReadData(const SmartPtr::Ptr<Io::IInputStream>& stream) {
  return stream && ReadIn(*stream);
}

bool BinaryLogStreamHeader::ReadData(const Memory::MemBlock& block) {
  if (block.Size() < kStreamHeaderSize) return false;
  Io::MemoryInputStream stream(block);
  return ReadIn(stream);
}

}  // namespace kestrav
