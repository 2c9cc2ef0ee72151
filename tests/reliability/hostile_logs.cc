#include "reliability/hostile_logs.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "support/log_builder.h"

namespace kestrav::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint8_t kMarker = 0x4C;
constexpr std::size_t kFlood = 64 * 1024;

Bytes Content(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content(std::istreambuf_iterator<char>(file), {});
  return {content.begin(), content.end()};
}

std::string AsText(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// More entries than there are client ids, in a payload of half a megabyte.
Bytes HugeDictionary(std::uint8_t key) {
  std::string payload(4, '\xFF');
  for (int i = 0; i < 30'000; ++i) {
    payload += "client " + std::to_string(i) + '\0' + std::to_string(i) + '\0';
  }
  payload += std::string("GPS\0003\0", 6);
  return LogBuilder(key, key).Record(12, 1200, 0, payload).Record(3, 1, 1, "behind").Build();
}

Bytes OneStringId(std::uint8_t key) {
  return LogBuilder(key, key)
      .Record(12, 1200, 0, std::string(4, '\1') + std::string(1'000'000, 'x') + '\0')
      .Record(3, 1, 1, "behind")
      .Build();
}

// A log in a payload of a log in a payload, twelve deep, each of them twice as long as the last.
Bytes NestedLogs(std::uint8_t key) {
  Bytes log = LogBuilder(key, key).Record(3, 1, 1, "innermost").Build();
  for (int depth = 0; depth < 12; ++depth) {
    const std::string inner = AsText(log);
    log = LogBuilder(key, key).Record(3, 1, 1, inner).Record(5, 1, 2, inner).Build();
  }
  return log;
}

// The same, with the header of its outermost record damaged.
Bytes BrokenNestedLogs(std::uint8_t key) {
  Bytes log = NestedLogs(key);
  log[128 + 9] ^= 0x40;
  return log;
}

Bytes Flood(std::uint8_t key) {
  LogBuilder log(key, key);
  log.Record(3, 1, 1, "before").Raw(Bytes(kFlood, kMarker));
  return log.Raw(Bytes(kFlood, static_cast<std::uint8_t>(kMarker ^ (key + 1)))).Build();
}

// Headers side by side, each of them good, whose payload is all that follows and never right.
Bytes FloodOfHeaders(std::uint8_t key) {
  LogBuilder log(key, key);
  log.Record(3, 1, 1, "before").Raw(Bytes(1, 0));  // one byte off, so that they are searched for
  for (std::size_t behind = kFlood; behind >= 20; behind -= 20) {
    LogBuilder record(key, 0);
    record.NextIndex(1).Record(3, 1, 1, "x");
    Bytes header = record.Build();
    header.erase(header.begin(), header.begin() + 128);
    header.resize(20);
    const auto mask = static_cast<std::uint32_t>((behind - 20) ^ 1);
    for (std::size_t i = 0; i < 4; ++i) {
      const auto bits = static_cast<std::uint8_t>(mask >> (8 * i));
      header[16 + i] ^= bits;
      header[1] ^= bits;
    }
    log.Raw(header);
  }
  return log.Build();
}

void AddLarge(std::vector<HostileLog>& logs, const std::string& name,
              Bytes (*build)(std::uint8_t key)) {
  logs.push_back({name + "_plain", build(0)});
  logs.push_back({name + "_scrambled", build(0x35)});
}

}  // namespace

std::vector<HostileLog> HostileLogs() {
  std::vector<HostileLog> logs;
  for (const auto& entry :
       fs::directory_iterator(fs::path(KESTRAV_SOURCE_DIR) / "tests/corpus/log")) {
    logs.push_back({entry.path().stem(), Content(entry.path())});
  }
  std::sort(logs.begin(), logs.end(),
            [](const HostileLog& a, const HostileLog& b) { return a.name < b.name; });
  AddLarge(logs, "huge_dictionary", HugeDictionary);
  AddLarge(logs, "one_string_id", OneStringId);
  AddLarge(logs, "nested_logs", NestedLogs);
  AddLarge(logs, "broken_nested_logs", BrokenNestedLogs);
  AddLarge(logs, "flood", Flood);
  AddLarge(logs, "flood_of_headers", FloodOfHeaders);
  return logs;
}

}  // namespace kestrav::test
