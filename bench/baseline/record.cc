#include "baseline/record.h"

#include <cstring>

namespace kestrav::baseline {
namespace {

constexpr char kMagic[] = {'L', 'O', 'G', ':'};
constexpr std::uint32_t kTicksPerSecond = 1000;

template <class T>
void Append(std::vector<std::uint8_t>& out, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

template <class T>
T Get(const std::uint8_t* bytes) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>(value | static_cast<T>(T{bytes[i]} << (8 * i)));
  }
  return value;
}

}  // namespace

std::uint8_t Checksum(const std::uint8_t* data, std::size_t size) {
  std::uint8_t checksum = 0;
  for (std::size_t i = 0; i < size; ++i) checksum ^= data[i];
  return checksum;
}

void Scramble(std::uint8_t* data, std::size_t size, std::uint8_t stream_key, std::uint32_t index) {
  if (stream_key == 0) return;
  auto key = static_cast<std::uint8_t>(stream_key + index);
  if (key == 0) key = 1;
  for (std::size_t i = 0; i < size; ++i) data[i] ^= key;
}

std::vector<std::uint8_t> Serialize(const StreamHeader& header) {
  std::vector<std::uint8_t> out(kMagic, kMagic + sizeof(kMagic));
  Append(out, header.start_time);
  Append(out, header.selection);
  Append(out, header.header_key);
  Append(out, header.data_key);
  Append(out, header.duration_ms);
  Append(out, header.length);
  Append(out, kTicksPerSecond);
  Append(out, header.start_clock);
  out.resize(kStreamHeaderSize);
  return out;
}

bool Parse(const std::uint8_t* bytes, StreamHeader& header) {
  if (std::memcmp(bytes, kMagic, sizeof(kMagic)) != 0) return false;
  header.start_time = Get<std::uint32_t>(bytes + 4);
  header.selection = Get<std::uint16_t>(bytes + 8);
  header.header_key = bytes[10];
  header.data_key = bytes[11];
  header.duration_ms = Get<std::uint32_t>(bytes + 12);
  header.length = Get<std::uint32_t>(bytes + 16);
  header.start_clock = Get<std::uint32_t>(bytes + 24);
  return true;
}

void Serialize(const RecordHeader& header, std::vector<std::uint8_t>& out) {
  const std::size_t start = out.size();
  out.push_back(header.marker);
  out.push_back(0);
  out.push_back(header.payload_checksum);
  out.push_back(0);
  Append(out, header.index);
  Append(out, header.client_id);
  Append(out, header.data_id);
  Append(out, header.time_stamp);
  Append(out, header.payload_size);
  out[start + 1] = Checksum(out.data() + start + 2, kRecordHeaderSize - 2);
}

bool Parse(const std::uint8_t* bytes, RecordHeader& header) {
  header.marker = bytes[0];
  header.header_checksum = bytes[1];
  header.payload_checksum = bytes[2];
  header.index = Get<std::uint32_t>(bytes + 4);
  header.client_id = Get<std::uint16_t>(bytes + 8);
  header.data_id = Get<std::uint16_t>(bytes + 10);
  header.time_stamp = Get<std::uint32_t>(bytes + 12);
  header.payload_size = Get<std::uint32_t>(bytes + 16);
  return header.marker == kMarker &&
         header.header_checksum == Checksum(bytes + 2, kRecordHeaderSize - 2);
}

}  // namespace kestrav::baseline
