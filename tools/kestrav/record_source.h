#ifndef KESTRAV_TOOLS_RECORD_SOURCE_H_
#define KESTRAV_TOOLS_RECORD_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "log_file.h"
#include "log_index.h"
#include "record_filter.h"

namespace kestrav::tool {

// The whole records of a log, in its order, among which a filter's are to be found: all there are
// or, with an index, those of the blocks that may hold one.
class RecordSource {
 public:
  // `log` stands behind its header. It and the filter must outlive this.
  RecordSource(LogFile& log, const RecordFilter& filter, std::optional<LogIndex> index);

  // Reads the next record. Another code than kSuccess ends the walk: the one that ends a walk
  // through the whole log. Throws `Failure` when the log has changed.
  ResultCode Next(LogMessage& message);

  // How many whole records of the log stand before the one read last.
  std::uint64_t Ordinal() const { return next_ordinal_ - 1; }

 private:
  // Goes on to the next block that may hold a record. Not kSuccess: there is none.
  ResultCode NextBlock();
  bool MayHold(const IndexBlock& block) const;

  LogFile& log_;
  const RecordFilter& filter_;
  const std::optional<LogIndex> index_;
  std::size_t block_ = 0;   // the one that comes next
  std::uint32_t left_ = 0;  // of the records of the one before
  std::uint64_t next_ordinal_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_RECORD_SOURCE_H_
