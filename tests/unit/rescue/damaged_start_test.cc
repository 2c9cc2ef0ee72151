#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "unit/rescue/rescue_rig.h"

namespace kestrav::test {
namespace {

constexpr std::size_t kManyRecords = 300;

class DamagedStart : public testing::TestWithParam<Keys> {
 protected:
  const LogBuilder log_ = SampleLog(GetParam(), kManyRecords);
};

INSTANTIATE_TEST_SUITE_P(Keys, DamagedStart,
                         testing::Values(kPlain, kScrambled, Keys{0, 9}, Keys{9, 0}, Keys{255, 1},
                                         Keys{9, 9}));

TEST_P(DamagedStart, KeysFollowFromTheRecords) {
  for (const std::size_t key_at : {10U, 11U}) {
    for (const int bits : {0x01, 0x80, 0xFF}) {
      LogBuilder damaged = log_;
      damaged.Flip(key_at, static_cast<std::uint8_t>(bits));
      const Recovered recovered = Recover(damaged.Build());
      EXPECT_EQ(recovered.result, RecoveryResult::kDamaged);
      EXPECT_FALSE(recovered.report.stream_header_good);
      EXPECT_TRUE(recovered.report.keys_derived);
      EXPECT_TRUE(recovered.report.data_key_known);
      EXPECT_EQ(recovered.log.header_key, GetParam().header);
      EXPECT_EQ(recovered.log.data_key, GetParam().data);
      EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, kManyRecords));
    }
  }
}

TEST_P(DamagedStart, AWrongMagicCostsNoOtherField) {
  LogBuilder damaged = log_;
  damaged.Flip(2);
  const Recovered recovered = Recover(damaged.Build());
  EXPECT_FALSE(recovered.report.stream_header_good);
  EXPECT_FALSE(recovered.report.keys_derived);
  EXPECT_EQ(recovered.log.start_time, 1'000'000'000U);
  EXPECT_EQ(recovered.log.selection, 0x9000U);
  EXPECT_EQ(recovered.log.start_clock, 1000U);
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, kManyRecords));
}

TEST_P(DamagedStart, AHeaderOfZerosIsMadeFromTheRecords) {
  LogBuilder damaged = log_;
  damaged.Zero(0, 128);
  const Recovered recovered = Recover(damaged.Build());
  EXPECT_EQ(recovered.result, RecoveryResult::kDamaged);
  EXPECT_EQ(recovered.log.error, "");
  EXPECT_EQ(recovered.log.header_key, GetParam().header);
  EXPECT_EQ(recovered.log.data_key, GetParam().data);
  EXPECT_EQ(recovered.log.start_time, 1U) << "no reader takes 0";
  EXPECT_EQ(recovered.log.start_clock, 1000U) << "the time of the first record";
  EXPECT_EQ(recovered.log.clock_rate, 1000U);
  EXPECT_EQ(recovered.log.selection, 0x8008U) << "the clients of the dictionary";
  EXPECT_EQ(recovered.log.duration_ms, 10 * kManyRecords);
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, kManyRecords));
}

TEST_P(DamagedStart, AMissingHeaderCostsNoRecord) {
  const Bytes whole = log_.Build();
  const Recovered recovered = Recover({whole.begin() + 128, whole.end()});
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, kManyRecords));
  EXPECT_EQ(recovered.log.data_key, GetParam().data);
}

TEST_P(DamagedStart, AFileThatLostItsFrontHasTheRest) {
  const Bytes whole = log_.Build();
  const auto from = static_cast<std::ptrdiff_t>(log_.RecordOffset(100)) + 1;
  const Recovered recovered = Recover({whole.begin() + from, whole.end()});
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(101, kManyRecords));
  EXPECT_FALSE(recovered.report.dictionary_found);
  EXPECT_EQ(recovered.log.selection, 0x8008U) << "the clients that have records";
}

TEST(DamagedDictionary, IsReplacedByACopyOfTheNextOne) {
  for (const Keys keys : {kPlain, kScrambled}) {
    LogBuilder log = SampleLog(keys, 20);
    log.Dictionary({{"GPS", 21}, {"CAN", 3}}, 1210).Record(3, 7, 1220, "behind it");
    log.Flip(log.RecordOffset(0) + 22);
    const Recovered recovered = Recover(log.Build());
    EXPECT_TRUE(recovered.report.dictionary_found);
    EXPECT_TRUE(recovered.report.dictionary_moved);
    EXPECT_EQ(recovered.report.records, 22U) << "without the copy";
    ASSERT_EQ(recovered.log.records.size(), 23U);
    const ParsedRecord& first = recovered.log.records.front();
    EXPECT_EQ(first.data_id, 1200U);
    EXPECT_EQ(first.time_ms, 1010U) << "the time of the first record behind it";
    EXPECT_EQ(first.payload, recovered.log.records[21].payload);
  }
}

TEST(DataKey, IsReadFromTheDictionaryWhenNoPayloadIsOdd) {
  LogBuilder log(0x2A, 0x51);
  log.Dictionary({{"GPS", 21}, {"C", 3}}, 1000);  // 18 bytes
  for (std::uint32_t n = 0; n < 20; ++n) log.Record(3, 7, 1000 + n, "even");
  log.Zero(0, 128);
  const Recovered recovered = Recover(log.Build());
  EXPECT_TRUE(recovered.report.data_key_known);
  EXPECT_EQ(recovered.log.data_key, 0x51);
  EXPECT_EQ(recovered.Payloads(), std::vector<std::string>(20, "even"));
}

TEST(DataKey, IsToldToBeUnknownWhenNothingTellsIt) {
  LogBuilder log(0x2A, 0x51);
  for (std::uint32_t n = 0; n < 20; ++n) log.Record(3, 7, 1000 + n, "even");
  log.Zero(0, 128);
  const Recovered recovered = Recover(log.Build());
  EXPECT_FALSE(recovered.report.data_key_known);
  EXPECT_EQ(recovered.report.records, 20U);
}

}  // namespace
}  // namespace kestrav::test
