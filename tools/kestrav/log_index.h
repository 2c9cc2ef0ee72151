#ifndef KESTRAV_TOOLS_LOG_INDEX_H_
#define KESTRAV_TOOLS_LOG_INDEX_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log_file.h"
#include "log_identity.h"
#include "scan.h"

namespace kestrav::tool {

// The records of a log from one checkpoint up to the next. A decoder that has just been initialised
// and is set to a checkpoint reads on as if it had come there from the start of the log: what it
// knows of the records before is the index that it expects, and of that the low 8 bits count, which
// are 0 here. (In a log whose headers are plain they do not count.)
struct IndexBlock {
  std::uint32_t offset = 0;        // the checkpoint, in bytes from the start of the log
  std::uint64_t first_record = 0;  // how many whole records stand before it
  std::uint32_t first_index = 0;   // the index in the first record's header
  std::uint32_t records = 0;       // at least one
  std::uint32_t earliest_ms = 0;   // the least and the greatest of their times since the start of
  std::uint32_t latest_ms = 0;     // the log; in a damaged log times may go back
  // The records stand side by side, are numbered without a gap and never go back in time, all of
  // this from the record before the checkpoint on.
  bool orderly = true;
  std::map<std::uint16_t, std::uint32_t> clients;  // how many of each client id
};

// What a walk through a whole log finds. It may be kept beside the log, as LOG.kidx; the bytes of
// that file are described in docs/log-index.md.
struct LogIndex {
  ScanResult scan;
  std::vector<IndexBlock> blocks;  // in the order of the log; all its whole records are in them

  // The first block, not counting those before `begin`, with a record at this time of the log or
  // later; blocks.size(): there is none.
  std::size_t FirstBlockFrom(double from_ms, std::size_t begin) const;
};

std::string IndexPath(const std::string& log_path);

// Walks through the log. Throws `Failure` when it cannot be read.
LogIndex BuildIndex(LogFile& log);

// The index that is kept beside the log. Empty: there is none, it is damaged, or it is that of
// another log or of an earlier state of this one.
std::optional<LogIndex> ReadIndex(LogFile& log);

// As `ReadIndex`, for a reading that wants to begin further on. An index that does not fit is made
// anew, at the cost of a walk, when the recording is finished.
std::optional<LogIndex> OpenIndex(LogFile& log);

// Keeps an index beside the log of which `identity` was taken before it was built. Returns its
// size. Throws `Failure` when the log has changed since, or the file cannot be written.
std::uint64_t KeepIndex(LogFile& log, const LogIdentity& identity, const LogIndex& index);

// The kept index's results, or those of a walk. A log whose recording is finished is given an index
// then, where the folder allows it, when it is large or has one that does not fit.
ScanResult ScanWithIndex(LogFile& log);

// The bytes of the file, and what they begin with.
inline constexpr std::string_view kIndexMagic = "KIDX";
std::string IndexBytes(const LogIdentity& identity, const LogIndex& index);
// Empty: the bytes are no index, damaged, or that of another log.
std::optional<LogIndex> ParseIndex(const std::string& bytes, const LogIdentity& identity);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_INDEX_H_
