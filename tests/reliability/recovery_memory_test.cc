#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "kestrav/rescue/recovery.h"
#include "reliability/fault_loop.h"
#include "reliability/quiet_parts.h"
#include "support/log_builder.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kRecords = 60;

LogBuilder HealthyLog() {
  LogBuilder log(0x35, 0x81);
  log.StartClock(1000).Selection(0x9000);
  log.Dictionary({{"Barometer", 30}, {"Info Client", 12}}, 1000);
  for (std::uint32_t n = 0; n < kRecords; ++n) {
    log.Record(30, 1, 1000 + 100 * n, std::string(10 + 7 * n, static_cast<char>('a' + n % 26)));
  }
  return log;
}

struct Case {
  const char* name;
  Bytes log;
};

// Damaged headers and payloads, a hole, and bytes that another log left.
Bytes DamagedLog() {
  LogBuilder log = HealthyLog();
  log.Flip(log.RecordOffset(5) + 3).Flip(log.RecordOffset(17) + 40, 0x10);
  log.Zero(log.RecordOffset(30) + 11, 300).Insert(log.RecordOffset(45), HealthyLog().Build());
  log.Cut(log.Size() - 9);
  return log.Build();
}

Bytes LogWithoutItsHeader() {
  LogBuilder log = HealthyLog();
  log.Zero(0, 128).Flip(log.RecordOffset(8) + 1);
  return log.Build();
}

class RecoveryShortOfMemory : public testing::TestWithParam<Case> {
 protected:
  static constexpr std::uint32_t kRoom = 1 << 16;
};

void PrintTo(const Case& log, std::ostream* out) { *out << log.name; }

TEST_P(RecoveryShortOfMemory, SaysSoOrBringsBackTheSame) {
  const Watchdog watchdog(std::chrono::seconds(120), "recovery short of memory");
  const Bytes& log = GetParam().log;
  FixedOutputStream whole(kRoom);
  RecoveryReport all;
  const RecoveryResult best = RecoverLog(log, &whole, all);
  ASSERT_GT(all.records, kRecords / 2);
  const Bytes expected = whole.Content();

  const std::uint32_t points = FailEachAllocation([&](std::uint32_t at, Extent extent) {
    FixedOutputStream out(kRoom);
    RecoveryReport report;
    RecoveryResult result = RecoveryResult::kWhole;
    std::uint32_t failed = 0;
    {
      const FailingMemory memory(at, extent);
      result = RecoverLog(log, &out, report);
      failed = memory.Failed();
    }
    if (result != RecoveryResult::kNoMemory) {
      EXPECT_EQ(result, best);
      EXPECT_EQ(report.records, all.records);
      EXPECT_EQ(report.lost.size(), all.lost.size());
      EXPECT_EQ(report.doubtful.size(), all.doubtful.size());
      EXPECT_EQ(out.Content(), expected);
    }
    EXPECT_TRUE(failed > 0 || result == best);
    return failed > 0;
  });
  std::printf("[figure] allocation failure, recovery of a %s: %u fault points, 0 leaks\n",
              GetParam().name, points);
}

INSTANTIATE_TEST_SUITE_P(Logs, RecoveryShortOfMemory,
                         testing::Values(Case{"healthy log", HealthyLog().Build()},
                                         Case{"damaged log", DamagedLog()},
                                         Case{"log without its header", LogWithoutItsHeader()}));

}  // namespace
}  // namespace kestrav::test
