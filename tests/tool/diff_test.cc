#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "cut.h"

namespace kestrav::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

Json Diff(const std::string& a, const std::string& b, int code) {
  const Result result = RunTool({"diff", "--json", "--list", "1000000", a, b});
  EXPECT_EQ(result.code, code) << result.err;
  EXPECT_EQ(result.err, "");
  return Json::parse(result.out);
}

struct Sent {
  std::uint32_t at_ms;
  std::string payload;
  std::uint16_t data_id = 1;
};

std::string LogOf(const Folder& folder, const std::string& name, const std::vector<Sent>& records) {
  LogBuilder log;
  log.StartClock(1000).Dictionary({{"GPS", 21}}, 1000);
  for (const Sent& record : records) {
    log.Record(21, record.data_id, 1000 + record.at_ms, record.payload);
  }
  return WriteLogAs(folder, name, log);
}

TEST(Diff, FindsNoneBetweenALogAndItsCopies) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive());
  LogBuilder other(9, 8);
  other.StartClock(777).Dictionary({{"CAN", 33}, {"GPS", 3}, {"IMU", 0}}, 777);
  const ParsedLog parsed = Parse(log);
  for (const ParsedRecord& record : parsed.records) {
    const std::uint16_t id = record.client_id == 3 ? 33 : record.client_id == 21 ? 3 : 0;
    if (IsFront(record)) continue;
    other.Record(id, record.data_id, record.time_ms - 5000 + 777, record.payload);
  }
  for (const std::string& copy : {log, WriteLogAs(folder, "scrambled.klog", Drive(0x2A)),
                                  WriteLogAs(folder, "other.klog", other)}) {
    const Result result = RunTool({"diff", log, copy});
    EXPECT_EQ(result.code, 0) << result.out;
    const std::size_t records = Meanings(parsed).size();
    EXPECT_EQ(Lines(result.out).back(), "all: " + std::to_string(records) + " the same");
  }
}

