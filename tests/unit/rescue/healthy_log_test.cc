#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "unit/rescue/rescue_rig.h"

namespace kestrav::test {
namespace {

class HealthyLog : public testing::TestWithParam<Keys> {};

TEST_P(HealthyLog, ComesOutByteForByte) {
  const Bytes log = SampleLog(GetParam(), 600).Build();
  const Recovered recovered = Recover(log);
  EXPECT_EQ(recovered.result, RecoveryResult::kWhole);
  EXPECT_EQ(recovered.bytes, log);
  EXPECT_EQ(recovered.report.records, 601U);
  EXPECT_EQ(recovered.report.record_bytes, log.size() - 128);
  EXPECT_TRUE(recovered.report.stream_header_good);
  EXPECT_FALSE(recovered.report.keys_derived);
  EXPECT_TRUE(recovered.report.dictionary_found);
  EXPECT_FALSE(recovered.report.dictionary_moved);
  EXPECT_TRUE(recovered.report.lost.empty());
  EXPECT_TRUE(recovered.report.doubtful.empty());
}

INSTANTIATE_TEST_SUITE_P(Keys, HealthyLog,
                         testing::Values(kPlain, kScrambled, Keys{0, 9}, Keys{9, 0}, Keys{1, 255}));

}  // namespace
}  // namespace kestrav::test
