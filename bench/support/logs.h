#ifndef KESTRAV_BENCH_SUPPORT_LOGS_H_
#define KESTRAV_BENCH_SUPPORT_LOGS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kestrav/format/log_message.h"
#include "kestrav/host/memory/ptr.h"
#include "support/payloads.h"

namespace kestrav::bench {

using Messages = std::vector<SmartPtr::Ptr<LogMessage>>;

// The id under which the messages below and the dictionary know the only client.
inline constexpr std::uint16_t kBenchClientId = 21;

// The different messages of a set; empty when memory is short.
Messages MakeMessages(const RecordSet& set);

// Writes a log of the set's records with a dictionary in front, a message each 50 µs of log time.
// false: it cannot be written.
bool WriteLog(const std::string& path, const RecordSet& set, bool scrambled);

// The records that a walk through the log delivers; 0 when it is no log.
std::uint64_t CountRecords(const std::string& path);

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_LOGS_H_
