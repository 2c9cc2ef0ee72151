#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "polling_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder TwoRecords() {
  return LogBuilder().Record(kGps, 1, 1000, "first").Record(kGps, 1, 2000, "second");
}

// Selected, with a log inserted, in `status`.
void Bring(PollingRig& rig, PlaybackStatusType status) {
  rig.Select();
  ASSERT_TRUE(rig.Insert(TwoRecords().Build()));
  if (status != PlaybackOff) {
    ASSERT_TRUE(rig.Start());
  }
  if (status == PlaybackStarting) rig.playback.SetPlaybackStatus(PlaybackStarting);
  if (status == PlaybackFinished) rig.PlayToTheEnd();
  ASSERT_EQ(rig.playback.GetPlaybackStatus(), status);
  rig.notifications.TakeIds();
}

bool StartWithoutSelection(PollingRig& rig) {
  rig.manager.ResetPlaybackSelection();
  return rig.Start();
}

bool StartWithoutStream(PollingRig& rig) {
  return rig.playback.SetInputStream(nullptr) && rig.Start();
}

bool StartWithoutManager(PollingRig& rig) {
  return rig.playback.StartPlayback(nullptr, &rig.notifications, rig.owner, L"Playback");
}

bool StartWithoutEngine(PollingRig& rig) {
  return rig.playback.StartPlayback(&rig.manager, nullptr, rig.owner, L"Playback");
}

bool NextAtTheEnd(PollingRig& rig) { return rig.Next() && rig.Next() && rig.Next(); }

bool NextFromABrokenStream(PollingRig& rig) {
  rig.stream->fail_reads = true;
  return rig.Next();
}

bool NextToAClientThatRefuses(PollingRig& rig) {
  rig.gps.takes_data = false;
  return rig.Next();
}

bool Stop(PollingRig& rig) {
  rig.playback.StopPlayback(true);
  return true;
}

struct StateCase {
  const char* name;
  PlaybackStatusType from;
  std::function<bool(PollingRig&)> event;
  bool result;
  PlaybackStatusType to;
  std::vector<int> notifications;
};

void PrintTo(const StateCase& state_case, std::ostream* out) { *out << state_case.name; }

class PollingState : public testing::TestWithParam<StateCase> {};

TEST_P(PollingState, ChangesAsTheTableSays) {
  PollingRig rig;
  Bring(rig, GetParam().from);

  EXPECT_EQ(GetParam().event(rig), GetParam().result);
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), GetParam().to);
  EXPECT_EQ(rig.notifications.TakeIds(), GetParam().notifications);
}

const StateCase kStateCases[] = {
    {"OffStart", PlaybackOff, &PollingRig::Start, true, PlaybackPlaying, {2}},
    {"OffStartWithoutSelection", PlaybackOff, StartWithoutSelection, false, PlaybackOff, {}},
    {"OffStartWithoutStream", PlaybackOff, StartWithoutStream, false, PlaybackOff, {}},
    {"OffStartWithoutManager", PlaybackOff, StartWithoutManager, false, PlaybackOff, {}},
    {"OffStartWithoutEngine", PlaybackOff, StartWithoutEngine, false, PlaybackOff, {}},
    {"OffNext", PlaybackOff, &PollingRig::Next, false, PlaybackOff, {}},
    {"OffStop", PlaybackOff, Stop, true, PlaybackOff, {}},
    {"PlayingStart", PlaybackPlaying, &PollingRig::Start, false, PlaybackPlaying, {}},
    {"PlayingNext", PlaybackPlaying, &PollingRig::Next, true, PlaybackPlaying, {}},
    {"PlayingNextAtTheEnd", PlaybackPlaying, NextAtTheEnd, true, PlaybackFinished, {8}},
    {"PlayingNextUnreadable", PlaybackPlaying, NextFromABrokenStream, false, PlaybackOff, {3}},
    {"PlayingNextRefused", PlaybackPlaying, NextToAClientThatRefuses, false, PlaybackOff, {3}},
    {"PlayingStop", PlaybackPlaying, Stop, true, PlaybackOff, {3}},
    {"FinishedNext", PlaybackFinished, &PollingRig::Next, false, PlaybackOff, {3}},
    {"FinishedStart", PlaybackFinished, &PollingRig::Start, false, PlaybackOff, {3}},
    {"FinishedStartWithoutManager",
     PlaybackFinished,
     StartWithoutManager,
     false,
     PlaybackFinished,
     {}},
    {"FinishedStop", PlaybackFinished, Stop, true, PlaybackOff, {3}},
    {"StartingStart", PlaybackStarting, &PollingRig::Start, false, PlaybackOff, {3}},
    {"StartingStop", PlaybackStarting, Stop, true, PlaybackOff, {3}},
};

