#ifndef KESTRAV_TESTS_TOOL_CUT_H_
#define KESTRAV_TESTS_TOOL_CUT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "play_log.h"
#include "run.h"
#include "support/log_builder.h"
#include "support/parsed_log.h"

// What the tests of trim, merge, split and diff share.

namespace kestrav::test {

inline constexpr std::int64_t kBuiltStartTime = 1'000'000'000;  // of a `LogBuilder`'s log

inline std::string WriteLogAs(const Folder& folder, const std::string& name,
                              const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

inline ParsedLog Parse(const std::string& path) {
  const std::string text = ReadFile(path);
  ParsedLog log = ParseLog({text.begin(), text.end()});
  EXPECT_EQ(log.error, "") << path;
  EXPECT_EQ(log.stream_length, text.size()) << path;
  return log;
}

inline bool IsFront(const ParsedRecord& record) {
  return record.client_id == 12 && (record.data_id == 1200 || record.data_id == 134);
}

// A record by what it means, whatever the log's ids and clock.
struct Meaning {
  std::string client;
  std::uint16_t data_id = 0;
  std::int64_t wall_ms = 0;  // since the start time of a built log
  std::string payload;

  friend bool operator==(const Meaning&, const Meaning&) = default;
  friend void PrintTo(const Meaning& record, std::ostream* out) {
    *out << record.client << " " << record.data_id << " @" << record.wall_ms << " "
         << ::testing::PrintToString(record.payload);
  }
};

// The names of a log whose first record is its dictionary.
inline std::map<std::uint16_t, std::string> NamesIn(const ParsedLog& log) {
  std::map<std::uint16_t, std::string> names;
  if (log.records.empty() || !IsFront(log.records[0])) return names;
  const std::string& payload = log.records[0].payload;
  for (std::size_t at = 4; at < payload.size();) {
    const std::string name = payload.c_str() + at;
    at += name.size() + 1;
    const std::string id = payload.c_str() + at;
    at += id.size() + 1;
    names[static_cast<std::uint16_t>(std::stoi(id))] = name;
  }
  return names;
}

// All records but the recorder's own.
inline std::vector<Meaning> Meanings(const ParsedLog& log) {
  const std::map<std::uint16_t, std::string> names = NamesIn(log);
  std::vector<Meaning> records;
  for (const ParsedRecord& record : log.records) {
    if (IsFront(record)) continue;
    const auto name = names.find(record.client_id);
    const auto since = static_cast<std::int32_t>(record.time_ms - log.start_clock);
    records.push_back({name != names.end() ? name->second : std::to_string(record.client_id),
                       record.data_id, 1000 * (log.start_time - kBuiltStartTime) + since,
                       record.payload});
  }
  return records;
}

// The records that `is_wanted`.
template <class Predicate>
std::vector<Meaning> Only(std::vector<Meaning> records, Predicate is_wanted) {
  std::erase_if(records, [&](const Meaning& record) { return !is_wanted(record); });
  return records;
}

// That the log has no damage and that each kind of playback delivers all of it up to its end.
inline void ExpectHealthy(const std::string& path) {
  SCOPED_TRACE(path);
  const Result check = RunTool({"check", path});
  EXPECT_EQ(check.code, 0) << check.out << check.err;
  const std::size_t records = Meanings(Parse(path)).size();
  for (const Arguments& mode :
       {Arguments{"--unpaced"}, {"--virtual"}, {"--mode", "polling"}, {"--mode", "pass-through"}}) {
    const Result played = RunTool(PlayArguments(path, mode));
    EXPECT_EQ(played.code, 0) << mode[0] << played.err;
    EXPECT_EQ(ToldRecords(played.out).size(), records) << mode.back();
  }
}

// A drive of 20 seconds with three clients, as the recorder writes it: dictionary and extended
// selection first, the dictionary again every ten seconds.
inline LogBuilder Drive(std::uint8_t key = 0, std::uint32_t start_clock = 5000) {
  const std::map<std::string, int> names = {
      {"CAN", 3}, {"GPS", 21}, {"IMU", 22}, {"Info Client", 12}};
  LogBuilder log(key, key);
  log.StartClock(start_clock).Duration(20'000).Selection(0x9008);
  log.Dictionary(names, start_clock);
  log.Record(12, 134, start_clock, std::string("\x60\0\0\0\0\0\0\0", 8));
  std::minstd_rand random(7);
  bool repeated = false;
  for (std::uint32_t ms = 10; ms < 20'000; ms += 1 + static_cast<std::uint32_t>(random() % 40)) {
    if (ms >= 10'000 && !repeated) log.Dictionary(names, start_clock + ms);
    repeated = ms >= 10'000;
    static constexpr std::uint16_t kClients[] = {3, 21, 22};
    const auto choice = static_cast<std::uint32_t>(random());
    log.Record(kClients[choice % 3], static_cast<std::uint16_t>(choice / 3 % 4), start_clock + ms,
               std::to_string(random()) + std::string(choice % 50, 'x'));
  }
  return log;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_CUT_H_
