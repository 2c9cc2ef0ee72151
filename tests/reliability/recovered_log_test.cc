#include "reliability/recovered_log.h"

#include <gtest/gtest.h>

namespace kestrav::test {
namespace {

// The judge must see what it is there for.
class Judge : public testing::TestWithParam<LogKeys> {
 protected:
  Judge() {
    for (std::uint32_t i = 0; i < 4; ++i) {
      healthy_.Add({static_cast<std::uint16_t>(20 + i), 1, 1000 + i, std::string(3 + i, 'x')});
    }
    log_ = healthy_.Finish();
  }

  // The verdict on a log of these records of the healthy one.
  RecoveryJudge::Verdict On(const std::vector<Said>& all) {
    SampleLogWriter writer(GetParam());
    for (const Said& said : all) writer.Add(said);
    RecoveryReport report;
    report.records = static_cast<std::uint32_t>(all.size());
    return RecoveryJudge(log_).Judge(writer.Finish().bytes, report);
  }
  const Said& Record(std::size_t index) const { return log_.records[index].said; }

  SampleLogWriter healthy_{GetParam()};
  SampleLog log_;
};

TEST_P(Judge, CountsTheRecordsThatAreBack) {
  const RecoveryJudge::Verdict verdict = On({Record(0), Record(1), Record(3)});
  EXPECT_EQ(verdict.back, (std::vector<bool>{true, true, false, true}));
  EXPECT_EQ(verdict.records, 3U);
  EXPECT_EQ(verdict.strangers.size(), 0U);
  EXPECT_EQ(verdict.error, "");
}

TEST_P(Judge, CountsADuplicateAndOneOutOfOrderAsInvented) {
  EXPECT_EQ(On({Record(0), Record(1), Record(1)}).strangers.size(), 1U);
  EXPECT_EQ(On({Record(0), Record(2), Record(1)}).strangers.size(), 1U);
}

TEST_P(Judge, CountsARecordThatSaysSomethingElseAsInvented) {
  Said other = Record(1);
  other.payload.back() = 'y';
  EXPECT_EQ(On({Record(0), other, Record(2)}).strangers.size(), 1U);
  other = Record(1);
  ++other.time_ms;
  EXPECT_EQ(On({Record(0), other, Record(2)}).strangers.size(), 1U);
  other = Record(1);
  other.client = 60;
  EXPECT_EQ(On({Record(0), other, Record(2)}).strangers.size(), 1U);
  other = Record(1);
  other.data_id = 2;
  EXPECT_EQ(On({Record(0), other, Record(2)}).strangers.size(), 1U);
}

TEST_P(Judge, SeesALogThatIsNotClean) {
  RecoveryReport report;
  report.records = 4;
  RecoveryJudge judge(log_);
  EXPECT_EQ(judge.Judge(log_.bytes, report).error, "");
  Bytes bytes = log_.bytes;
  bytes[0] = 0;
  EXPECT_NE(judge.Judge(bytes, report).error, "");
  bytes = log_.bytes;
  ++bytes[16];
  EXPECT_NE(judge.Judge(bytes, report).error, "");
  bytes = log_.bytes;
  bytes.push_back(0);
  ++bytes[16];
  EXPECT_NE(judge.Judge(bytes, report).error, "");
  ++report.records;
  EXPECT_NE(judge.Judge(log_.bytes, report).error, "");
}

INSTANTIATE_TEST_SUITE_P(PlainAndScrambled, Judge, testing::Values(LogKeys{}, LogKeys{0x35, 0xA7}),
                         [](const auto& keys) {
                           return keys.param.header == 0 ? "Plain" : "Scrambled";
                         });

}  // namespace
}  // namespace kestrav::test
