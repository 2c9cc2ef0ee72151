#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

#include "polling_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder OneOfEach() {
  return LogBuilder().Record(kGps, 3, 1000, "position").Record(kCan, 4, 1001, "frame");
}

TEST(PollingDelivery, FindsTheClientOfARecordByItsStringId) {
  PollingRig rig;
  rig.Play(OneOfEach());
  ASSERT_NE(rig.gps.client_id, kGps);
  EXPECT_TRUE(rig.Next());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(rig.gps.Deliveries(), ElementsAre(Delivery{kGps, 3, "position"}));
  EXPECT_THAT(rig.can.Deliveries(), ElementsAre(Delivery{kCan, 4, "frame"}));
}

TEST(PollingDelivery, GivesTheSameFromAScrambledLog) {
  PollingRig rig;
  rig.Play(LogBuilder(0xFE, 0x5A)
               .Record(kGps, 3, 1, "a")
               .Record(30, 3, 2, "nobody's")
               .Record(kGps, 3, 3, "b")
               .Record(kCan, 3, 4, "c"));
  rig.PlayToTheEnd();
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackFinished);
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("a", "b"));
  EXPECT_THAT(Payloads(rig.can), ElementsAre("c"));
}

TEST(PollingDelivery, DeliversOneRecordACallAndPassesOverTheOthersUnread) {
  PollingRig rig;
  const std::string long_payload(10000, 'L');
  rig.Select({{L"GPS", kGps}});
  ASSERT_TRUE(rig.Insert(LogBuilder()
                             .Record(12, 1200, 0, long_payload)
                             .Record(kCan, 1, 1, long_payload)
                             .Record(kGps, 1, 2, "a")
                             .Record(kCan, 1, 3, long_payload)
                             .Record(kGps, 1, 4, "b")
                             .Build()));
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("a"));
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("a", "b"));
  EXPECT_THAT(rig.can.Deliveries(), IsEmpty());
  EXPECT_EQ(rig.stream->bytes_read, 128U + 5 * 20 + 2);
}

TEST(PollingDelivery, DoesNotLookAtTheOrderOfTheTimeStamps) {
  PollingRig rig;
  rig.Play(LogBuilder()
               .Record(kGps, 1, 5000, "late")
               .Record(kGps, 1, 10, "early")
               .Record(kGps, 1, 0xFFFFFFFF, "last"));
  rig.PlayToTheEnd();
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("late", "early", "last"));
}

enum class Answer { kYes, kNo, kThrow };

void Teach(RecordingClient& client, Answer answer, std::string& calls, char name) {
  client.on_delivery = [&calls, answer, name](const ILogMessage&) {
    calls += name;
    if (answer == Answer::kThrow) throw std::runtime_error("cannot take it");
    return answer == Answer::kYes;
  };
}

class PollingInstances : public testing::TestWithParam<std::tuple<Answer, Answer, Answer>> {};

TEST_P(PollingInstances, AreAllCalledInOrderAndTheLastAnswerCounts) {
  PollingRig rig;
  RecordingClient second(L"GPS");
  RecordingClient third(L"GPS");
  std::string calls;
  Teach(rig.gps, std::get<0>(GetParam()), calls, '1');
  Teach(second, std::get<1>(GetParam()), calls, '2');
  Teach(third, std::get<2>(GetParam()), calls, '3');
  ASSERT_TRUE(rig.manager.RegisterClient(&second));
  ASSERT_TRUE(rig.manager.RegisterClient(&third));
  rig.Play(OneOfEach());

  const bool taken = std::get<2>(GetParam()) == Answer::kYes;
  EXPECT_EQ(rig.Next(), taken);
  EXPECT_EQ(calls, "123");
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), taken ? PlaybackPlaying : PlaybackOff);
  EXPECT_EQ(rig.notifications.TakeIds(),
            taken ? std::vector<int>{} : std::vector<int>{NotifyPlaybackStopped});
}

constexpr Answer kAnswers[] = {Answer::kYes, Answer::kNo, Answer::kThrow};
INSTANTIATE_TEST_SUITE_P(Answers, PollingInstances,
                         testing::Combine(testing::ValuesIn(kAnswers), testing::ValuesIn(kAnswers),
                                          testing::ValuesIn(kAnswers)));

