#include <stdexcept>

#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

LogBuilder EverySecond() {
  return Log({{1000, "a"}, {2000, "b"}, {3000, "c"}, {4000, "d"}, {5000, "e"}});
}

// Whatever happened before, a new stream plays.
void ExpectUsable(NormalRig& rig) {
  ASSERT_EQ(rig.Status(), PlaybackOff);
  EXPECT_EQ(rig.Speed(), 0);
  EXPECT_EQ(rig.stream.use_count(), 1);
  rig.clock->Recover();
  rig.react = nullptr;
  rig.trace.on_notification = nullptr;
  rig.Play(EverySecond());
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 a"));
}

class NormalClockFailure : public testing::TestWithParam<std::tuple<std::uint32_t, Entries>> {};

TEST_P(NormalClockFailure, AtAnyReadingOfAStartEndsThePlayback) {
  NormalRig rig;
  rig.Insert(EverySecond());
  rig.trace.StartNow();
  rig.clock->FailMs(std::get<0>(GetParam()));
  EXPECT_TRUE(rig.Start());
  EXPECT_EQ(rig.Settled(), std::get<1>(GetParam()));
  ExpectUsable(rig);
}

INSTANTIATE_TEST_SUITE_P(
    Readings, NormalClockFailure,
    testing::Values(std::tuple{0U, Entries{"0 speed 0", "0 started", "0 stopped"}},
                    std::tuple{1U, Entries{"0 speed 1", "0 started", "0 stopped"}},
                    std::tuple{2U, Entries{"0 speed 1", "0 started", "0 speed 0", "0 stopped"}}));

class NormalRewindClockFailure
    : public testing::TestWithParam<std::tuple<std::uint32_t, bool, Entries>> {};

TEST_P(NormalRewindClockFailure, AtAnyReadingOfARewindEndsThePlayback) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.clock->FailMs(std::get<0>(GetParam()));
  EXPECT_EQ(rig.playback.RewindPlayback(), std::get<1>(GetParam()));
  EXPECT_EQ(rig.Settled(), std::get<2>(GetParam()));
  ExpectUsable(rig);
}

INSTANTIATE_TEST_SUITE_P(
    Readings, NormalRewindClockFailure,
    testing::Values(std::tuple{0U, false, Entries{"0 speed 0", "0 stopped"}},
                    std::tuple{1U, false, Entries{"0 speed 0", "0 stopped"}},
                    std::tuple{2U, true, Entries{"0 speed 0", "0 rewinds", "0 stopped"}},
                    std::tuple{3U, true,
                               Entries{"0 speed 0", "0 rewinds", "0 speed 0", "0 stopped"}}));

TEST(NormalClockFailure, AtAPauseEndsThePlayback) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.clock->FailMs();
  EXPECT_TRUE(rig.playback.PausePlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 0", "0 stopped"));
  ExpectUsable(rig);
}

TEST(NormalClockFailure, AtAResumeEndsThePlayback) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.playback.PausePlayback();
  rig.Settled();
  rig.clock->FailMs();
  EXPECT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 resumed", "0 speed 0", "0 stopped"));
  ExpectUsable(rig);
}

TEST(NormalClockFailure, AtTheEndOfTheLogEndsThePlaybackBeforeTheLastRecord) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.clock->FailMs();
  EXPECT_THAT(rig.Run(5000),
              ElementsAre("1000 a", "2000 b", "3000 c", "4000 d", "5000 speed 0", "5000 stopped"));
  ExpectUsable(rig);
}

TEST(NormalClockFailure, AtAFastForwardLeavesSpeedZeroAndTheWaitAsItWas) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}, {1500, "b"}, {9000, "c"}, {10000, "d"}}));
  rig.Run(1000);
  rig.clock->FailMs();
  EXPECT_FALSE(rig.playback.FastForward());
  rig.clock->Recover();
  EXPECT_THAT(rig.Settled(), ElementsAre("1000 speed 0"));
  EXPECT_EQ(rig.Status(), PlaybackPlaying);
  EXPECT_THAT(rig.Run(1000), ElementsAre("1500 b", "2000 c"));
}

