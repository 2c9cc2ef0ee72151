#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "support/log_builder.h"
#include "support/reference_reader.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

// Logs with damage of every kind, the same for the same seed, and the choices of a test.
class Damage {
 public:
  explicit Damage(std::uint32_t seed) : random_(seed) {}

  std::uint32_t Pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  Bytes Log() {
    LogBuilder log(Key(), Key());
    const std::uint32_t records = 1 + Pick(25);
    for (std::uint32_t n = 0; n < records; ++n) {
      if (Pick(15) == 0) log.NextIndex(n + Pick(600));
      log.Record(ClientId(), Pick(40) == 0 ? kNoId : 7, n, Payload());
      if (Pick(10) == 0) log.Raw(Noise());
    }
    for (std::uint32_t times = Pick(6); times > 0; --times) Hurt(log);
    return log.Build();
  }

 private:
  std::uint8_t Key() {
    const std::uint32_t keys[] = {0, 0, 0x4C, 0xF0, 0xFF, Pick(256)};
    return static_cast<std::uint8_t>(keys[Pick(6)]);
  }
  std::uint16_t ClientId() {
    const std::uint32_t ids[] = {Pick(64), Pick(64), Pick(4), 64 + Pick(2), 0xFFFE + Pick(2)};
    return static_cast<std::uint16_t>(ids[Pick(5)]);
  }
  // Full of markers, at times with a whole record within.
  std::string Payload() {
    std::string payload;
    for (std::uint32_t size = Pick(4) == 0 ? Pick(200) : Pick(30); size > 0; --size) {
      payload.push_back(Pick(5) == 0 ? '\x4C' : static_cast<char>(Pick(256)));
    }
    if (Pick(8) == 0) {
      const Bytes inner = LogBuilder().NextIndex(Pick(30)).Record(1, 1, 1, "inner").Build();
      payload.append(inner.begin() + 128, inner.end());
    }
    return payload;
  }
  Bytes Noise() {
    Bytes noise(Pick(120));
    for (std::uint8_t& byte : noise)
      byte = static_cast<std::uint8_t>(Pick(3) == 0 ? 0x4C : Pick(256));
    return noise;
  }
  void Hurt(LogBuilder& log) {
    const auto records = static_cast<std::uint32_t>(log.Size() - 128);
    if (records < 2) return;
    const std::uint32_t at = 128 + Pick(records);
    const std::uint32_t rest = static_cast<std::uint32_t>(log.Size()) - at;
    switch (Pick(5)) {
      case 0:
        log.Zero(at, Pick(std::min(rest, 90u)));
        break;
      case 1:
        log.Insert(at, Noise());
        break;
      case 2:
        log.Cut(log.Size() - Pick(std::min(records, 60u)));
        break;
      default:
        log.Flip(at, static_cast<std::uint8_t>(1 + Pick(255)));
    }
  }

  std::mt19937 random_;
};

// Both readers on the same bytes; they must agree after every step.
class DamagedLog : public testing::TestWithParam<std::uint32_t> {
 protected:
  using Code = ReferenceReader::Code;

  void ExpectAgreement(ResultCode code, Code expected_code) {
    ASSERT_EQ(static_cast<std::uint32_t>(code), static_cast<std::uint32_t>(expected_code));
    ASSERT_EQ(log_.decoder.Getoffset(), reference_.Position());
  }

  // Steps until the decoder reports that nothing is left, over a bad record or two on the way.
  template <class Step>
  void StepToTheEnd(const Step& step) {
    constexpr int kMoreThanAnyLogHolds = 2000;
    for (int steps = 0; steps < kMoreThanAnyLogHolds; ++steps) {
      const ResultCode code = step();
      if (HasFatalFailure() || code == kNotEnoughData) return;
      if (code == kDamaged && log_.decoder.GetRemainingBytes() < kRecordHeaderSize) return;
    }
    FAIL() << "no end";
  }

  Damage damage_{GetParam()};
  const Bytes bytes_ = damage_.Log();
  OpenLog log_{bytes_};
  ReferenceReader reference_{bytes_};
  LogMessage message_;
  Said expected_;
};

TEST_P(DamagedLog, YieldsTheSameRecordsAtTheSamePositions) {
  StepToTheEnd([&] {
    const ResultCode code = log_.decoder.GetNextLogRecord(message_);
    ExpectAgreement(code, reference_.Next(expected_));
    if (code == kSuccess) {
      EXPECT_EQ(WhatSays(message_), expected_);
    }
    return code;
  });
}

TEST_P(DamagedLog, YieldsTheSameSelectedRecordsAtTheSamePositions) {
  const std::uint64_t selection = damage_.Pick(2) == 0 ? ~std::uint64_t{0} : 0xF00F'0000'0000'FF0F;
  log_.decoder.SetPlaybackSelection(ClientIdSet(selection));
  StepToTheEnd([&] {
    const ResultCode code = log_.decoder.GetNextPlaybackMessage(message_);
    ExpectAgreement(code, reference_.NextSelected(expected_, selection));
    if (code == kSuccess) {
      EXPECT_EQ(WhatSays(message_), expected_);
    }
    return code;
  });
}

TEST_P(DamagedLog, YieldsTheSameHeadersAtTheSamePositions) {
  StepToTheEnd([&] {
    BinaryLogRecordHeader header;
    const ResultCode code = log_.decoder.GetNextLogRecordHeader(header);
    ExpectAgreement(code, reference_.NextHeaderAndSkip(expected_));
    if (code == kSuccess) {
      EXPECT_EQ(header.client_id, expected_.client);
      EXPECT_EQ(header.time_stamp, expected_.time_ms);
    }
    return code;
  });
}

TEST_P(DamagedLog, IsScannedFromAnywhereToTheSamePosition) {
  for (int i = 0; i < 40 && !HasFatalFailure(); ++i) {
    // A step first, so that other indices are expected too; how it ends does not matter here.
    const ResultCode code = log_.decoder.GetNextLogRecord(message_);
    ExpectAgreement(code, reference_.Next(expected_));
    const std::uint32_t from = damage_.Pick(static_cast<std::uint32_t>(bytes_.size()) + 1);
    ASSERT_TRUE(log_.decoder.SetOffset(from));
    reference_.SetPosition(from);
    SCOPED_TRACE(from);
    ExpectAgreement(log_.decoder.ScanForNextValidHeader(), reference_.Scan());
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, DamagedLog, testing::Range(0u, 300u));

// Shows that the damaged logs are worth comparing: damage strikes, and records survive it.
TEST(DamagedLogs, HoldBothLossesAndSurvivors) {
  std::size_t delivered = 0;
  int stopped_by_damage = 0;
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    OpenLog log(Damage(seed).Log());
    delivered += log.Walk().size();
    if (log.last == kDamaged) ++stopped_by_damage;
  }
  EXPECT_GT(delivered, 500u);
  EXPECT_GT(stopped_by_damage, 50);
}

}  // namespace
}  // namespace kestrav::test
