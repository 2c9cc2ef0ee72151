#ifndef KESTRAV_CLIENTS_INFO_CLIENT_H_
#define KESTRAV_CLIENTS_INFO_CLIENT_H_

#include <cstdint>

#include "kestrav/clients/client.h"
#include "kestrav/clients/dictionary_record.h"
#include "kestrav/types/sinks.h"

namespace kestrav {

// The recorder's own client, which writes its records into every log. It is never offered to the
// user.
class KESTRAV_API InfoClientImpl final : public IClient {
 public:
  static constexpr const wchar_t* s_InfoClientString = L"Info Client";

  InfoClientImpl() : IClient(kInfoClientId) {}

  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return s_InfoClientString; }
  bool IsUserSelectableForLogging() override { return false; }
  bool IsUserSelectableForPlayback() override { return false; }

  // Hands the dictionary record to `logger`. false: no logger, a dictionary that cannot be written,
  // short memory, or the logger refused.
  [[nodiscard]] bool WriteDictionaryRecord(const Dictionary& dictionary,
                                           IMessageSink* logger) const;

  // Hands bits 16 to 62 of the logging selection to `logger`. false as above.
  [[nodiscard]] bool RecordExtendedBinarySelection(std::uint64_t selection,
                                                   IMessageSink* logger) const;

 private:
  [[nodiscard]] bool WriteRecord(std::uint16_t data_id, const std::uint8_t* data,
                                 std::uint32_t size, IMessageSink* logger) const;
};

}  // namespace kestrav

#endif  // KESTRAV_CLIENTS_INFO_CLIENT_H_
