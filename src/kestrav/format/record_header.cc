#include "kestrav/format/record_header.h"

#include "kestrav/format/checksum.h"

namespace kestrav {

bool BinaryLogRecordHeader::InitAndSerialize(Memory::MemBlock& block, const LogMessage& message,
                                             std::uint32_t recordIndex) {
  reserved = 0;
  record_index = recordIndex;
  client_id = message.GetClientID();
  data_id = message.GetDataID();
  time_stamp = message.time_stamp;
  payload_size = message.GetDataSize();
  Seal(ComputeChecksum(message.GetDataPointer(), payload_size));
  if (block.Size() < kRecordHeaderSize && !block.Resize(kRecordHeaderSize)) return false;
  Serialize(block.Data(), 0);
  return true;
}

bool BinaryLogRecordHeader::ReadData(const Memory::MemBlock& block) {
  return block.Size() >= kRecordHeaderSize && ReadData(block.Data());
}

}  // namespace kestrav