TEST(NormalClockFailure, OfTheCallersReadingAloneStartsUnpaced) {
  NormalRig rig;
  rig.Insert(EverySecond());
  rig.trace.StartNow();
  rig.clock->FailMs();
  rig.trace.on_notification = [&](const NotificationInfo&) { rig.clock->Recover(); };
  EXPECT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 0", "0 started", "0 speed 0", "0 a", "0 b", "0 c",
                                         "0 d", "0 speed 0", "0 e", "0 end"));
}

// What a start of this log brings.
struct LogCase {
  const char* name;
  LogBuilder log;
  Entries entries;
};

void PrintTo(const LogCase& log_case, std::ostream* out) { *out << log_case.name; }

class NormalBadLog : public testing::TestWithParam<LogCase> {};

TEST_P(NormalBadLog, EndsThePlayback) {
  NormalRig rig;
  std::vector<String> offered;
  ASSERT_TRUE(rig.manager.UpdatePlaybackClientList(offered, {{L"GPS", kRecordedGps}}, 0));
  ASSERT_TRUE(rig.manager.SelectForPlayback(L"GPS"));
  rig.stream = std::make_shared<BytesInputStream>(GetParam().log.Build());
  ASSERT_TRUE(rig.playback.SetInputStream(rig.stream));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_EQ(rig.Run(10000), GetParam().entries);
  ExpectUsable(rig);
}

// The log of records a (0), b (1) and so on with a damage.
LogBuilder Damaged(const std::function<void(LogBuilder&)>& damage) {
  LogBuilder log = EverySecond();
  damage(log);
  return log;
}

const Entries kEndsAtOnce = {"0 speed 1", "0 started", "0 stopped"};
const Entries kEndsBeforeTheSecond = {"0 speed 1", "0 started", "0 speed 1", "1000 stopped"};

const LogCase kBadLogs[] = {
    {"Empty", Damaged([](LogBuilder& log) { log.Cut(0); }), kEndsAtOnce},
    {"CutInTheHeader", Damaged([](LogBuilder& log) { log.Cut(127); }), kEndsAtOnce},
    {"HeaderAlone", Damaged([](LogBuilder& log) { log.Cut(128); }), kEndsAtOnce},
    {"NoHeader", Damaged([](LogBuilder& log) { log.Flip(0); }), kEndsAtOnce},
    {"NothingButZeros", Damaged([](LogBuilder& log) { log.Zero(128, log.Size() - 128); }),
     kEndsAtOnce},
    // The record before the damage is read, but its successor must be known before it is played.
    {"DamagedToTheEnd", Damaged([](LogBuilder& log) {
       log.Zero(log.RecordOffset(1), log.Size() - log.RecordOffset(1));
     }),
     kEndsBeforeTheSecond},
    {"OlderThanItsPredecessor", Log({{1000, "a"}, {999, "b"}, {2000, "c"}}), kEndsBeforeTheSecond},
    {"OlderThanTheLog", Log({{0xFFFFFFFF, "a"}, {1000, "b"}}), kEndsAtOnce},
    {"HalfTheRangeAhead", Log({{1000, "a"}, {1000 + 0x80000000, "b"}}), kEndsBeforeTheSecond},
};

