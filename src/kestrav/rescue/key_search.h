#ifndef KESTRAV_RESCUE_KEY_SEARCH_H_
#define KESTRAV_RESCUE_KEY_SEARCH_H_

#include <array>
#include <cstdint>

#include "kestrav/format/record_header.h"
#include "kestrav/format/stream_header.h"
#include "kestrav/rescue/log_view.h"

namespace kestrav::rescue {

// What stands where the stream header belongs.
struct HeaderReading {
  BinaryLogStreamHeader fields;  // with the right magic
  bool magic = false;            // it was right
  bool sound = false;            // and the reserved bytes are 0
  bool usable = false;           // enough of it looks like a stream header to go by its fields
};

HeaderReading ReadStreamHeader(const LogView& log);

struct FoundKeys {
  std::uint8_t header = 0;
  std::uint8_t data = 0;
  bool agree = false;       // those of the stream header are these
  bool data_known = false;  // the records, or a usable stream header, tell the second one
};

// Finds the keys of a log by asking pairs of records that stand one behind the other: marker and
// index of a record give the header key, the checksum of an odd payload the data key, and a
// dictionary's count both of its high bytes. The keys of the stream header hold where some pairs
// agree with them.
class KeySearch {
 public:
  explicit KeySearch(LogView& log) : log_(log) {}

  // false: memory is short.
  [[nodiscard]] bool Find(const HeaderReading& reading, FoundKeys& keys);

 private:
  using Votes = std::array<std::uint32_t, 256>;

  [[nodiscard]] bool AskRecords(const HeaderReading& reading);
  // The records that stand from `at` on; moves `at` behind what they tell.
  bool AskPair(std::uint32_t& at);
  void AskPayload(std::uint32_t at, const BinaryLogRecordHeader& header);
  void AskDictionary(std::uint32_t at, const BinaryLogRecordHeader& header);
  bool IsEnough(const HeaderReading& reading) const;

  LogView& log_;
  Votes header_votes_{};
  Votes data_votes_{};
  Votes dictionary_votes_{};
  std::uint32_t pairs_ = 0;
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_KEY_SEARCH_H_
