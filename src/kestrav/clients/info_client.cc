#include "kestrav/clients/info_client.h"

#include "kestrav/host/memory/byte_order.h"
#include "kestrav/host/memory/try.h"

namespace kestrav {

bool InfoClientImpl::WriteDictionaryRecord(const Dictionary& dictionary,
                                           IMessageSink* logger) const {
  Memory::MemBlock payload;
  return logger != nullptr && InfoClientUtility::WriteDictionaryData(dictionary, payload) &&
         WriteRecord(kDictionaryDataId, payload.Data(), payload.Size(), logger);
}

bool InfoClientImpl::RecordExtendedBinarySelection(std::uint64_t selection,
                                                   IMessageSink* logger) const {
  // The stream header holds bits 0 to 15; bit 63 has no place in this record.
  constexpr std::uint64_t kCarried = 0x00007FFFFFFFFFFF;
  std::uint8_t bytes[sizeof(selection)];
  Memory::PutLittleEndian(bytes, (selection >> 16) & kCarried);
  return logger != nullptr && WriteRecord(kExtendedSelectionDataId, bytes, sizeof(bytes), logger);
}

bool InfoClientImpl::WriteRecord(std::uint16_t data_id, const std::uint8_t* data,
                                 std::uint32_t size, IMessageSink* logger) const {
  const auto message = Memory::MakeShared<LogMessage>();
  return message && message->Assign(client_id, data_id, data, size, 0) && logger->Write(message);
}

}  // namespace kestrav
