#ifndef KESTRAV_TESTS_RELIABILITY_FILE_HISTORY_H_
#define KESTRAV_TESTS_RELIABILITY_FILE_HISTORY_H_

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

#include "support/failing_files.h"
#include "support/streams.h"

namespace kestrav::test {

// What a file has gone through: the writes, truncations and syncs in their order, each with the
// time at which it was done. From it follows what a disk may hold when the power fails at any
// moment of it. One file at a time; any thread may write it.
class FileHistory {
 public:
  FileHistory();

  // What is done to files from now on is none of it.
  void Close() { files_.reset(); }

  std::size_t Moments() const;
  // How late it may have been at a moment: the time of what was done next.
  std::uint32_t TimeMs(std::size_t moment) const;

  // What the file held at a moment, in memory: 0 is before everything.
  Bytes At(std::size_t moment) const;
  // The last moment whose content is safe on the disk when the power fails at `moment`.
  std::size_t SyncedAt(std::size_t moment) const;

  // What is on the disk when the power fails at `moment`. What was synced is there, and its length.
  // Each block of 4 KiB that was written since holds what it held at one of the moments since, or
  // zeros in place of what is not safe; the file is as long as it was at one of these moments.
  Bytes AfterPowerCut(std::size_t moment, std::mt19937& random) const;

 private:
  static constexpr std::size_t kBlock = 4096;

  enum class Kind { kWrite, kTruncate, kSyncBegin, kSyncEnd };
  struct Event {
    Kind kind;
    std::uint32_t time_ms;
    std::size_t at;  // kTruncate: the new length; kSyncEnd: the event where it began
    Bytes bytes;     // kWrite alone
  };

  void NoteBegin(const FileAccess& access);
  void NoteEnd(const FileAccess& access, std::int64_t result);
  void Add(Kind kind, std::size_t at, Bytes bytes);
  void Apply(Bytes& content, std::size_t from, std::size_t to) const;

  mutable std::mutex mutex_;
  std::vector<Event> events_;
  std::size_t sync_began_ = 0;
  std::optional<FailingFiles> files_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_FILE_HISTORY_H_
