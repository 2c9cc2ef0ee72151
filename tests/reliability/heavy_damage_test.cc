#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <list>
#include <string>
#include <vector>

#include "reliability/damage.h"
#include "reliability/effort.h"
#include "reliability/recovered_log.h"
#include "reliability/sample_log.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

constexpr LogKeys kKeys[] = {{0, 0}, {0x35, 0xA7}, {0xFF, 0x01}, {0x80, 0}, {0, 0x4C}, {9, 9}};
constexpr std::uint32_t kDamages = 10'000;

struct Sum {
  std::uint64_t untouched = 0;
  std::uint64_t back = 0;       // of these
  std::uint64_t touched = 0;    // that came back too
  std::uint64_t unnoticed = 0;  // touched, came back with another payload of the same checksum
  std::uint64_t invented = 0;

  void Add(const DamagedCopy& damaged, const RecoveryJudge::Verdict& verdict) {
    const std::vector<bool> untouched_records = damaged.Untouched();
    for (std::size_t i = 0; i < untouched_records.size(); ++i) {
      untouched += untouched_records[i] ? 1 : 0;
      back += untouched_records[i] && verdict.back[i] ? 1 : 0;
      touched += !untouched_records[i] && verdict.back[i] ? 1 : 0;
    }
    for (const Said& said : verdict.strangers) {
      const bool is_unnoticed = damaged.PassesForWhole(said);
      ++(is_unnoticed ? unnoticed : invented);
      EXPECT_TRUE(is_unnoticed) << "invented: " << said;
    }
  }
};

struct Judged {
  Judged(LogKeys keys, std::uint32_t seed) : log(MakeSampleLog(keys, seed)), judge(log) {}
  const SampleLog log;
  RecoveryJudge judge;
};

// Every record that is back is one of the log, and the output is a clean log.
TEST(HeavyDamage, RecoveryBringsBackWhatWasNotTouchedAndInventsNothing) {
  const std::uint32_t damages = Effort("KESTRAV_DAMAGES", kDamages, kDamages / 10);
  const Watchdog watchdog(std::chrono::seconds(240), "a recovery");
  std::list<Judged> logs;
  for (const LogKeys& keys : kKeys)
    logs.emplace_back(keys, static_cast<std::uint32_t>(logs.size()));
  Sum sum;
  auto judged = logs.begin();
  for (std::uint32_t seed = 0; seed < damages; ++seed) {
    const DamagedCopy damaged(judged->log, seed);
    const RecoveryJudge::Verdict& verdict = judged->judge.Recover(damaged.Content());
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + damaged.Story());
    EXPECT_EQ(verdict.error, "");
    sum.Add(damaged, verdict);
    if (++judged == logs.end()) judged = logs.begin();
  }
  std::cout << "[figure] heavier damage: " << damages << " logs, recover brings back " << sum.back
            << " of " << sum.untouched << " untouched records, " << sum.touched << " touched ones, "
            << sum.unnoticed << " that no reader can know to be altered, invents " << sum.invented
            << '\n';
  EXPECT_GE(sum.back * 100, sum.untouched * 99);
  EXPECT_EQ(sum.invented, 0U);
}

}  // namespace
}  // namespace kestrav::test
