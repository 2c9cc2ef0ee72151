#ifndef KESTRAV_TOOLS_LOG_FRONT_H_
#define KESTRAV_TOOLS_LOG_FRONT_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "log_file.h"

namespace kestrav::tool {

// A record of the recorder's own that stands in front of a log's others.
struct FrontRecord {
  std::string payload;  // empty: there is none
  std::uint32_t time_stamp = 0;

  bool Exists() const { return !payload.empty(); }
};

// What a log says of its clients before they have their say.
struct LogFront {
  FrontRecord dictionary;
  FrontRecord extended_selection;

  // Time does not go back behind them.
  void SetTime(std::uint32_t time_stamp) {
    dictionary.time_stamp = extended_selection.time_stamp = time_stamp;
  }
};

// The payloads of the two, byte by byte as docs/log-format.md says. Names are the bytes of a log.
std::string DictionaryPayload(const std::map<std::string, std::uint16_t>& ids);
std::string ExtendedSelectionPayload(std::uint64_t client_ids);

// The front of a log and where it was found.
struct FoundFront {
  LogFront front;
  ClientNames names;
  std::uint32_t dictionary_at = 0;  // 0: there is none
  std::uint32_t extended_selection_at = 0;
  std::set<std::uint16_t> ids;  // that have records, when there is no dictionary
};

// Reads up to the first dictionary and a little further; all of a log that has none. The time
// stamps are such that both can stand in front of all records.
FoundFront FindFront(const std::string& path);

inline bool IsFrontRecord(std::uint16_t client_id, std::uint16_t data_id) {
  return client_id == kInfoClientId &&
         (data_id == kDictionaryDataId || data_id == kExtendedSelectionDataId);
}

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_FRONT_H_
