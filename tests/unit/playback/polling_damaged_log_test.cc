#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "polling_rig.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Strings = std::vector<std::string>;

// Payloads with stray record markers in them.
const Strings kPayloads = {"LLLLx", "a payload longer than one scan block of fifty bytes: LOG:L",
                           "x", "Last"};

LogBuilder FourRecords(std::uint8_t header_key = 0, std::uint8_t data_key = 0) {
  LogBuilder log(header_key, data_key);
  for (const std::string& payload : kPayloads) log.Record(kGps, 1, 1000, payload);
  return log;
}

Strings Without(std::size_t record) {
  Strings payloads = kPayloads;
  payloads.erase(payloads.begin() + static_cast<std::ptrdiff_t>(record));
  return payloads;
}

// Plays a log and gives the payloads that arrived.
Strings Play(const LogBuilder& log, PollingRig& rig) {
  rig.Play(log);
  rig.PlayToTheEnd();
  return Payloads(rig.gps);
}

struct NotALog {
  const char* name;
  Bytes bytes;
};

void PrintTo(const NotALog& bytes, std::ostream* out) { *out << bytes.name; }

class PollingNotALog : public testing::TestWithParam<NotALog> {};

TEST_P(PollingNotALog, CannotBeStarted) {
  PollingRig rig;
  rig.Select();
  EXPECT_TRUE(rig.Insert(GetParam().bytes));
  EXPECT_FALSE(rig.Start());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());

  EXPECT_EQ(Play(FourRecords(), rig), kPayloads);
}

Bytes WithAnotherMagic() { return FourRecords().Flip(3).Build(); }