TEST(Diff, OfALogAndItsTrimNamesWhatWasCut) {
  const Folder folder;
  const std::string log = WriteLogAs(folder, "a.klog", Drive(0x2A));
  const std::string part = folder.Path("part.klog");
  ASSERT_EQ(RunTool({"trim", log, "-o", part, "--from", "3.2", "--to", "15"}).code, 0);
  std::vector<std::uint32_t> cut;
  const ParsedLog parsed = Parse(log);
  for (std::uint32_t n = 0; n < parsed.records.size(); ++n) {
    const std::uint32_t at = parsed.records[n].time_ms - 5000;
    if (!IsFront(parsed.records[n]) && (at < 3200 || at > 15'000)) cut.push_back(n);
  }
  for (const bool swapped : {false, true}) {
    const std::string what = swapped ? "only_in_b" : "only_in_a";
    const Json diff = swapped ? Diff(part, log, 3) : Diff(log, part, 3);
    std::vector<std::uint32_t> named;
    for (const Json& one : diff["differences"]) {
      EXPECT_EQ(one["what"], what);
      named.push_back(one[swapped ? "b" : "a"]["index"]);
    }
    std::sort(named.begin(), named.end());
    EXPECT_EQ(named, cut);
    EXPECT_EQ(diff["all"]["same"], Meanings(parsed).size() - cut.size());
  }
}

TEST(Diff, TellsChangedMovedAndMissingRecords) {
  const Folder folder;
  const std::string a = LogOf(
      folder, "a.klog",
      {{0, "one"}, {100, "two"}, {200, "x", 2}, {250, "three"}, {300, "four"}, {400, "five"}});
  const std::string b =
      LogOf(folder, "b.klog",
            {{0, "one"}, {100, "TWO"}, {200, "x", 2}, {275, "three"}, {330, "new"}, {395, "five"}});
  const Result text = RunTool({"diff", a, b});
  EXPECT_EQ(text.code, 3);
  EXPECT_EQ(text.err, "");
  EXPECT_EQ(text.out,
            "A " + a + ": 6 records\n" + "B " + b + ": 6 records\n" +
                "     0.100  GPS 1  other payload: A record 2 at byte 182, B record 2 at byte 182\n"
                "     0.250  GPS 1  other time, +0.025 s: A record 4 at byte 226, B record 4 at "
                "byte 226\n"
                "     0.300  GPS 1  only in A: record 5 at byte 251\n"
                "     0.330  GPS 1  only in B: record 5 at byte 251\n"
                "     0.400  GPS 1  other time, -0.005 s: A record 6 at byte 275, B record 6 at "
                "byte 274\n"
                "GPS 1: 1 the same, 1 only in A, 1 only in B, 1 with another payload, 2 at another "
                "time (at most +0.025 s, on average +0.010 s)\n"
                "all: 2 the same, 1 only in A, 1 only in B, 1 with another payload, 2 at another "
                "time (at most +0.025 s, on average +0.010 s)\n");
  const Json json = Diff(a, b, 3);
  EXPECT_EQ(json["all"],
            Json::parse(R"({"same": 2, "only_in_a": 1, "only_in_b": 1, "changed": 1, "moved": 2,
                            "largest_move_ms": 25, "mean_move_ms": 10.0})"));
  EXPECT_EQ(json["kinds"][1]["client"], "GPS");
  EXPECT_EQ(json["kinds"][1]["data_id"], 2);
  EXPECT_EQ(json["kinds"][1]["same"], 1);
  EXPECT_EQ(json["differences"][1], Json::parse(R"({"client": "GPS", "data_id": 1, "what": "moved",
                            "a": {"time_ms": 250, "index": 4, "offset": 226},
                            "b": {"time_ms": 275, "index": 4, "offset": 226}})"));
}

TEST(Diff, ListsSoManyAndCountsTheOthers) {
  const Folder folder;
  std::vector<Sent> records;
  for (std::uint32_t i = 0; i < 150; ++i) records.push_back({i, std::to_string(i)});
  const std::string a = LogOf(folder, "a.klog", records);
  const std::string b = LogOf(folder, "b.klog", {});
  EXPECT_THAT(RunTool({"diff", a, b}).out,
              HasSubstr("50 further differences are not listed; see --list\n"));
  const Result few = RunTool({"diff", "--list", "2", a, b});
  EXPECT_EQ(Lines(few.out).size(), 7U) << few.out;
  EXPECT_EQ(Diff(a, b, 3)["unlisted"], 0);
}

// Payloads that repeat, and all of B's later by a little: what was taken out is still found.
TEST(Diff, FindsItsWayAgainAfterRecordsThatAreMissing) {
  const Folder folder;
  std::vector<Sent> a;
  std::vector<Sent> b;
  for (std::uint32_t i = 0; i < 5000; ++i) {
    const std::string payload = i % 2 == 0 ? "on" : "off";
    a.push_back({100 * i, payload});
    if (i != 700 && i != 2000 && i != 2001) b.push_back({100 * i + 7, payload});
    if (i == 3000) b.push_back({100 * i + 50, "surprise"});
  }
  const Json diff = Diff(LogOf(folder, "a.klog", a), LogOf(folder, "b.klog", b), 3);
  EXPECT_EQ(diff["all"]["moved"], 4997);
  EXPECT_EQ(diff["all"]["largest_move_ms"], 7);
  EXPECT_EQ(diff["all"]["mean_move_ms"], 7);
  std::vector<std::int64_t> only_in_a;
  for (const Json& one : diff["differences"]) {
    if (one["what"] == "only_in_a") only_in_a.push_back(one["a"]["time_ms"]);
    if (one["what"] == "only_in_b") {
      EXPECT_EQ(one["b"]["time_ms"], 300'050);
    }
  }
  EXPECT_EQ(only_in_a, (std::vector<std::int64_t>{70'000, 200'000, 200'100}));
  EXPECT_EQ(diff["all"]["only_in_b"], 1);
}

// Whatever is done to a log, each record is counted once on its side.
TEST(Diff, CountsEveryRecordOnce) {
  for (const std::uint32_t seed : {1U, 3U, 6U}) {
    std::minstd_rand random(seed);
    std::vector<Sent> a;
    std::vector<Sent> b;
    for (std::uint32_t ms = 0; a.size() < 3000; ms += static_cast<std::uint32_t>(random() % 20)) {
      const Sent sent = {ms, std::to_string(random() % (4 * seed * seed)),
                         static_cast<std::uint16_t>(random() % 3)};
      a.push_back(sent);
      const auto fate = random() % 10;
      if (fate > 0) b.push_back(sent);
      if (fate == 1) b.back().payload = "other";
      if (fate == 2) b.push_back(sent);
      if (fate > 8 - seed) b.back().at_ms += static_cast<std::uint32_t>(random() % 3);
    }
    const auto is_earlier = [](const Sent& x, const Sent& y) { return x.at_ms < y.at_ms; };
    std::stable_sort(b.begin(), b.end(), is_earlier);
    const Folder folder;
    const Json all = Diff(LogOf(folder, "a.klog", a), LogOf(folder, "b.klog", b), 3)["all"];
    const std::uint64_t both = all["same"].get<std::uint64_t>() +
                               all["changed"].get<std::uint64_t>() +
                               all["moved"].get<std::uint64_t>();
    EXPECT_EQ(both + all["only_in_a"].get<std::uint64_t>(), a.size()) << seed;
    EXPECT_EQ(both + all["only_in_b"].get<std::uint64_t>(), b.size()) << seed;
    EXPECT_GT(all["same"].get<std::uint64_t>(), 500U);
  }
}

TEST(Diff, TellsClientsByNameAndOthersById) {
  const Folder folder;
  LogBuilder a;
  a.Dictionary({{"G\"\x01", 21}}, 0).Record(21, 1, 5, "x").Record(40, 1, 6, "y");
  LogBuilder b;
  b.Dictionary({{"GPS", 21}}, 0).Record(21, 1, 5, "x").Record(40, 1, 6, "y");
  const std::string first = WriteLogAs(folder, "a.klog", a);
  const std::string second = WriteLogAs(folder, "b.klog", b);
  const Json diff = Diff(first, second, 3);
  EXPECT_EQ(diff["all"]["same"], 1);
  EXPECT_EQ(diff["kinds"][0]["client"], nullptr);
  EXPECT_EQ(diff["kinds"][0]["client_id"], 40);
  EXPECT_EQ(diff["kinds"][1]["client"], "G\"\x01");
  EXPECT_THAT(RunTool({"diff", first, second}).out, HasSubstr("  G\"\\x01 1  only in A: "));
}

TEST(Diff, ComparesWhatCanBeReadOfDamagedLogs) {
  const Folder folder;
  LogBuilder damaged = Drive();
  damaged.Flip(damaged.RecordOffset(50) + 22);
  const std::string good = WriteLogAs(folder, "a.klog", Drive());
  const std::string bad = WriteLogAs(folder, "b.klog", damaged);
  const Result result = RunTool({"diff", good, bad});
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.out, HasSubstr("only in A: record 50 "));
  EXPECT_EQ(Lines(result.err).size(), 1U);
  EXPECT_THAT(result.err, HasSubstr("kestrav: diff: " + bad + ": "));
  EXPECT_EQ(RunTool({"diff", bad, bad}).code, 3) << "what is lost may differ";
  EXPECT_EQ(RunTool({"diff", good, folder.Path("missing.klog")}).code, 1);
  EXPECT_EQ(RunTool({"diff", good, folder.Write("x", "no log")}).code, 1);
  EXPECT_EQ(RunTool({"diff", good}).code, 2);
}

// Everything is later by a little in B, which is the dear case.
TEST(Diff, ComparesLongLogsInSeconds) {
#ifdef NDEBUG
  constexpr std::uint32_t kRecords = 200'000;
#else
  constexpr std::uint32_t kRecords = 20'000;
#endif
  const Folder folder;
  std::string logs[2];
  for (const std::uint32_t late_ms : {0U, 1U}) {
    std::minstd_rand random(5);
    std::vector<Sent> records;
    for (std::uint32_t i = 0; i < kRecords; ++i) {
      const auto jitter = late_ms * static_cast<std::uint32_t>(random() % 3);
      records.push_back({4 * i + jitter, std::to_string(random() % 100)});
    }
    logs[late_ms] = LogOf(folder, std::to_string(late_ms), records);
  }
  for (const std::string& other : {logs[0], logs[1]}) {
    const auto start = std::chrono::steady_clock::now();
    const Result result = RunTool({"diff", logs[0], other});
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(result.code, other == logs[0] ? 0 : 3) << result.err;
    std::cout << "[figure] diff, two logs of " << kRecords << " records, "
              << (other == logs[0] ? "the same" : "most at another time") << ": " << wall.count()
              << " s\n";
    EXPECT_LT(wall.count(), 60);
  }
}

}  // namespace
}  // namespace kestrav::test
