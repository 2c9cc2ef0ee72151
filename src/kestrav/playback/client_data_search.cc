#include "kestrav/playback/client_data_search.h"

#include "kestrav/clients/dictionary_record.h"

namespace kestrav {
namespace {

bool CopyPayload(const LogMessage& message, Memory::MemBlock& data) {
  return data.Assign(message.GetDataPointer(), message.GetDataSize());
}

bool ReadAttributes(BinaryDecoder& decoder, std::uint32_t& length_ms, std::uint32_t& size,
                    std::uint16_t& recorded_clients_mask, Memory::MemBlock& data,
                    std::uint16_t client_id) {
  if (!decoder.Initialize()) return false;
  length_ms = decoder.StreamHeader().recording_duration;
  size = decoder.StreamHeader().stream_length;
  recorded_clients_mask = decoder.StreamHeader().client_selection;
  LogMessage first;
  if (decoder.GetNextLogRecord(first) != kSuccess) return false;
  const bool is_dictionary =
      first.GetClientID() == client_id && first.GetDataID() == kDictionaryDataId;
  return !is_dictionary || CopyPayload(first, data);
}

// Stands behind the matching record, whose header is in `header`.
bool FindRecord(BinaryDecoder& decoder, BinaryLogRecordHeader& header, std::uint16_t client_id,
                std::uint16_t data_id, std::uint32_t offset_ms) {
  while (decoder.GetNextLogRecordHeader(header) == kSuccess) {
    if (header.client_id == client_id && header.data_id == data_id) return true;
    if (header.time_stamp - decoder.StreamHeader().start_clock >= offset_ms) return false;
  }
  return false;
}

bool Search(BinaryDecoder& decoder, Memory::MemBlock& data, std::uint16_t client_id,
            std::uint16_t data_id, std::uint32_t offset_scnds) {
  BinaryLogRecordHeader header;
  LogMessage message;
  return decoder.Initialize() && decoder.StreamHeader().recording_duration > 0 &&
         IsOffsetInLog(decoder, offset_scnds) &&
         FindRecord(decoder, header, client_id, data_id, 1000 * offset_scnds) &&
         decoder.SetToPreviousLogRecord(header.payload_size) &&
         decoder.GetNextLogRecord(message) == kSuccess && CopyPayload(message, data);
}

}  // namespace

bool ReadPlaybackAttributes(BinaryDecoder& decoder, std::uint32_t& lengthMs, std::uint32_t& size,
                            std::uint16_t& recordedClientsMask, Memory::MemBlock& data,
                            std::uint16_t clientId) {
  const bool read = ReadAttributes(decoder, lengthMs, size, recordedClientsMask, data, clientId);
  return decoder.SetOffset(0) && read;
}

bool SearchClientData(BinaryDecoder& decoder, Memory::MemBlock& data, std::uint16_t clientId,
                      std::uint16_t dataId, std::uint32_t offsetScnds) {
  const bool found = Search(decoder, data, clientId, dataId, offsetScnds);
  // Only a success of the search counts; the next use of the decoder seeks by itself.
  static_cast<void>(decoder.SetOffset(0));
  return found;
}

}  // namespace kestrav
