#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "kestrav/format/encoder.h"
#include "support/short_memory.h"
#include "unit/rescue/rescue_rig.h"

// How a recovery behaves, whatever it finds.

namespace kestrav::test {
namespace {

// Room for a log without an allocation of its own.
class FixedStream final : public Io::IOutputStream {
 public:
  explicit FixedStream(std::size_t room) : bytes_(room) {}
  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    if (size > bytes_.size() - at_) return false;
    std::copy_n(data, size, bytes_.begin() + at_);
    at_ += size;
    return true;
  }
  bool Seek(std::uint32_t position) override {
    at_ = position;
    return true;
  }
  std::uint32_t Position() const override { return at_; }

 private:
  Bytes bytes_;
  std::uint32_t at_ = 0;
};

Bytes DamagedLog() {
  LogBuilder log = SampleLog(kScrambled, 200);
  log.Flip(0).Flip(log.RecordOffset(0) + 30).Zero(log.RecordOffset(50) + 5, 300);
  log.Insert(log.RecordOffset(120) + 3, log.Build()).Flip(log.RecordOffset(40) + 3);
  return log.Build();
}

TEST(Recovery, TellsWhenMemoryIsShortAtWhicheverAllocation) {
  const Bytes log = DamagedLog();
  FixedStream out(log.size());
  RecoveryReport whole;
  const RecoveryResult expected = RecoverLog(log, &out, whole);
  ASSERT_EQ(expected, RecoveryResult::kDamaged);
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    RecoveryReport report;
    RecoveryResult result = RecoveryResult::kWhole;
    FixedStream again(log.size());
    was_short = RanShort(grants, [&] { result = RecoverLog(log, &again, report); });
    EXPECT_EQ(result, was_short ? RecoveryResult::kNoMemory : expected) << grants << " grants";
    EXPECT_TRUE(was_short || report.records == whole.records);
  }
  EXPECT_GT(grants, 10U);
}

TEST(Recovery, TellsWhenTheOutputRefusesWhicheverByte) {
  const Bytes log = SampleLog(kPlain, 10).Build();
  for (std::size_t room = 0; room < log.size(); room += 7) {
    BytesOutputStream out(room);
    RecoveryReport report;
    EXPECT_EQ(RecoverLog(log, &out, report), RecoveryResult::kWriteFailed);
  }
  BytesOutputStream out;
  out.FailSeeks(true);
  RecoveryReport report;
  EXPECT_EQ(RecoverLog(log, &out, report), RecoveryResult::kWriteFailed);
}

TEST(Recovery, ReportsTheSameWithoutAnOutput) {
  const Bytes log = DamagedLog();
  RecoveryReport report;
  EXPECT_EQ(RecoverLog(log, nullptr, report), RecoveryResult::kDamaged);
  const Recovered recovered = Recover(log);
  EXPECT_EQ(report.records, recovered.report.records);
  EXPECT_EQ(report.record_bytes, recovered.report.record_bytes);
  EXPECT_EQ(report.lost.size(), recovered.report.lost.size());
  EXPECT_EQ(report.doubtful.size(), recovered.report.doubtful.size());
  EXPECT_EQ(report.dictionary_found, recovered.report.dictionary_found);
}

TEST(Recovery, OfARecoveredLogIsThatLog) {
  const Recovered recovered = Recover(DamagedLog());
  const Recovered again = Recover(recovered.bytes);
  EXPECT_EQ(again.result, RecoveryResult::kWhole);
  EXPECT_EQ(again.bytes, recovered.bytes);
}

TEST(Recovery, FindsNothingWhereNothingIs) {
  for (const Bytes& log : {Bytes(), Bytes(127), Bytes(128), Bytes(5000), Bytes(5000, 0x4C)}) {
    const Recovered recovered = Recover(log);
    EXPECT_EQ(recovered.result, RecoveryResult::kNothingFound);
    EXPECT_TRUE(recovered.bytes.empty());
  }
}

TEST(Recovery, OfALogWithoutRecordsIsThatLog) {
  const Bytes log = LogBuilder().Build();
  const Recovered recovered = Recover(log);
  EXPECT_EQ(recovered.result, RecoveryResult::kWhole);
  EXPECT_EQ(recovered.bytes, log);
}

TEST(Recovery, TellsItsProgressAndCanBeCancelled) {
  LogBuilder log = SampleLog(kPlain, 1);
  const std::string large(1 << 20, 'x');
  for (std::uint32_t n = 0; n < 8; ++n) log.Record(3, 7, 2000 + n, large);
  const Bytes bytes = log.Build();
  std::vector<std::uint64_t> told;
  RecoveryReport report;
  const auto listen = [&](std::uint64_t done) {
    told.push_back(done);
    return true;
  };
  EXPECT_EQ(RecoverLog(bytes, nullptr, report, listen), RecoveryResult::kWhole);
  EXPECT_GT(told.size(), 8U);
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
  EXPECT_EQ(told.back(), bytes.size());
  for (std::size_t limit = 0; limit < told.size(); ++limit) {
    std::size_t calls = 0;
    const auto cancel = [&](std::uint64_t) { return calls++ < limit; };
    EXPECT_EQ(RecoverLog(bytes, nullptr, report, cancel), RecoveryResult::kCancelled);
  }
  const auto fail = [](std::uint64_t) -> bool { throw 1; };
  EXPECT_EQ(RecoverLog(bytes, nullptr, report, fail), RecoveryResult::kCancelled);
}

}  // namespace
}  // namespace kestrav::test
