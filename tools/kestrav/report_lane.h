#ifndef KESTRAV_TOOLS_REPORT_LANE_H_
#define KESTRAV_TOOLS_REPORT_LANE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "report_track.h"
#include "scan.h"

namespace kestrav::tool {

// Counts over time in bounded memory: buckets of one width in milliseconds, a power of two. When
// the log outgrows them each two become one.
class Buckets {
 public:
  static constexpr std::size_t kMost = 8192;

  struct Bucket {
    std::uint32_t records = 0;
    std::uint32_t bytes = 0;  // of payload; a log has less than 4 GiB
  };

  // `shift`: the width is 2 to the power of it, never less than before.
  void Add(std::int64_t at_ms, unsigned shift, std::uint32_t bytes);
  // As many as reach to the last record. Width as of `Add`; `Widen` first where others went on.
  const std::vector<Bucket>& All() const { return buckets_; }
  void Widen(unsigned shift);

 private:
  std::vector<Bucket> buckets_;
  unsigned shift_ = 0;
};

// A stretch in which a client wrote nothing.
struct Silence {
  std::int64_t from_ms = 0;
  std::int64_t length_ms = 0;
};

// What a client did over time.
struct Lane {
  static constexpr std::size_t kMostSilences = 16;
  static constexpr std::size_t kMostDataIds = 64;

  void Add(const BinaryLogRecordHeader& header, std::int64_t at_ms, unsigned shift);
  // No record follows, but the log goes on up to `end_ms`: a client may have fallen silent.
  void End(std::int64_t end_ms);
  // Those that stand out, in the order of time: a second and ten times the usual at least, and not
  // one of many that are alike.
  std::vector<Silence> LongSilences() const;

  ClientStatistics statistics;
  std::map<std::uint16_t, std::uint64_t> data_ids;  // records of each, the first kMostDataIds
  std::int64_t first_ms = 0;
  std::int64_t last_ms = 0;
  Buckets buckets;
  Track track;

 private:
  void AddSilence(const Silence& silence);

  std::vector<Silence> silences_;  // the longest, a heap with the shortest of them in front
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_REPORT_LANE_H_
