#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <random>

#include "support/short_memory.h"
#include "unit/rescue/rescue_rig.h"

// Whatever the bytes are, a recovery ends, and its work and memory grow with the log alone.

namespace kestrav::test {
namespace {

constexpr std::size_t kSize = 1'000'000;

struct Hostile {
  const char* name;
  Bytes (*make)();
};

Bytes Repeated(const Bytes& pattern) {
  Bytes log = LogBuilder().Build();
  log.reserve(kSize);
  while (log.size() < kSize) log.insert(log.end(), pattern.begin(), pattern.end());
  return log;
}

Bytes Record(std::uint32_t index, std::uint32_t size, std::string_view payload) {
  LogBuilder log;
  log.NextIndex(index).Record(3, 7, 1000, payload);
  Bytes record = log.Build();
  record.erase(record.begin(), record.begin() + 128);
  for (std::size_t i = 0; i < 4; ++i) {
    const auto byte = static_cast<std::uint8_t>(size >> (8 * i));
    record[1] = static_cast<std::uint8_t>(record[1] ^ record[16 + i] ^ byte);
    record[16 + i] = byte;
  }
  return record;
}

// Sound headers whose payloads reach far and fail, or pass, their checksums.
Bytes FarHeaders() {
  Bytes log = LogBuilder().Build();
  for (std::uint32_t n = 0; log.size() < kSize; ++n) {
    const Bytes record = Record(n * 7, 300'000 + n % 1000, "x");
    log.insert(log.end(), record.begin(), record.end() - 1);
  }
  return log;
}

// Pairs of records, each pair a run of its own, with falling indices.
Bytes FallingPairs() {
  Bytes log = LogBuilder().Build();
  for (std::uint32_t n = 1'000'000; log.size() < kSize; n -= 2) {
    for (const std::uint32_t index : {n, n + 1}) {
      const Bytes record = Record(index, 1, "x");
      log.insert(log.end(), record.begin(), record.end());
    }
    log.push_back(0x4C);
  }
  return log;
}

// Each payload holds all that follows.
Bytes Nested() {
  Bytes log = LogBuilder().Build();
  for (std::uint32_t n = 0; log.size() + 20 < kSize; ++n) {
    const auto rest = static_cast<std::uint32_t>(kSize - log.size() - 20);
    const Bytes record = Record(n % 5, rest, "x");
    log.insert(log.end(), record.begin(), record.begin() + 20);
  }
  return log;
}

Bytes Random() {
  std::mt19937 random(7);
  Bytes log = LogBuilder().Build();
  while (log.size() < kSize) log.push_back(static_cast<std::uint8_t>(random()));
  return log;
}

class HostileRecovery : public testing::TestWithParam<Hostile> {};

INSTANTIATE_TEST_SUITE_P(
    Logs, HostileRecovery,
    testing::Values(Hostile{"Markers", [] { return Repeated({0x4C}); }},
                    Hostile{"MarkersAndZeros",
                            [] {
                              return Repeated({0x4C, 0x4C, 0x4C, 0, 0, 0});
                            }},
                    Hostile{"Zeros", [] { return Repeated({0}); }},
                    Hostile{"SameRecord", [] { return Repeated(Record(0, 1, "x")); }},
                    Hostile{"SameRecordApart", [] { return Repeated(Record(5, 1, "xy")); }},
                    Hostile{"SizesOfZero", [] { return Repeated(Record(0, 0, "x")); }},
                    Hostile{"SizesBeyondTheEnd",
                            [] { return Repeated(Record(0, 0xFFFFFFFF, "x")); }},
                    Hostile{"FarHeaders", FarHeaders}, Hostile{"FallingPairs", FallingPairs},
                    Hostile{"Nested", Nested}, Hostile{"Random", Random}),
    [](const auto& log) { return std::string(log.param.name); });

TEST_P(HostileRecovery, TakesTimeAndMemoryByTheSizeOfTheLog) {
  const Bytes log = GetParam().make();
  RecoveryReport report;
  const LargestAllocation largest;
  const auto start = std::chrono::steady_clock::now();
  const RecoveryResult result = RecoverLog(log, nullptr, report);
  const std::chrono::duration<double> scnds = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(result == RecoveryResult::kDamaged || result == RecoveryResult::kNothingFound);
  EXPECT_LE(report.record_bytes, log.size());
  EXPECT_LE(largest.Bytes(), 8 * log.size());
  EXPECT_LT(scnds.count(), 20) << "a step for each pair of bytes takes much longer";
  std::cout << "[figure] recover, " << GetParam().name << ": "
            << static_cast<double>(log.size()) / 1e6 / scnds.count() << " MB a second, "
            << report.records << " records\n";
}

}  // namespace
}  // namespace kestrav::test