TEST(PollingDelivery, LeavesOutAnInstanceThatIsNotSelectable) {
  PollingRig rig;
  RecordingClient second(L"GPS");
  rig.gps.selectable_for_playback = false;
  ASSERT_TRUE(rig.manager.RegisterClient(&second));
  rig.Play(OneOfEach());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(second), ElementsAre("position"));
  EXPECT_THAT(Payloads(rig.gps), IsEmpty());
}

TEST(PollingDelivery, PassesOverAClientThatIsDeselectedMeanwhile) {
  PollingRig rig;
  rig.Play(OneOfEach());
  rig.manager.ResetPlaybackSelection();
  EXPECT_TRUE(rig.Next());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), IsEmpty());
  EXPECT_THAT(Payloads(rig.can), IsEmpty());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackPlaying);
}

TEST(PollingDelivery, PassesOverAClientThatLeavesMeanwhile) {
  PollingRig rig;
  rig.Play(OneOfEach());
  ASSERT_TRUE(rig.manager.UnRegisterClient(&rig.gps));
  EXPECT_TRUE(rig.Next());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), IsEmpty());
  EXPECT_THAT(Payloads(rig.can), ElementsAre("frame"));
}

// A selection outlives a new playback list, so a recorded id can be selected with nobody behind it.
TEST(PollingDelivery, StopsAtASelectedRecordThatNobodyReceives) {
  PollingRig rig;
  rig.Select();
  rig.Select({{L"GPS", kGps}});
  ASSERT_TRUE(rig.Insert(OneOfEach().Build()));
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_FALSE(rig.Next());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(2, 3));
  EXPECT_THAT(Payloads(rig.can), IsEmpty());
}

TEST(PollingDelivery, LetsAClientStopThePlaybackThatCallsIt) {
  PollingRig rig;
  rig.gps.on_delivery = [&rig](const ILogMessage&) {
    rig.playback.StopPlayback(true);
    return true;
  };
  rig.Play(OneOfEach());
  EXPECT_TRUE(rig.Next());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_TRUE(rig.IsStreamReleased());
  EXPECT_FALSE(rig.Next());
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
}

class PollingHighId : public testing::TestWithParam<std::uint16_t> {};

TEST_P(PollingHighId, IsNeverPlayed) {
  PollingRig rig;
  rig.Select({{L"CAN", kCan}, {L"GPS", GetParam()}});
  ASSERT_TRUE(rig.Insert(LogBuilder()
                             .Record(GetParam(), 1, 0, "high")
                             .Record(kCan, 1, 1, "frame")
                             .Record(GetParam(), 1, 2, "high")
                             .Build()));
  ASSERT_TRUE(rig.Start());
  rig.PlayToTheEnd();
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackFinished);
  EXPECT_THAT(Payloads(rig.gps), IsEmpty());
  EXPECT_THAT(Payloads(rig.can), ElementsAre("frame"));
}

TEST_P(PollingHighId, CannotBePlayedAlone) {
  PollingRig rig;
  rig.Select({{L"GPS", GetParam()}});
  ASSERT_TRUE(rig.Insert(LogBuilder().Record(GetParam(), 1, 0, "high").Build()));
  EXPECT_FALSE(rig.Start());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
}

// 64 + 21 would be the id of another client if bits were taken modulo 64.
INSTANTIATE_TEST_SUITE_P(Ids, PollingHighId, testing::Values(64, 64 + kGps, 1000, 0xFFFF));

TEST(PollingDelivery, PlaysTheHighestIdThatCanBeSelected) {
  PollingRig rig;
  rig.Select({{L"GPS", 63}});
  ASSERT_TRUE(rig.Insert(LogBuilder().Record(63, 1, 0, "highest").Build()));
  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), ElementsAre("highest"));
}

TEST(PollingDelivery, CannotStartWhenTwoClientsWereRecordedUnderOneId) {
  PollingRig rig;
  rig.Select({{L"CAN", kGps}, {L"GPS", kGps}});
  ASSERT_TRUE(rig.Insert(OneOfEach().Build()));
  EXPECT_FALSE(rig.Start());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
}

}  // namespace
}  // namespace kestrav::test
