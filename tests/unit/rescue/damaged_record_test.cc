#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/rescue/rescue_rig.h"

namespace kestrav::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr std::size_t kRecords = 40;

auto IsLoss(Loss loss, std::uint32_t index, std::uint32_t records, std::size_t bytes) {
  return AllOf(Field("loss", &LostRange::loss, loss), Field("index", &LostRange::index, index),
               Field("records", &LostRange::records, records),
               Field("bytes", &LostRange::bytes, bytes));
}

// All payloads but one.
std::vector<std::string> Without(std::size_t lost) {
  std::vector<std::string> payloads = SamplePayloads(1, kRecords);
  payloads.erase(payloads.begin() + static_cast<std::ptrdiff_t>(lost) - 1);
  return payloads;
}

class DamagedRecord : public testing::TestWithParam<Keys> {
 protected:
  const LogBuilder log_ = SampleLog(GetParam(), kRecords);

  std::size_t Bytes20(std::size_t n) const { return 20 + SamplePayload(n).size(); }
};

INSTANTIATE_TEST_SUITE_P(Keys, DamagedRecord,
                         testing::Values(kPlain, kScrambled, Keys{0, 9}, Keys{9, 0}, Keys{255, 1}));

TEST_P(DamagedRecord, IsLostAloneWhicheverBitOfItsHeaderIsWrong) {
  for (std::size_t bit = 0; bit < 160; ++bit) {
    LogBuilder damaged = log_;
    damaged.Flip(log_.RecordOffset(17) + bit / 8, static_cast<std::uint8_t>(1U << bit % 8));
    const Recovered recovered = Recover(damaged.Build());
    EXPECT_EQ(recovered.result, RecoveryResult::kDamaged);
    EXPECT_EQ(recovered.log.error, "");
    EXPECT_EQ(recovered.Payloads(), Without(17)) << "bit " << bit;
    EXPECT_THAT(recovered.report.doubtful, IsEmpty());
  }
}

TEST_P(DamagedRecord, IsReportedWithItsPlaceAndItsDamage) {
  LogBuilder damaged = log_;
  damaged.Flip(log_.RecordOffset(5) + 12).Flip(log_.RecordOffset(9) + 21);
  const Recovered recovered = Recover(damaged.Build());
  EXPECT_THAT(recovered.report.lost, ElementsAre(IsLoss(Loss::kHeader, 5, 1, Bytes20(5)),
                                                 IsLoss(Loss::kPayload, 9, 1, Bytes20(9))));
  EXPECT_EQ(recovered.report.lost[0].offset, log_.RecordOffset(5));
  EXPECT_EQ(recovered.report.lost[1].offset, log_.RecordOffset(9));
  EXPECT_EQ(recovered.report.records, kRecords + 1 - 2);
}

TEST_P(DamagedRecord, IsLostAloneWhenBytesOfItAreMissing) {
  const Bytes whole = log_.Build();
  Bytes log = whole;
  const auto at = log.begin() + static_cast<std::ptrdiff_t>(log_.RecordOffset(20)) + 10;
  log.erase(at, at + 3);
  const Recovered recovered = Recover(log);
  EXPECT_EQ(recovered.Payloads(), Without(20));
  EXPECT_THAT(recovered.report.lost, ElementsAre(IsLoss(Loss::kBytes, 20, 1, Bytes20(20) - 3),
                                                 Field(&LostRange::loss, Loss::kCut)));
}

TEST_P(DamagedRecord, IsLostAloneWhenForeignBytesStandInIt) {
  LogBuilder damaged = log_;
  damaged.Insert(log_.RecordOffset(20) + 25, {1, 2, 3, 4, 5});
  EXPECT_EQ(Recover(damaged.Build()).Payloads(), Without(20));
}

TEST_P(DamagedRecord, CostsNothingElseWhenZerosReplaceIt) {
  LogBuilder damaged = log_;
  damaged.Zero(log_.RecordOffset(20) + 1, log_.RecordOffset(24) - log_.RecordOffset(20));
  const Recovered recovered = Recover(damaged.Build());
  std::vector<std::string> expected = SamplePayloads(1, 19);
  for (const std::string& payload : SamplePayloads(25, kRecords)) expected.push_back(payload);
  EXPECT_EQ(recovered.Payloads(), expected);
  EXPECT_THAT(
      recovered.report.lost,
      ElementsAre(IsLoss(Loss::kBytes, 20, 5, log_.RecordOffset(25) - log_.RecordOffset(20))));
}

TEST_P(DamagedRecord, AtTheEndIsLeftOutWhereverTheLogIsCut) {
  const Bytes whole = log_.Build();
  for (std::size_t size = log_.RecordOffset(36); size < whole.size(); ++size) {
    const Bytes log(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    std::size_t complete = 35;
    while (complete < kRecords && log_.RecordOffset(complete + 1) + Bytes20(complete + 1) <= size) {
      ++complete;
    }
    const Recovered recovered = Recover(log);
    EXPECT_EQ(recovered.result, RecoveryResult::kDamaged);
    EXPECT_EQ(recovered.log.error, "");
    EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, complete)) << "size " << size;
    EXPECT_EQ(recovered.log.stream_length, recovered.bytes.size());
    EXPECT_EQ(recovered.log.duration_ms, 10 * complete);
  }
}

TEST_P(DamagedRecord, IsConfirmedByNothingWhenForeignBytesFollowIt) {
  LogBuilder damaged = log_;
  const std::size_t next = log_.RecordOffset(20);
  for (std::size_t i = 0; i < 25; ++i) damaged.Flip(next + i, 0x5B);
  const Recovered recovered = Recover(damaged.Build());
  std::vector<std::string> expected = SamplePayloads(1, 18);
  for (const std::string& payload : SamplePayloads(21, kRecords)) expected.push_back(payload);
  EXPECT_EQ(recovered.Payloads(), expected);
  EXPECT_THAT(recovered.report.doubtful,
              ElementsAre(AllOf(Field(&DoubtfulRecord::index, 19U),
                                Field(&DoubtfulRecord::doubt, Doubt::kWeakEvidence))));
}

TEST_P(DamagedRecord, LeavesTheTimesOfTheOthers) {
  LogBuilder damaged = log_;
  damaged.Flip(log_.RecordOffset(3) + 1);
  const Recovered recovered = Recover(damaged.Build());
  ASSERT_EQ(recovered.log.records.size(), kRecords);
  EXPECT_EQ(recovered.log.records[2].time_ms, 1020U);
  EXPECT_EQ(recovered.log.records[3].time_ms, 1040U);
  EXPECT_EQ(recovered.log.duration_ms, 10 * kRecords);
}

}  // namespace
}  // namespace kestrav::test
