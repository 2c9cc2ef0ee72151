#ifndef KESTRAV_RESCUE_RECOVERY_H_
#define KESTRAV_RESCUE_RECOVERY_H_

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"

namespace kestrav {

// Why a record whose own checksums hold is left out.
enum class Doubt : std::uint8_t {
  kDuplicate,     // its index is that of a record that is written
  kOutOfOrder,    // index or time do not fit where it stands, as in a log inside a payload
  kOverlap,       // it shares bytes with a record that is written
  kWeakEvidence,  // what stands around it does not confirm it
};

struct DoubtfulRecord {
  std::uint32_t offset;  // of its header, from the start of the log
  std::uint32_t bytes;   // with its header
  std::uint32_t index;   // as its header says
  Doubt doubt;
};

// What bytes that were not written are.
enum class Loss : std::uint8_t {
  kHeader,    // a record whose header is damaged; its size still leads to the next record
  kPayload,   // a record whose payload fails its checksum
  kBytes,     // damage between two records
  kTrailing,  // what stands behind the last record
  kCut,       // what the stream header counts and the log does not hold
};

struct LostRange {
  std::uint32_t offset;
  std::uint32_t bytes;    // 0: records are missing, and nothing stands in their place
  std::uint32_t records;  // by the gap in the indices, 0 if none or unknown
  std::uint32_t index;    // of the first of them
  Loss loss;
};

// A record that is older than the one before it. It is written all the same.
struct StepBack {
  std::uint32_t offset;
  std::uint32_t index;
  std::uint32_t ms;
};

struct RecoveryReport {
  bool stream_header_good = false;  // magic and reserved bytes are right, and its keys agree
  bool keys_derived = false;        // the keys come from the records, not from the stream header
  bool data_key_known = false;      // false: no record tells it, and payloads may be unreadable
  bool dictionary_found = false;    // an intact dictionary record
  bool dictionary_moved = false;    // a copy of it was put in front
  std::uint32_t records = 0;        // written, without that copy
  std::uint64_t record_bytes = 0;   // of these records, with their headers
  std::vector<LostRange> lost;      // ascending by offset
  std::vector<DoubtfulRecord> doubtful;  // ascending by offset, at most about a million
  std::vector<StepBack> steps_back;      // ascending by offset
};

enum class RecoveryResult : std::uint8_t {
  kWhole,         // every record is written, and the stream header was good
  kDamaged,       // something was lost; the rest is written
  kNothingFound,  // no record; nothing is written
  kWriteFailed,
  kNoMemory,
  kCancelled,
};

// Reads a damaged log more deeply than playback does and writes what is whole in it to `out` as a
// clean log: every record whose own bytes are intact and whose place in the log is certain,
// numbered anew, with its own time stamp, a dictionary first if there is one. A healthy log that
// begins with its dictionary comes out byte for byte as it was. How records are found is told in
// docs/architecture.md.
//
// `log` holds all of the log, stream header included, even if that is damaged or missing; bytes
// that 32 bits do not address are left out. `out` stands at its start and can seek; null: only
// report. `progress` is called now and then with the bytes done, which end at the size of the log;
// false, or an exception, cancels. After kWriteFailed, kNoMemory and kCancelled `report` is
// incomplete and what `out` got is no log. Does not throw; any thread.
[[nodiscard]] KESTRAV_API RecoveryResult
RecoverLog(std::span<const std::uint8_t> log, Io::IOutputStream* out, RecoveryReport& report,
           const std::function<bool(std::uint64_t)>& progress = {}) noexcept;

}  // namespace kestrav

#endif  // KESTRAV_RESCUE_RECOVERY_H_
