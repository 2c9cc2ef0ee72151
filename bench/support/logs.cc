#include "support/logs.h"

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/format/decoder.h"
#include "kestrav/format/encoder.h"
#include "support/product.h"
#include "support/recording.h"

namespace kestrav::bench {
namespace {

bool WriteDictionary(BinaryEncoder& encoder, std::uint32_t time_ms) {
  Memory::MemBlock payload;
  const auto message = MakeMessage();
  return InfoClientUtility::WriteDictionaryData(
             {{BenchClient::kName, kBenchClientId}, {L"Info Client", kInfoClientId}}, payload) &&
         message->Assign(kInfoClientId, kDictionaryDataId, payload.Data(), payload.Size(),
                         time_ms) &&
         encoder.WriteBinaryLogRecord(message);
}

}  // namespace

Messages MakeMessages(const RecordSet& set) {
  Messages messages;
  for (std::uint32_t i = 0; i < set.Different(); ++i) {
    const auto payload = Payload(set.payload_size, i);
    messages.push_back(MakeMessage());
    if (!messages.back()->Assign(kBenchClientId, 1, payload.data(), set.payload_size, 0)) return {};
  }
  return messages;
}

bool WriteLog(const std::string& path, const RecordSet& set, bool scrambled) {
  constexpr std::uint32_t kMessagesPerMs = 20;
  const auto stream = OpenOutput(path, Io::OpenMode::kCreate);
  std::uint32_t start_ms = 0;
  if (stream == nullptr || !Time::Source().ReadMs(start_ms)) return false;
  BinaryEncoder encoder(stream);
  encoder.EnableEncryption(scrambled);
  if (!encoder.Start(std::uint64_t{1} << kBenchClientId) || !WriteDictionary(encoder, start_ms)) {
    return false;
  }
  const Messages messages = MakeMessages(set);
  if (messages.empty()) return false;
  for (std::uint64_t i = 0; i < set.records; ++i) {
    const auto& message = messages[i % messages.size()];
    message->time_stamp = start_ms + static_cast<std::uint32_t>(i / kMessagesPerMs);
    if (!encoder.WriteBinaryLogRecord(message)) return false;
  }
  encoder.Stop();
  return stream->Close();
}

std::uint64_t CountRecords(const std::string& path) {
  BinaryDecoder decoder(OpenInput(path));
  if (!decoder.Initialize()) return 0;
  LogMessage message;
  std::uint64_t records = 0;
  while (decoder.GetNextLogRecord(message) == kSuccess) ++records;
  return records;
}

}  // namespace kestrav::bench
