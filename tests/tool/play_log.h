#ifndef KESTRAV_TESTS_TOOL_PLAY_LOG_H_
#define KESTRAV_TESTS_TOOL_PLAY_LOG_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {

inline std::string WriteLog(const Folder& folder, const Bytes& bytes) {
  return folder.Write("play.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}
inline std::string WriteLog(const Folder& folder, const LogBuilder& log) {
  return WriteLog(folder, log.Build());
}

// A log of one client whose records stand at these times after its start, and which lasts
// `duration_ms`.
inline LogBuilder TimedLog(const std::vector<std::uint32_t>& times_ms, std::uint32_t duration_ms) {
  constexpr std::uint32_t kStart = 5000;
  LogBuilder log;
  log.StartClock(kStart).Duration(duration_ms).Dictionary({{"GPS", 21}}, kStart);
  std::uint16_t n = 0;
  for (const std::uint32_t at : times_ms) log.Record(21, ++n, kStart + at, "fix");
  return log;
}

// A record each second, for as long as this: time enough to press keys.
inline LogBuilder LongLog(std::uint32_t scnds) {
  std::vector<std::uint32_t> times;
  for (std::uint32_t at = 0; at <= scnds; ++at) times.push_back(1000 * at);
  return TimedLog(times, 1000 * scnds);
}

using Objects = std::vector<nlohmann::json>;

inline Objects ParseLines(const std::string& text) {
  Objects objects;
  for (const std::string& line : Lines(text)) objects.push_back(nlohmann::json::parse(line));
  return objects;
}

inline Arguments PlayArguments(const std::string& log, const Arguments& more) {
  Arguments arguments = {"play", "--format", "jsonl", log};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

inline bool IsDelivery(const nlohmann::json& line) { return line.contains("payload"); }

// A record as `cat` and `play` both tell it.
using Told = std::tuple<std::string, std::uint32_t, std::uint32_t, std::string>;

// The records in JSON lines, without the info client's own and the notifications.
inline std::vector<Told> ToldRecords(const std::string& text) {
  std::vector<Told> records;
  for (const nlohmann::json& line : ParseLines(text)) {
    if (!IsDelivery(line) || line["client_id"] == 12) continue;
    const std::string client = line["client"].is_string() ? line["client"] : "?";
    records.emplace_back(client, line["data_id"], line["time_ms"], line["payload"]);
  }
  return records;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_PLAY_LOG_H_
