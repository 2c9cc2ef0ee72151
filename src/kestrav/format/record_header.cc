#include "kestrav/format/record_header.h"

#include <cstring>

#include "kestrav/format/checksum.h"
#include "kestrav/host/memory/byte_order.h"

namespace kestrav {
namespace {

using Memory::GetLittleEndian;
using Memory::PutLittleEndian;

constexpr std::uint32_t kCheckedOffset = 2;
constexpr std::uint32_t kCheckedSize = kRecordHeaderSize - kCheckedOffset;

}  // namespace

bool BinaryLogRecordHeader::InitAndSerialize(Memory::MemBlock& block, const LogMessage& message,
                                             std::uint32_t recordIndex) {
  marker = kRecordMarker;
  reserved = 0;
  record_index = recordIndex;
  client_id = message.GetClientID();
  data_id = message.GetDataID();
  time_stamp = message.time_stamp;
  payload_size = message.GetDataSize();
  payload_checksum = ComputeChecksum(message.GetDataPointer(), payload_size);

  std::uint8_t bytes[kRecordHeaderSize];
  bytes[0] = marker;
  bytes[2] = payload_checksum;
  bytes[3] = reserved;
  PutLittleEndian(bytes + 4, record_index);
  PutLittleEndian(bytes + 8, client_id);
  PutLittleEndian(bytes + 10, data_id);
  PutLittleEndian(bytes + 12, time_stamp);
  PutLittleEndian(bytes + 16, payload_size);
  header_checksum = ComputeChecksum(bytes + kCheckedOffset, kCheckedSize);
  bytes[1] = header_checksum;

  if (block.Size() < kRecordHeaderSize && !block.Resize(kRecordHeaderSize)) return false;
  std::memcpy(block.Data(), bytes, kRecordHeaderSize);
  return true;
}

bool BinaryLogRecordHeader::ReadData(const Memory::MemBlock& block) {
  return block.Size() >= kRecordHeaderSize && ReadData(block.Data());
}

bool BinaryLogRecordHeader::ReadData(const std::uint8_t* bytes) {
  marker = bytes[0];
  header_checksum = bytes[1];
  payload_checksum = bytes[2];
  reserved = bytes[3];
  record_index = GetLittleEndian<std::uint32_t>(bytes + 4);
  client_id = GetLittleEndian<std::uint16_t>(bytes + 8);
  data_id = GetLittleEndian<std::uint16_t>(bytes + 10);
  time_stamp = GetLittleEndian<std::uint32_t>(bytes + 12);
  payload_size = GetLittleEndian<std::uint32_t>(bytes + 16);
  return marker == kRecordMarker &&
         header_checksum == ComputeChecksum(bytes + kCheckedOffset, kCheckedSize);
}

}  // namespace kestrav
