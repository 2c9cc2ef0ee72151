#ifndef KESTRAV_TESTS_RELIABILITY_DOOMED_RECORDER_H_
#define KESTRAV_TESTS_RELIABILITY_DOOMED_RECORDER_H_

#include <array>
#include <atomic>
#include <cstdint>

#include "kestrav/host/text/string.h"
#include "reliability/vouched_payload.h"

namespace kestrav::test {

// What a recording process tells about itself in memory that it shares with the one that kills it,
// and which outlives it.
struct Progress {
  struct Writer {
    std::atomic<std::uint32_t> begun;     // handed over, the last one perhaps without an answer yet
    std::atomic<std::uint32_t> accepted;  // with a good answer
    std::atomic<std::uint32_t> let_go;    // the recorder has made records of them
    std::atomic<std::uint32_t> written;   // of those: the system has taken them
  };

  enum Stage : int { kStarting, kRecording, kFailed };

  std::array<Writer, VouchedPayload::kWriters> writers;
  std::atomic<int> stage;
  std::atomic<bool> rest_wanted;       // by the one who kills
  std::atomic<std::uint32_t> resting;  // writers that hand over nothing more
  static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
};

// A `Progress`, all zero, that a child process shares.
class SharedProgress {
 public:
  SharedProgress();
  ~SharedProgress();
  SharedProgress(const SharedProgress&) = delete;
  SharedProgress& operator=(const SharedProgress&) = delete;

  Progress* operator->() const { return progress_; }
  Progress& operator*() const { return *progress_; }

 private:
  Progress* progress_;
};

// Records to a new file at `path` with four writers, three of them in bursts and the first one a
// message every 20 ms, until somebody kills this process. Never returns.
[[noreturn]] void RecordUntilKilled(const String& path, std::uint32_t seed, bool scrambled,
                                    Progress& progress);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_DOOMED_RECORDER_H_
