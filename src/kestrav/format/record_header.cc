#include "kestrav/format/record_header.h"

#include "kestrav/format/checksum.h"

namespace kestrav {
bool BinaryLogRecordHeader::InitAndSerialize(Memory::MemBlock& block, const LogMessage& message,
                                             std::uint32_t recordIndex) {
  Init(message, recordIndex, ComputeChecksum(message.GetDataPointer(), message.GetDataSize()));
  if (block.Size() < kRecordHeaderSize && !block.Resize(kRecordHeaderSize)) return false;
  Serialize(block.Data(), 0);
  return true;
}

bool BinaryLogRecordHeader::ReadData(const Memory::MemBlock& block) {
  return block.Size() >= kRecordHeaderSize && ReadData(block.Data());
}

}  // namespace kestrav
