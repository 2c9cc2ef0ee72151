#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "polling_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Times = std::vector<std::uint32_t>;

LogBuilder RecordsAt(const Times& times) {
  LogBuilder log;
  for (const std::uint32_t time_ms : times) log.Record(kGps, 1, time_ms, "position");
  return log;
}

// The log times of the periodic events since the last call of `TakeIds`.
Times EventTimes(const PollingRig& rig) {
  Times times;
  for (const NotificationInfo& info : rig.notifications.All()) {
    if (info.id == NotifyPeriodicEvent) times.push_back(info.value);
  }
  return times;
}

// Polls once and gives the log times of the periodic events that this brought.
Times Poll(PollingRig& rig) {
  rig.notifications.TakeIds();
  EXPECT_TRUE(rig.Next());
  return EventTimes(rig);
}

TEST(PollingPeriodicEvent, IsSentForEachPeriodBeforeTheRecord) {
  PollingRig rig;
  rig.Play(RecordsAt({0, 3500, 4000, 4001}));
  ASSERT_TRUE(rig.Next());
  EXPECT_TRUE(rig.playback.SetPeriodicEventDuration(1000));
  Times seen_by_client;
  rig.gps.on_delivery = [&](const ILogMessage&) {
    seen_by_client = EventTimes(rig);
    return true;
  };

  EXPECT_THAT(Poll(rig), ElementsAre(0, 1000, 2000, 3000));
  EXPECT_THAT(seen_by_client, ElementsAre(0, 1000, 2000, 3000));
  EXPECT_THAT(Poll(rig), IsEmpty());  // due at 4000, which the record has not passed
  EXPECT_THAT(Poll(rig), ElementsAre(4000));
}

TEST(PollingPeriodicEvent, CarriesNothingButTheTime) {
  PollingRig rig;
  EXPECT_TRUE(rig.playback.SetPeriodicEventDuration(500));
  rig.Play(RecordsAt({1}));
  EXPECT_THAT(Poll(rig), ElementsAre(0));
  const NotificationInfo info = rig.notifications.All().front();
  EXPECT_TRUE(info.clients.IsEmpty());
  EXPECT_EQ(info.speed, PlaybackSpeedNone);
}

TEST(PollingPeriodicEvent, IsNotSentUnlessAskedFor) {
  PollingRig rig;
  rig.Play(RecordsAt({0, 100000}));
  rig.PlayToTheEnd();
  EXPECT_THAT(EventTimes(rig), IsEmpty());
}

TEST(PollingPeriodicEvent, StopsWithAPeriodOfZero) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(10);
  rig.Play(RecordsAt({15, 100}));
  EXPECT_THAT(Poll(rig), ElementsAre(0, 10));
  EXPECT_TRUE(rig.playback.SetPeriodicEventDuration(0));
  EXPECT_THAT(Poll(rig), IsEmpty());
}

TEST(PollingPeriodicEvent, CountsFromLogTimeZeroWhenSetBeforeTheFirstRecord) {
  PollingRig rig;
  rig.Play(RecordsAt({2500}).StartClock(2000));
  EXPECT_TRUE(rig.playback.SetPeriodicEventDuration(1000));
  EXPECT_THAT(Poll(rig), ElementsAre(0, 1000, 2000));
}

TEST(PollingPeriodicEvent, CountsFromThePresentRecordWhenSetAgain) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(100000);
  rig.Play(RecordsAt({1234, 1235, 1300}));
  EXPECT_THAT(Poll(rig), ElementsAre(0));
  EXPECT_TRUE(rig.playback.SetPeriodicEventDuration(50));
  EXPECT_THAT(Poll(rig), ElementsAre(1234));
  EXPECT_THAT(Poll(rig), ElementsAre(1284));
}

TEST(PollingPeriodicEvent, IsNotRepeatedWhenTheLogsTimeGoesBack) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(1000);
  rig.Play(RecordsAt({1500, 10, 1999, 2001}));
  EXPECT_THAT(Poll(rig), ElementsAre(0, 1000));
  EXPECT_THAT(Poll(rig), IsEmpty());
  EXPECT_THAT(Poll(rig), IsEmpty());
  EXPECT_THAT(Poll(rig), ElementsAre(2000));
}

