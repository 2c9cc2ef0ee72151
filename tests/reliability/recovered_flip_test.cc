#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>

#include "reliability/effort.h"
#include "reliability/recovered_log.h"
#include "reliability/sample_log.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kSeed = 1;

class RecoveredFlip : public testing::TestWithParam<LogKeys> {};

TEST_P(RecoveredFlip, LosesAtMostOneRecordAndInventsNone) {
  const std::uint32_t step = Effort("KESTRAV_FLIP_STEP", 1, 101);
  const SampleLog log = MakeSampleLog(GetParam(), kSeed);
  Bytes bytes = log.bytes;
  RecoveryJudge judge(log);
  std::uint64_t flips = 0;
  std::size_t lost = 0;
  std::size_t most = 0;
  std::size_t invented = 0;
  for (std::size_t flip = 0; flip < bytes.size() * 8; flip += step, ++flips) {
    bytes[flip / 8] ^= static_cast<std::uint8_t>(1U << flip % 8);
    const RecoveryJudge::Verdict& verdict = judge.Recover(bytes);
    bytes[flip / 8] = log.bytes[flip / 8];
    const std::size_t missing = log.records.size() - verdict.records;
    EXPECT_EQ(verdict.error, "") << "bit " << flip % 8 << " of byte " << flip / 8;
    EXPECT_LE(missing, 1U) << "bit " << flip % 8 << " of byte " << flip / 8;
    EXPECT_EQ(verdict.strangers.size(), 0U) << "bit " << flip % 8 << " of byte " << flip / 8;
    lost += missing;
    most = std::max(most, missing);
    invented += verdict.strangers.size();
  }
  std::cout << "[figure] bit flips, " << GetParam() << ", recover: " << flips << " flips lose "
            << lost << ", at most " << most << ", invented " << invented << '\n';
}

INSTANTIATE_TEST_SUITE_P(PlainAndScrambled, RecoveredFlip,
                         testing::Values(LogKeys{}, LogKeys{0x35, 0xA7}), [](const auto& keys) {
                           return keys.param.header == 0 ? "Plain" : "Scrambled";
                         });

}  // namespace
}  // namespace kestrav::test
