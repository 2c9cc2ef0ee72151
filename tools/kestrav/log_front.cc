#include "log_front.h"

#include <utility>

#include "kestrav/format/record_header.h"
#include "kestrav/host/memory/byte_order.h"
#include "log_walk.h"

namespace kestrav::tool {
namespace {

// The recorder hands in the extended selection right behind the dictionary, but clients may come in
// between.
constexpr int kRecordsBehindDictionary = 16;

bool IsBefore(std::uint32_t time_stamp, std::uint32_t other) {
  return static_cast<std::int32_t>(time_stamp - other) < 0;
}

std::string Bytes(const Memory::MemBlock& payload) {
  return {reinterpret_cast<const char*>(payload.Data()), payload.Size()};
}

void SetNotBehind(FrontRecord& record, std::uint32_t time_stamp) {
  if (IsBefore(time_stamp, record.time_stamp)) record.time_stamp = time_stamp;
}

class FrontSearch {
 public:
  explicit FrontSearch(LogFile& log) : walk_(log.Decoder()) {}

  FoundFront Run() {
    for (int behind = 0; behind <= kRecordsBehindDictionary && !IsComplete(); ++behind) {
      if (walk_.Next() != kSuccess) break;
      Look();
      if (found_.dictionary_at == 0) behind = 0;
    }
    if (found_.dictionary_at > 0) found_.ids.clear();
    // In front of all records, the dictionary first.
    LogFront& front = found_.front;
    if (any_other_) SetNotBehind(front.extended_selection, earliest_);
    if (any_other_) SetNotBehind(front.dictionary, earliest_);
    if (front.extended_selection.Exists()) {
      SetNotBehind(front.dictionary, front.extended_selection.time_stamp);
    }
    return std::move(found_);
  }

 private:
  bool IsComplete() const { return found_.dictionary_at > 0 && found_.extended_selection_at > 0; }

  void Look() {
    const BinaryLogRecordHeader& header = walk_.Header();
    const std::uint32_t at = walk_.End() - header.payload_size - kRecordHeaderSize;
    if (found_.dictionary_at == 0 &&
        ReadNames(header.client_id, header.data_id, walk_.Payload(), found_.names)) {
      found_.dictionary_at = at;
      found_.front.dictionary = {Bytes(walk_.Payload()), header.time_stamp};
    } else if (found_.extended_selection_at == 0 && header.client_id == kInfoClientId &&
               header.data_id == kExtendedSelectionDataId) {
      found_.extended_selection_at = at;
      found_.front.extended_selection = {Bytes(walk_.Payload()), header.time_stamp};
    } else {
      found_.ids.insert(header.client_id);
      if (!any_other_ || IsBefore(header.time_stamp, earliest_)) earliest_ = header.time_stamp;
      any_other_ = true;
    }
  }

  LogWalk walk_;
  FoundFront found_;
  bool any_other_ = false;
  std::uint32_t earliest_ = 0;  // of the others
};

}  // namespace

std::string DictionaryPayload(const std::map<std::string, std::uint16_t>& ids) {
  std::string payload(sizeof(std::uint32_t), '\0');
  Memory::PutLittleEndian(reinterpret_cast<std::uint8_t*>(payload.data()),
                          static_cast<std::uint32_t>(ids.size()));
  for (const auto& [name, id] : ids) {
    payload += name;
    payload += '\0';
    payload += std::to_string(id);
    payload += '\0';
  }
  return payload;
}

std::string ExtendedSelectionPayload(std::uint64_t client_ids) {
  constexpr std::uint64_t kCarried = 0x00007FFFFFFFFFFF;  // id 63 has no bit
  std::string payload(sizeof(std::uint64_t), '\0');
  Memory::PutLittleEndian(reinterpret_cast<std::uint8_t*>(payload.data()),
                          client_ids >> 16 & kCarried);
  return payload;
}

FoundFront FindFront(const std::string& path) {
  LogFile log(path);
  return FrontSearch(log).Run();
}

}  // namespace kestrav::tool