INSTANTIATE_TEST_SUITE_P(Streams, PollingNotALog,
                         testing::Values(NotALog{"Empty", {}}, NotALog{"OneByte", {0x4C}},
                                         NotALog{"CutHeader", FourRecords().Cut(127).Build()},
                                         NotALog{"Zeros", Bytes(500, 0)},
                                         NotALog{"Markers", Bytes(500, 0x4C)},
                                         NotALog{"AnotherMagic", WithAnotherMagic()}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(PollingDamagedLog, EndsAtOnceWithoutRecords) {
  PollingRig rig;
  rig.Play(LogBuilder());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
}

TEST(PollingDamagedLog, EndsWhereverItIsCut) {
  const std::size_t size = FourRecords().Size();
  for (std::size_t cut = 128; cut < size; ++cut) {
    SCOPED_TRACE(cut);
    const LogBuilder whole = FourRecords();
    Strings expected;
    for (std::size_t i = 0; i < kPayloads.size(); ++i) {
      if (whole.RecordOffset(i) + 20 + kPayloads[i].size() <= cut) expected.push_back(kPayloads[i]);
    }
    PollingRig rig;
    EXPECT_EQ(Play(FourRecords().Cut(cut), rig), expected);
    EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
  }
}

TEST(PollingDamagedLog, LosesOnlyTheRecordWithAFlippedBit) {
  const LogBuilder whole = FourRecords();
  for (std::size_t record = 0; record < kPayloads.size(); ++record) {
    const std::size_t start = whole.RecordOffset(record);
    const bool is_last = record == kPayloads.size() - 1;
    for (std::size_t at = start; at < start + 20 + kPayloads[record].size(); ++at) {
      for (const int bits : {0x01, 0x80}) {
        SCOPED_TRACE(testing::Message() << "byte " << at << " bits " << bits);
        PollingRig rig;
        EXPECT_EQ(Play(FourRecords().Flip(at, static_cast<std::uint8_t>(bits)), rig),
                  Without(record));
        // Behind a damaged last record there is nothing to find, which is a failure and no end.
        EXPECT_THAT(rig.notifications.TakeIds(),
                    ElementsAre(is_last ? NotifyPlaybackStopped : NotifyEndOfLog));
        EXPECT_EQ(rig.IsStreamReleased(), is_last);
      }
    }
  }
}

TEST(PollingDamagedLog, LosesOnlyTheRecordWithADamagedPayloadWhenScrambled) {
  const std::size_t payload = FourRecords(0x11, 0x22).RecordOffset(1) + 20;
  PollingRig rig;
  EXPECT_EQ(Play(FourRecords(0x11, 0x22).Flip(payload), rig), Without(1));
}

TEST(PollingDamagedLog, LosesTheRestAfterADamagedHeaderWhenScrambled) {
  const std::size_t header = FourRecords(0x11, 0x22).RecordOffset(1);
  PollingRig rig;
  EXPECT_THAT(Play(FourRecords(0x11, 0x22).Flip(header + 8), rig), ElementsAre(kPayloads[0]));
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
}

TEST(PollingDamagedLog, PassesOverForeignBytesBetweenRecords) {
  for (std::size_t size = 20; size < 120; ++size) {
    SCOPED_TRACE(size);
    PollingRig rig;
    LogBuilder log = FourRecords();
    log.Insert(log.RecordOffset(2), Bytes(size, 0xA5));
    EXPECT_EQ(Play(log, rig), kPayloads);
  }
}

// Two markers right before a record make a header that passes its one-byte checksum; the search
// then goes on behind it and has lost the record.
TEST(PollingDamagedLog, LosesARecordBehindMarkersThatPassForAHeader) {
  PollingRig rig;
  LogBuilder log = FourRecords();
  log.Insert(log.RecordOffset(2), Bytes(50, 0x4C));
  EXPECT_EQ(Play(log, rig), Without(2));
}

TEST(PollingDamagedLog, StopsAtZerosBehindTheLastRecord) {
  PollingRig rig;
  EXPECT_EQ(Play(FourRecords().Raw(Bytes(20, 0)), rig), kPayloads);
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
}

TEST(PollingDamagedLog, EndsAtAFewZerosBehindTheLastRecord) {
  PollingRig rig;
  EXPECT_EQ(Play(FourRecords().Raw(Bytes(19, 0)), rig), kPayloads);
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
}

// A record header that is valid but announces more bytes than there are.
Bytes HugeRecord(std::uint8_t client) {
  Bytes header = {0x4C, 0, 0, 0, 9, 0, 0, 0, client, 0, 1, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  for (std::size_t i = 2; i < header.size(); ++i) header[1] ^= header[i];
  return header;
}

class PollingHugeRecord : public testing::TestWithParam<std::uint8_t> {};

TEST_P(PollingHugeRecord, EndsTheLog) {
  PollingRig rig;
  const LogBuilder log = FourRecords().Raw(HugeRecord(GetParam())).Raw(Bytes(64, 1));
  const LargestAllocation largest;
  EXPECT_EQ(Play(log, rig), kPayloads);
  EXPECT_LT(largest.Bytes(), 100000U);
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
}

INSTANTIATE_TEST_SUITE_P(SelectedOrNot, PollingHugeRecord, testing::Values(kGps, 30));

TEST(PollingDamagedLog, PassesOverARecordWithoutPayload) {
  PollingRig rig;
  const LogBuilder log = LogBuilder()
                             .Record(kGps, 1, 0, "a")
                             .Record(kGps, 1, 0, "")
                             .Record(30, 1, 0, "")
                             .Record(kGps, 1, 0, "b");
  EXPECT_THAT(Play(log, rig), ElementsAre("a", "b"));
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
}

TEST(PollingDamagedLog, StopsAtASelectedRecordWithoutADataId) {
  PollingRig rig;
  EXPECT_THAT(Play(LogBuilder().Record(kGps, 1, 0, "a").Record(kGps, 0xFFFF, 0, "b"), rig),
              ElementsAre("a"));
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
}

TEST(PollingDamagedLog, SendsThePeriodicEventsOfTheRecordAfterTheDamage) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(1000);
  LogBuilder log;
  log.Record(kGps, 1, 500, "a").Record(kGps, 1, 9000, "damaged").Record(kGps, 1, 1500, "b");
  log.Flip(log.RecordOffset(1) + 20);
  rig.Play(log);
  EXPECT_TRUE(rig.Next());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("a", "b"));
  const std::vector<NotificationInfo> all = rig.notifications.All();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].value, 0U);
  EXPECT_EQ(all[1].value, 1000U);
}

}  // namespace
}  // namespace kestrav::test