INSTANTIATE_TEST_SUITE_P(Table, PollingState, testing::ValuesIn(kStateCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(PollingPlayback, IsOffWhenNew) {
  const BinaryPlaybackPollingImpl playback;
  EXPECT_EQ(playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_TRUE(playback.IsPlaybackOff());
  EXPECT_EQ(playback.GetPlaybackLogLengthMs(), 0U);
  EXPECT_EQ(playback.GetPlaybackLogSize(), 0U);
}

TEST(PollingPlayback, DeliversNothingInTheCallThatMeetsTheEnd) {
  PollingRig rig;
  rig.Play(TwoRecords());
  EXPECT_TRUE(rig.Next());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("first", "second"));

  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyEndOfLog));
  EXPECT_FALSE(rig.Next());
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("first", "second"));
}

TEST(PollingPlayback, TellsObserversTheIdsThatItsClientsHaveNow) {
  PollingRig rig;
  rig.Select({{L"GPS", kGps}});
  ASSERT_TRUE(rig.Insert(TwoRecords().Build()));
  ASSERT_TRUE(rig.Start());
  rig.PlayToTheEnd();
  rig.playback.StopPlayback(false);

  const std::vector<NotificationInfo> all = rig.notifications.All();
  ASSERT_EQ(all.size(), 3U);
  for (const NotificationInfo& info : all) {
    EXPECT_EQ(info.clients.Mask(), ClientIdSet::Bit(rig.gps.client_id)) << info.id;
    EXPECT_EQ(info.value, 0U);
    EXPECT_EQ(info.speed, PlaybackSpeedNone);
  }
}

TEST(PollingPlayback, SetsTheStatusItIsTold) {
  PollingRig rig;
  Bring(rig, PlaybackPlaying);
  rig.playback.SetPlaybackStatus(PlaybackFinished);
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackFinished);
  EXPECT_FALSE(rig.IsStreamReleased());
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
}

TEST(PollingPlayback, KeepsTheEarlierSelectionForAStartWithTheSameStream) {
  PollingRig rig;
  Bring(rig, PlaybackPlaying);
  ASSERT_TRUE(rig.Next());
  rig.playback.SetPlaybackStatus(PlaybackOff);
  rig.manager.RemoveFromPlaybackList(L"CAN");

  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("first", "first"));
  const std::uint64_t both =
      ClientIdSet::Bit(rig.gps.client_id) | ClientIdSet::Bit(rig.can.client_id);
  EXPECT_EQ(rig.notifications.All().back().clients.Mask(), both);
}

TEST(PollingPlayback, TakesANewSelectionWithANewStream) {
  PollingRig rig;
  Bring(rig, PlaybackPlaying);
  rig.playback.StopPlayback(false);
  rig.manager.ResetPlaybackSelection();
  rig.Select({{L"CAN", kGps}});

  ASSERT_TRUE(rig.Insert(TwoRecords().Build()));
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.can), ElementsAre("first"));
  EXPECT_THAT(Payloads(rig.gps), IsEmpty());
}

TEST(PollingPlayback, StartsOnceAClientIsSelected) {
  PollingRig rig;
  ASSERT_TRUE(rig.Insert(TwoRecords().Build()));
  EXPECT_FALSE(rig.Start());
  rig.Select();
  EXPECT_TRUE(rig.Start());
}

struct StopCase {
  const char* name;
  PlaybackStatusType from;
  std::function<bool(PollingRig&)> event;
};

void PrintTo(const StopCase& stop_case, std::ostream* out) { *out << stop_case.name; }

class PollingStop : public testing::TestWithParam<StopCase> {};

TEST_P(PollingStop, LetsTheStreamGoSoThatTheNextStartNeedsAnother) {
  PollingRig rig;
  Bring(rig, GetParam().from);
  ASSERT_FALSE(rig.IsStreamReleased());
  GetParam().event(rig);

  ASSERT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_TRUE(rig.IsStreamReleased());
  rig.notifications.TakeIds();
  EXPECT_FALSE(rig.Start());
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());

  rig.gps.takes_data = true;
  ASSERT_TRUE(rig.Insert(TwoRecords().Build()));
  EXPECT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_EQ(Payloads(rig.gps).back(), "first");
}

const StopCase kStopCases[] = {
    {"WhileOff", PlaybackOff, Stop},
    {"WhilePlaying", PlaybackPlaying, Stop},
    {"AfterTheEnd", PlaybackFinished, Stop},
    {"ByACallWhileOff", PlaybackOff, &PollingRig::Next},
    {"ByACallAfterTheEnd", PlaybackFinished, &PollingRig::Next},
    {"ByAStartAfterTheEnd", PlaybackFinished, &PollingRig::Start},
    {"ByAStreamThatFails", PlaybackPlaying, NextFromABrokenStream},
    {"ByAClientThatRefuses", PlaybackPlaying, NextToAClientThatRefuses},
};

INSTANTIATE_TEST_SUITE_P(Causes, PollingStop, testing::ValuesIn(kStopCases),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace kestrav::test