TEST(PollingPeriodicEvent, IsSentForASelectedRecordOnly) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(1000);
  rig.Play(LogBuilder().Record(30, 1, 5000, "nobody's").Record(kGps, 1, 5001, "position"));
  EXPECT_EQ(Poll(rig).size(), 6U);
  EXPECT_THAT(Poll(rig), IsEmpty());
}

TEST(PollingPeriodicEvent, IsNotSentByTheCallThatMeetsTheEnd) {
  PollingRig rig;
  rig.Play(RecordsAt({1000}));
  ASSERT_TRUE(rig.Next());
  rig.playback.SetPeriodicEventDuration(1);
  EXPECT_THAT(Poll(rig), IsEmpty());
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
}

TEST(PollingPeriodicEvent, CountsFromZeroAgainWhenSetAfterTheEnd) {
  PollingRig rig;
  rig.Play(RecordsAt({1000}));
  rig.PlayToTheEnd();
  rig.playback.SetPeriodicEventDuration(400);
  rig.playback.StopPlayback(false);
  rig.notifications.TakeIds();
  rig.Play(RecordsAt({900}));
  EXPECT_THAT(Poll(rig), ElementsAre(0, 400, 800));
}

// Both the period and the time at which the next event is due belong to the object, not to a log.
TEST(PollingPeriodicEvent, StaysSetWithANewStream) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(1000);
  rig.Play(RecordsAt({1500}));
  EXPECT_THAT(Poll(rig), ElementsAre(0, 1000));
  rig.playback.StopPlayback(false);
  rig.notifications.TakeIds();
  rig.Play(RecordsAt({1500, 2500}));
  EXPECT_THAT(Poll(rig), IsEmpty());
  EXPECT_THAT(Poll(rig), ElementsAre(2000));
}

struct WrapCase {
  std::uint32_t present;  // time stamp of the record before the period is set
  std::uint32_t period;
  Times further;
  Times events;
};

class PollingPeriodicWrap : public testing::TestWithParam<WrapCase> {};

TEST_P(PollingPeriodicWrap, EndsTheEvents) {
  constexpr std::uint32_t kLast = 0xFFFFFFFF;
  PollingRig rig;
  Times times = GetParam().further;
  times.insert(times.begin(), GetParam().present);
  times.insert(times.end(), {5, kLast, kLast});
  rig.Play(RecordsAt(times));
  ASSERT_TRUE(rig.Next());
  rig.playback.SetPeriodicEventDuration(GetParam().period);
  rig.PlayToTheEnd();
  EXPECT_EQ(EventTimes(rig), GetParam().events);
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackFinished);
}

INSTANTIATE_TEST_SUITE_P(
    Periods, PollingPeriodicWrap,
    testing::Values(WrapCase{0, 0xFFFFFFFF, {1}, {0}},
                    WrapCase{0, 0xFFFFFFFE, {1}, {0, 0xFFFFFFFE}},
                    WrapCase{0, 0x80000000, {0xFFFFFFFF}, {0, 0x80000000}},
                    WrapCase{0, 0x7FFFFFFF, {0xFFFFFFFF}, {0, 0x7FFFFFFF, 0xFFFFFFFE}},
                    WrapCase{0xFFFFFFF0, 0x20, {}, {0xFFFFFFF0}},
                    WrapCase{0xFFFFFFF0, 5, {0xFFFFFFF6}, {0xFFFFFFF0, 0xFFFFFFF5, 0xFFFFFFFA}},
                    WrapCase{0xFFFFFFFE, 1, {}, {0xFFFFFFFE}}, WrapCase{0xFFFFFFFF, 1, {}, {}},
                    WrapCase{0xFFFFFFFF, 0xFFFFFFFF, {}, {}}));

TEST(PollingPeriodicEvent, BeginsAnewWhenSetAfterAWrap) {
  PollingRig rig;
  rig.playback.SetPeriodicEventDuration(0xFFFFFFFF);
  rig.Play(RecordsAt({0xFFFFFFFF, 10, 35}));
  EXPECT_THAT(Poll(rig), ElementsAre(0));
  EXPECT_THAT(Poll(rig), IsEmpty());
  rig.playback.SetPeriodicEventDuration(10);
  EXPECT_THAT(Poll(rig), ElementsAre(10, 20, 30));
}

}  // namespace
}  // namespace kestrav::test