INSTANTIATE_TEST_SUITE_P(Logs, NormalBadLog, testing::ValuesIn(kBadLogs),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(NormalDamagedLog, IsPlayedWithoutTheDamagedRecords) {
  NormalRig rig;
  LogBuilder log = EverySecond();
  log.Flip(log.RecordOffset(1) + 20).Flip(log.RecordOffset(3) + 5);
  rig.Play(log);
  EXPECT_THAT(rig.Run(5000), ElementsAre("1000 a", "3000 c", "5000 speed 0", "5000 e", "5000 end"));
}

TEST(NormalDamagedLog, EndsWhereItIsCut) {
  NormalRig rig;
  LogBuilder log = EverySecond();
  log.Cut(log.RecordOffset(2) + 20);
  rig.Play(log);
  EXPECT_THAT(rig.Run(5000), ElementsAre("1000 a", "2000 speed 0", "2000 b", "2000 end"));
}

TEST(NormalStart, EndsWithoutAStream) {
  NormalRig rig;
  rig.Insert(EverySecond());
  ASSERT_TRUE(rig.playback.SetInputStream(nullptr));
  rig.trace.StartNow();
  EXPECT_TRUE(rig.Start());
  EXPECT_EQ(rig.Settled(), kEndsAtOnce);
  ExpectUsable(rig);
}

TEST(NormalStart, EndsWithoutASelectionAndIsNotCalledStarted) {
  NormalRig rig;
  rig.Insert(EverySecond());
  rig.manager.ResetPlaybackSelection();
  rig.trace.StartNow();
  EXPECT_TRUE(rig.Start());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 speed 1", "0 stopped"));
  ExpectUsable(rig);
}

class NormalClientFailure : public testing::TestWithParam<std::function<bool()>> {};

TEST_P(NormalClientFailure, EndsThePlayback) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.react = [](const std::string& payload) { return payload != "b" || GetParam()(); };
  EXPECT_THAT(rig.Run(5000), ElementsAre("1000 a", "2000 b", "2000 stopped"));
  ExpectUsable(rig);
}

// At the last record the log has ended already, but its end is no longer told.
TEST_P(NormalClientFailure, AtTheLastRecordEndsThePlayback) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.react = [](const std::string& payload) { return payload != "e" || GetParam()(); };
  rig.Run(4999);
  EXPECT_THAT(rig.Run(1), ElementsAre("5000 speed 0", "5000 e", "5000 stopped"));
  ExpectUsable(rig);
}

INSTANTIATE_TEST_SUITE_P(Ways, NormalClientFailure,
                         testing::Values([] { return false; },
                                         []() -> bool { throw std::runtime_error("no"); },
                                         []() -> bool { throw 1; }));

TEST(NormalInstances, AreAllCalledAndTheLastAnswerCounts) {
  for (const bool last : {true, false}) {
    NormalRig rig;
    RecordingClient second(L"GPS");
    second.takes_data = last;
    ASSERT_TRUE(rig.manager.RegisterClient(&second));
    rig.react = [last](const std::string&) { return !last; };
    rig.Play(EverySecond());
    rig.Run(1000);
    EXPECT_EQ(second.Deliveries().size(), 1U);
    EXPECT_EQ(rig.Status(), last ? PlaybackPlaying : PlaybackOff);
    rig.playback.StopPlayback(true);
  }
}

TEST(NormalSelection, ThatIsClearedWhilePlayingSilencesTheClients) {
  NormalRig rig;
  rig.Play(EverySecond());
  rig.manager.ResetPlaybackSelection();
  EXPECT_THAT(rig.Run(5000), ElementsAre("5000 speed 0", "5000 end"));
}

// The selection outlives a new playback list, so that a recorded id can be left without a client.
TEST(NormalSelection, OfAnIdWithoutAClientEndsThePlayback) {
  NormalRig rig;
  rig.Insert(Log({{1000, "a"}, {2000, "b", kRecordedCan}, {3000, "c"}}));
  ASSERT_TRUE(rig.manager.RemoveFromPlaybackList(L"CAN"));
  std::vector<String> offered;
  ASSERT_TRUE(rig.manager.UpdatePlaybackClientList(offered, {{L"CAN", kRecordedCan}}, 0));
  ASSERT_TRUE(rig.manager.SelectForPlayback(L"CAN"));
  ASSERT_TRUE(rig.manager.UpdatePlaybackClientList(offered, {{L"GPS", kRecordedGps}}, 0));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  EXPECT_THAT(rig.Run(3000),
              ElementsAre("0 speed 1", "0 started", "0 speed 1", "1000 a", "2000 stopped"));
}

}  // namespace
}  // namespace kestrav::test
