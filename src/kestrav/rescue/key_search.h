#ifndef KESTRAV_RESCUE_KEY_SEARCH_H_
#define KESTRAV_RESCUE_KEY_SEARCH_H_

#include <array>
#include <cstdint>
#include <vector>

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

  // Votes for each header key, so that no foreign record has a say.
  class VotesByKey {
   public:
    // Throws when memory is short.
    void Add(std::uint8_t header_key, std::uint8_t key);
    const Votes& Of(std::uint8_t header_key) const;

   private:
    static constexpr Votes kNone{};

    std::array<std::uint16_t, 256> places_{};  // in `votes_`, from 1 on; 0: there are none
    std::vector<Votes> votes_;
  };

  struct Ballot {
    Votes header{};
    VotesByKey data;
    VotesByKey dictionary;
  };

  static bool Decide(const Votes& votes, std::uint32_t enough, bool usable, std::uint8_t stated,
                     std::uint8_t& key);
  [[nodiscard]] bool AskRecords(const HeaderReading& reading);
  // The records that stand from `at` on; moves `at` behind what they tell.
  bool AskPair(std::uint32_t& at);
  // `header_key`: the one that goes with the record.
  void AskPayload(std::uint32_t at, const BinaryLogRecordHeader& header, std::uint8_t header_key);
  void AskDictionary(std::uint32_t at, const BinaryLogRecordHeader& header,
                     std::uint8_t header_key);
  bool IsEnough(const HeaderReading& reading) const;

  LogView& log_;
  Ballot all_;
  Ballot start_;  // of the records that stand one behind the other from the first one on
  std::uint32_t pairs_ = 0;
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_KEY_SEARCH_H_
