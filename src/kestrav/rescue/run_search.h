#ifndef KESTRAV_RESCUE_RUN_SEARCH_H_
#define KESTRAV_RESCUE_RUN_SEARCH_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "kestrav/rescue/log_view.h"
#include "kestrav/rescue/recovery.h"

namespace kestrav::rescue {

// Records that follow each other, with damaged ones between them that could be stepped over.
struct Run {
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
  std::uint32_t index = 0;       // of what stands at `begin`
  std::uint32_t next_index = 0;  // of what would stand behind it
  std::uint32_t tail_end = 0;    // of an unconfirmed record that stands at `end`; 0: there is none
  std::uint32_t records = 0;     // whole ones
  std::uint32_t first_time = 0;
  std::uint32_t last_time = 0;
  bool tail_leads = false;  // that record ends where a sound header of another index stands
  bool embedded = false;    // it begins behind a stream header inside the log
  bool continues = false;   // a run was cut in front of it, behind copies of earlier records
};

// Where a walk over the log is, for those who wait. false: it is to end.
using Continue = std::function<bool(std::uint64_t)>;

enum class SearchResult : std::uint8_t { kDone, kNoMemory, kCancelled };

// Finds all runs of a log. Work and memory grow with the log, whatever it holds: bytes are searched
// once, and what a run of several records covers is not searched for other ones.
class RunSearch {
 public:
  RunSearch(LogView& log, const Continue& go_on) : log_(log), go_on_(go_on) {}

  SearchResult Search();

  // Ascending by begin.
  std::vector<Run>& Runs() { return runs_; }
  // Whole records that nothing confirms.
  std::vector<DoubtfulRecord>& Unconfirmed() { return unconfirmed_; }
  // For each client id whether records of a longer run have it, all but the first few of the run.
  std::vector<bool>& KnownIds() { return known_ids_; }

 private:
  [[nodiscard]] SearchResult SearchFrom(std::uint32_t at);
  // Takes the run at `at`, where the record `index` is to stand, and moves `at` to where the search
  // goes on.
  [[nodiscard]] SearchResult TakeRun(std::uint32_t& at, std::uint32_t index);
  [[nodiscard]] SearchResult Keep(Run& run, std::uint32_t& at);
  // Where a log ends, by its stream header, whose first record is the one at `at`. Nothing: none is
  // known to begin there inside this log.
  std::optional<std::uint32_t> EmbeddedEnd(std::uint32_t at) const;
  bool IsTime(std::uint32_t at);

  LogView& log_;
  const Continue& go_on_;
  std::vector<Run> runs_;
  std::vector<DoubtfulRecord> unconfirmed_;
  std::vector<bool> known_ids_;
  std::uint32_t next_look_ = 0;
};

// More doubtful records than these are not listed.
inline constexpr std::size_t kMostDoubtful = 1 << 20;

// Runs of this many records need no further evidence.
inline constexpr std::uint32_t kLongRun = 8;

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_RUN_SEARCH_H_
