#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/rescue/rescue_rig.h"

namespace kestrav::test {
namespace {

using testing::Each;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

class DoubtfulRecords : public testing::TestWithParam<Keys> {
 protected:
  // The bytes of the records `first` to `last`.
  Bytes Records(const LogBuilder& log, std::size_t first, std::size_t last) const {
    const Bytes all = log.Build();
    return {all.begin() + static_cast<std::ptrdiff_t>(log.RecordOffset(first)),
            all.begin() + static_cast<std::ptrdiff_t>(log.RecordOffset(last + 1))};
  }
};

INSTANTIATE_TEST_SUITE_P(Keys, DoubtfulRecords, testing::Values(kPlain, kScrambled));

TEST_P(DoubtfulRecords, CopiesAreLeftOut) {
  const LogBuilder log = SampleLog(GetParam(), 60);
  LogBuilder damaged = log;
  damaged.Insert(log.RecordOffset(40), Records(log, 20, 29));
  Recovered recovered = Recover(damaged.Build());
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, 60));
  EXPECT_THAT(recovered.report.doubtful, SizeIs(10));
  recovered.report.doubtful.pop_back();  // behind the last copy an older index follows again
  EXPECT_THAT(recovered.report.doubtful, Each(Field(&DoubtfulRecord::doubt, Doubt::kDuplicate)));
}

TEST_P(DoubtfulRecords, AStretchWrittenTwiceIsTakenOnce) {
  const LogBuilder log = SampleLog(GetParam(), 60);
  LogBuilder damaged = log;
  const Bytes all = log.Build();
  const auto from = all.begin() + static_cast<std::ptrdiff_t>(log.RecordOffset(20)) + 7;
  const auto to = all.begin() + static_cast<std::ptrdiff_t>(log.RecordOffset(30)) + 9;
  damaged.Insert(log.RecordOffset(30) + 9, Bytes(from, to));
  const Recovered recovered = Recover(damaged.Build());
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, 60));
}

TEST_P(DoubtfulRecords, RecordsThatMovedAreLeftOutOfOrder) {
  const LogBuilder log = SampleLog(GetParam(), 60);
  const Bytes all = log.Build();
  const auto at = [&](std::size_t n) {
    return all.begin() + static_cast<std::ptrdiff_t>(log.RecordOffset(n));
  };
  Bytes moved(all.begin(), at(10));
  moved.insert(moved.end(), at(15), at(50));
  moved.insert(moved.end(), at(10), at(15));
  moved.insert(moved.end(), at(50), all.end());
  const Recovered recovered = Recover(moved);
  std::vector<std::string> expected = SamplePayloads(1, 9);
  for (const std::string& payload : SamplePayloads(15, 60)) expected.push_back(payload);
  EXPECT_EQ(recovered.Payloads(), expected);
  EXPECT_THAT(recovered.report.doubtful, SizeIs(5));
  EXPECT_THAT(recovered.report.doubtful, Each(Field(&DoubtfulRecord::index, testing::Lt(15U))));
}

// The payload of record 20 holds a whole log whose client has the same id; its header is damaged.
TEST_P(DoubtfulRecords, ALogInsideAPayloadGivesNoRecord) {
  for (const Keys inner : {kPlain, kScrambled, Keys{9, 200}}) {
    for (const std::size_t damage : {2U, 6U, 9U, 16U, 17U}) {
      LogBuilder log = SampleLog(GetParam(), 19);
      log.Record(3, 7, 1195, "x" + Text(SampleLog(inner, 50).Build()) + "yz");
      const std::size_t holder = log.RecordOffset(20);
      for (std::size_t n = 21; n < 60; ++n) {
        log.Record(3, 7, static_cast<std::uint32_t>(1000 + 10 * n), SamplePayload(n));
      }
      log.Flip(holder + damage, 0x10);
      std::vector<std::string> expected = SamplePayloads(1, 19);
      for (const std::string& payload : SamplePayloads(21, 59)) expected.push_back(payload);
      EXPECT_EQ(Recover(log.Build()).Payloads(), expected) << "byte " << damage;
      log.Zero(holder + 1, 19);
      EXPECT_EQ(Recover(log.Build()).Payloads(), expected) << "zeros";
    }
  }
}

TEST_P(DoubtfulRecords, AnOlderLogBehindTheEndGivesNoRecord) {
  LogBuilder log = SampleLog(GetParam(), 30);
  const Bytes whole = log.Build();
  const LogBuilder older = SampleLog(GetParam(), 90);
  const Bytes rest = Records(older, 50, 89);
  Bytes file = whole;
  file.insert(file.end(), rest.begin(), rest.end());
  const Recovered recovered = Recover(file);
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, 30));
  EXPECT_EQ(recovered.bytes, whole);
  ASSERT_THAT(recovered.report.lost, SizeIs(1));
  EXPECT_EQ(recovered.report.lost[0].loss, Loss::kTrailing);
}

TEST_P(DoubtfulRecords, ATimeBeyondBothNeighboursIsLeftOut) {
  LogBuilder log = SampleLog(GetParam(), 20);
  log.Record(3, 7, 5'000'000, "late").Record(3, 7, 1220, "next").Record(3, 7, 1230, "last");
  const Recovered recovered = Recover(log.Build());
  std::vector<std::string> expected = SamplePayloads(1, 20);
  expected.insert(expected.end(), {"next", "last"});
  EXPECT_EQ(recovered.Payloads(), expected);
  ASSERT_THAT(recovered.report.doubtful, SizeIs(1));
  EXPECT_EQ(recovered.report.doubtful[0].index, 21U);
  EXPECT_EQ(recovered.report.doubtful[0].doubt, Doubt::kOutOfOrder);
}

TEST_P(DoubtfulRecords, AClockThatWrapsIsNoDoubt) {
  LogBuilder log(GetParam().header, GetParam().data);
  log.StartClock(0xFFFFFFF0).Dictionary({{"CAN", 3}}, 0xFFFFFFF0);
  for (std::uint32_t n = 1; n < 40; ++n) log.Record(3, 7, 0xFFFFFFF0 + n, SamplePayload(n));
  const Recovered recovered = Recover(log.Build());
  EXPECT_EQ(recovered.result, RecoveryResult::kWhole);
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, 39));
  EXPECT_THAT(recovered.report.steps_back, IsEmpty());
}

TEST_P(DoubtfulRecords, AStepBackOfTheClockIsReportedAndKept) {
  LogBuilder log = SampleLog(GetParam(), 20);
  for (std::uint32_t n = 21; n < 40; ++n) log.Record(3, 7, 500 + n, SamplePayload(n));
  const Recovered recovered = Recover(log.Build());
  EXPECT_EQ(recovered.result, RecoveryResult::kWhole);
  EXPECT_EQ(recovered.Payloads(), SamplePayloads(1, 39));
  ASSERT_THAT(recovered.report.steps_back, SizeIs(1));
  EXPECT_EQ(recovered.report.steps_back[0].index, 21U);
  EXPECT_EQ(recovered.report.steps_back[0].ms, 1200U - 521U);
}

}  // namespace
}  // namespace kestrav::test
