#ifndef KESTRAV_TOOLS_RECORD_FILTER_H_
#define KESTRAV_TOOLS_RECORD_FILTER_H_

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "log_file.h"

namespace kestrav::tool {

// Which records of a log are asked for: those of some clients, within a time.
class RecordFilter {
 public:
  struct Options {
    // Whether any of the clients is named, not numbered.
    bool HasNames() const;

    std::vector<std::string> clients;  // names or ids; empty: all
    double from_scnds = 0;
    double to_scnds = std::numeric_limits<double>::infinity();
  };

  // Throws `Failure` (wrong usage) when the times make no sense, and `Failure` when the log has no
  // such client.
  RecordFilter(const Options& options, const LogFile& log, const ClientNames& names);

  bool Matches(std::uint16_t client_id, std::uint32_t time_stamp) const {
    return MatchesTime(time_stamp) && MatchesClient(client_id);
  }
  bool MatchesTime(std::uint32_t time_stamp) const {
    const double at_ms = time_stamp - start_clock_;
    return at_ms >= from_ms_ && at_ms <= to_ms_;
  }
  // Whether the record is too early.
  bool IsBefore(std::uint32_t time_stamp) const {
    return static_cast<double>(time_stamp - start_clock_) < from_ms_;
  }
  bool MatchesClient(std::uint16_t client_id) const {
    return ids_.empty() || ids_.count(client_id) > 0;
  }
  // Of the log's time.
  double FromMs() const { return from_ms_; }
  double ToMs() const { return to_ms_; }
  // Empty: all.
  const std::set<std::uint16_t>& Ids() const { return ids_; }
  // Whether it may match records whose times since the start of the log lie within these two.
  bool MatchesSpan(std::uint32_t earliest_ms, std::uint32_t latest_ms) const {
    return latest_ms >= from_ms_ && earliest_ms <= to_ms_;
  }

 private:
  const std::uint32_t start_clock_;
  const double from_ms_;
  const double to_ms_;
  std::set<std::uint16_t> ids_;
};

// Adds --client, --from and what is named `to`.
void AddFilterOptions(CLI::App& command, RecordFilter::Options& options, const std::string& to);

// The names of the first dictionary, which is the first record unless clients were faster.
ClientNames FindNames(const std::string& path);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_RECORD_FILTER_H_
