#include <map>

#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Notifications as "<what> @<status when it was sent>", without deliveries.
class StatusRig : public NormalRig {
 public:
  StatusRig() {
    trace.on_notification = [this](const NotificationInfo& info) {
      steps_.push_back(Describe(info) + " @" + std::to_string(Status()));
    };
  }
  // The thread tells of its end; it must be over before the steps go.
  ~StatusRig() { playback.StopPlayback(true); }

  // A playback of three records in `status`, whose thread runs and rests unless it is off.
  void Bring(PlaybackStatusType status) {
    Insert(Log({{1000, "a"}, {2000, "b"}, {3000, "c"}}));
    if (status == PlaybackOff) return;
    ASSERT_TRUE(Start());
    Run(status == PlaybackFinished ? 3000 : 1500);
    if (status != PlaybackFinished && status != PlaybackPlaying) {
      ASSERT_TRUE(playback.PausePlayback());
      clock->Settle();
    }
    if (status == PlaybackStarting || status == PlaybackRewinding) {
      playback.SetPlaybackStatus(status);
    }
    ASSERT_EQ(Status(), status);
    steps_.clear();
    trace.Take();
  }
  Entries TakeSteps() {
    clock->Settle();
    return std::exchange(steps_, {});
  }

 private:
  Entries steps_;
};

bool Start(StatusRig& rig) { return rig.Start(); }
bool Pause(StatusRig& rig) { return rig.playback.PausePlayback(); }
bool Resume(StatusRig& rig) { return rig.playback.ResumePlayback(); }
bool FastForward(StatusRig& rig) { return rig.playback.FastForward(); }
bool Rewind(StatusRig& rig) { return rig.playback.RewindPlayback(); }
bool Stop(StatusRig& rig) {
  rig.playback.StopPlayback(false);
  return true;
}
bool StopAndWait(StatusRig& rig) {
  rig.playback.StopPlayback(true);
  return true;
}
bool ResumeFromAnOffset(StatusRig& rig) {
  return rig.playback.SetStartPlaybackOffsetScnds(1) && rig.playback.ResumePlayback();
}
bool ResumeFromTheStart(StatusRig& rig) {
  return rig.playback.SetStartPlaybackOffsetScnds(0) && rig.playback.ResumePlayback();
}
bool FastForwardFromAnOffset(StatusRig& rig) {
  return rig.playback.SetStartPlaybackOffsetScnds(1) && rig.playback.FastForward();
}
bool StartFromAnOffset(StatusRig& rig) {
  return rig.playback.SetStartPlaybackOffsetScnds(1) && rig.Start();
}
// Lets a wait that began before come to its end.
bool LetTimePass(StatusRig& rig) {
  rig.clock->Advance(10'000);
  return true;
}
bool FailTheRead(StatusRig& rig) {
  rig.stream->fail_reads = true;
  return LetTimePass(rig);
}
bool RefuseTheRecord(StatusRig& rig) {
  rig.react = [](const std::string&) { return false; };
  return LetTimePass(rig);
}

struct Row {
  const char* name;
  PlaybackStatusType from;
  bool (*event)(StatusRig&);
  PlaybackStatusType to;
  Entries steps;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class NormalStatus : public testing::TestWithParam<Row> {};

TEST_P(NormalStatus, ChangesWithItsNotifications) {
  StatusRig rig;
  rig.Bring(GetParam().from);
  EXPECT_TRUE(GetParam().event(rig));
  EXPECT_EQ(rig.TakeSteps(), GetParam().steps);
  EXPECT_EQ(rig.Status(), GetParam().to);
}

const Entries kStarts = {"speed 1 @0", "started @1", "speed 1 @2"};
const Entries kPauses = {"speed 0 @2", "paused @3"};
const Entries kResumes = {"resumed @2", "speed 1 @2"};
const Entries kStartsFromAnOffset = {"started @3", "speed 0 @2"};
const Entries kPlaysAgainUnpaced = {"started @5", "speed 0 @2", "speed 0 @5", "end @5"};
const Entries kStops = {"stopped @0"};

// What a rewind from `status` brings.
Entries Rewinds(int status) {
  return {"speed 0 @" + std::to_string(status), "rewinds @4", "speed 1 @2", "rewound @2"};
}

// The notification of a stop is sent before the status changes.
Entries StopsFrom(int status) { return {"stopped @" + std::to_string(status)}; }

const Row kRows[] = {
    {"OffStart", PlaybackOff, Start, PlaybackPlaying, kStarts},
    {"PlayingPause", PlaybackPlaying, Pause, PlaybackPaused, kPauses},
    {"StartingPause", PlaybackStarting, Pause, PlaybackPaused, {"speed 0 @1", "paused @3"}},
    {"PausedResume", PlaybackPaused, Resume, PlaybackPlaying, kResumes},
    {"PausedFastForward", PlaybackPaused, FastForward, PlaybackPlaying, kResumes},
    {"PausedStart", PlaybackPaused, Start, PlaybackPlaying, kResumes},
    {"PausedResumeAtOffset", PlaybackPaused, ResumeFromAnOffset, PlaybackPlaying,
     kStartsFromAnOffset},
    {"PausedFastForwardAtOffset", PlaybackPaused, FastForwardFromAnOffset, PlaybackPlaying,
     kStartsFromAnOffset},
    {"PausedStartAtOffset", PlaybackPaused, StartFromAnOffset, PlaybackPlaying,
     kStartsFromAnOffset},
    {"PausedResumeAtTheStart",
     PlaybackPaused,
     ResumeFromTheStart,
     PlaybackFinished,
     {"started @3", "speed 0 @2", "speed 0 @5", "end @5"}},
    {"StartingRewind", PlaybackStarting, Rewind, PlaybackPlaying, Rewinds(1)},
    {"PlayingRewind", PlaybackPlaying, Rewind, PlaybackPlaying, Rewinds(2)},
    {"PausedRewind", PlaybackPaused, Rewind, PlaybackPlaying, Rewinds(3)},
    {"RewindingRewind", PlaybackRewinding, Rewind, PlaybackPlaying, Rewinds(4)},
    {"FinishedRewind", PlaybackFinished, Rewind, PlaybackPlaying, Rewinds(5)},
    {"PlayingEnd", PlaybackPlaying, LetTimePass, PlaybackFinished, {"speed 0 @5", "end @5"}},
    {"FinishedStart",
     PlaybackFinished,
     Start,
     PlaybackPlaying,
     {"speed 1 @5", "started @1", "speed 1 @2"}},
    {"FinishedResume", PlaybackFinished, Resume, PlaybackFinished, kPlaysAgainUnpaced},
    {"FinishedFastForward", PlaybackFinished, FastForward, PlaybackFinished, kPlaysAgainUnpaced},
    {"OffStop", PlaybackOff, Stop, PlaybackOff, {}},
    {"StartingStop", PlaybackStarting, Stop, PlaybackOff, StopsFrom(1)},
    {"PlayingStop", PlaybackPlaying, Stop, PlaybackOff, StopsFrom(2)},
    {"PausedStop", PlaybackPaused, Stop, PlaybackOff, StopsFrom(3)},
    {"RewindingStop", PlaybackRewinding, Stop, PlaybackOff, StopsFrom(4)},
    {"FinishedStop", PlaybackFinished, Stop, PlaybackOff, StopsFrom(5)},
    {"OffStopAndWait", PlaybackOff, StopAndWait, PlaybackOff, {}},
    {"StartingStopAndWait", PlaybackStarting, StopAndWait, PlaybackOff, StopsFrom(1)},
    {"PlayingStopAndWait", PlaybackPlaying, StopAndWait, PlaybackOff, StopsFrom(2)},
    {"PausedStopAndWait", PlaybackPaused, StopAndWait, PlaybackOff, StopsFrom(3)},
    {"RewindingStopAndWait", PlaybackRewinding, StopAndWait, PlaybackOff, StopsFrom(4)},
    {"FinishedStopAndWait", PlaybackFinished, StopAndWait, PlaybackOff, StopsFrom(5)},
    {"PlayingReadFails", PlaybackPlaying, FailTheRead, PlaybackOff, StopsFrom(2)},
    {"PlayingRefused", PlaybackPlaying, RefuseTheRecord, PlaybackOff, StopsFrom(2)},
    {"StartingResume",
     PlaybackStarting,
     Resume,
     PlaybackFinished,
     {"started @1", "speed 0 @2", "speed 0 @5", "end @5"}},
    {"RewindingResume", PlaybackRewinding, Resume, PlaybackOff, StopsFrom(4)},
    {"RewindingStart", PlaybackRewinding, Start, PlaybackOff, StopsFrom(4)},
};

INSTANTIATE_TEST_SUITE_P(Table, NormalStatus, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(NormalStarting, LastsUntilTheThreadServesTheStart) {
  NormalRig rig;
  rig.Insert(Log({{1000, "a"}}));
  rig.owner.Hold();
  rig.trace.StartNow();
  EXPECT_TRUE(rig.Start());
  EXPECT_EQ(rig.Status(), PlaybackStarting);
  EXPECT_EQ(rig.Speed(), PlaybackSpeed1x);
  EXPECT_EQ(rig.Position(), 0U);
  EXPECT_THAT(rig.trace.Take(), ElementsAre("0 speed 1"));
  rig.owner.Release();
  EXPECT_THAT(rig.Settled(), ElementsAre("0 started", "0 speed 1"));
  EXPECT_EQ(rig.Status(), PlaybackPlaying);
}

// What each call answers in status 0 to 5.
struct Call {
  const char* name;
  std::function<bool(StatusRig&)> call;
  std::vector<bool> answers;
};

void PrintTo(const Call& call, std::ostream* out) { *out << call.name; }

class NormalCall : public testing::TestWithParam<Call> {};

TEST_P(NormalCall, ChangesNothingWhereItDoesNotBelong) {
  for (std::size_t i = 0; i < 6; ++i) {
    const auto status = static_cast<PlaybackStatusType>(i);
    SCOPED_TRACE(status);
    StatusRig rig;
    rig.Bring(status);
    const PlaybackSpeedType speed = rig.Speed();
    const std::uint32_t position = rig.Position();
    const bool answer = GetParam().call(rig);
    EXPECT_EQ(answer, GetParam().answers[i]);
    if (answer) continue;
    EXPECT_THAT(rig.TakeSteps(), IsEmpty());
    EXPECT_EQ(rig.Status(), status);
    EXPECT_EQ(rig.Speed(), speed);
    EXPECT_EQ(rig.Position(), position);
  }
}

const std::vector<bool> kNever(6, false);
const std::vector<bool> kNotWhilePlaying = {true, true, false, true, true, true};

const Call kCalls[] = {
    {"SetInputStream",
     [](StatusRig& rig) { return rig.playback.SetInputStream(rig.stream); },
     {true, false, false, false, false, false}},
    {"PausePlayback", Pause, {false, true, true, true, false, false}},
    {"ResumePlayback", Resume, kNotWhilePlaying},
    {"FastForward", FastForward, {false, false, true, true, false, true}},
    {"RewindPlayback", Rewind, {false, true, true, true, true, true}},
    {"StartPlayback", Start, kNotWhilePlaying},
    {"StartWithoutClients",
     [](StatusRig& rig) {
       return rig.playback.StartPlayback(nullptr, &rig.trace, rig.owner, L"Playback");
     },
     kNever},
    {"StartWithoutEngine",
     [](StatusRig& rig) {
       return rig.playback.StartPlayback(&rig.manager, nullptr, rig.owner, L"Playback");
     },
     kNever},
    {"SetOffset", [](StatusRig& rig) { return rig.playback.SetStartPlaybackOffsetScnds(60); },
     kNotWhilePlaying},
    {"SetOffsetBeyondTheLog",
     [](StatusRig& rig) { return rig.playback.SetStartPlaybackOffsetScnds(61); }, kNever},
    {"SetSpeed", [](StatusRig& rig) { return rig.SetStartSpeed(4); }, kNotWhilePlaying},
    {"SetSpeedTooHigh", [](StatusRig& rig) { return rig.SetStartSpeed(11); }, kNever},
    {"PlaybackNextMessage", [](StatusRig& rig) { return rig.playback.PlaybackNextMessage(); },
     kNever},
    {"PlaybackData", [](StatusRig& rig) { return rig.playback.PlaybackData(Memory::MemBlock()); },
     kNever},
    {"SetPeriodicEventDuration",
     [](StatusRig& rig) { return rig.playback.SetPeriodicEventDuration(1000); }, kNever},
};

INSTANTIATE_TEST_SUITE_P(Calls, NormalCall, testing::ValuesIn(kCalls),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(NormalPause, IsTrueAndSilentWhilePaused) {
  StatusRig rig;
  rig.Bring(PlaybackPaused);
  EXPECT_TRUE(rig.playback.PausePlayback());
  EXPECT_THAT(rig.TakeSteps(), IsEmpty());
}

TEST(NormalStatusSetter, IsSilent) {
  StatusRig rig;
  rig.Bring(PlaybackPlaying);
  for (int i = 1; i < 6; ++i) {
    rig.playback.SetPlaybackStatus(static_cast<PlaybackStatusType>(i));
    EXPECT_EQ(rig.Status(), i);
  }
  EXPECT_THAT(rig.TakeSteps(), IsEmpty());
}

TEST(NormalPlayback, BeginsOffWithItsDefaults) {
  const BinaryPlaybackNormalImpl playback;
  EXPECT_EQ(playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_TRUE(playback.IsPlaybackOff());
  EXPECT_EQ(playback.GetPlaybackSpeed(), PlaybackSpeedStopped);
  EXPECT_EQ(playback.GetPlaybackTimeScnds(), 0U);
  EXPECT_EQ(playback.GetRewindTimeScnds(), 5U);
  EXPECT_EQ(playback.GetStartPlaybackOffsetScnds(), 0U);
  EXPECT_EQ(playback.GetPlaybackLogLengthMs(), 0U);
  EXPECT_EQ(playback.GetPlaybackLogSize(), 0U);
  EXPECT_TRUE(playback.IsValidPlaybackOffset(0));
  EXPECT_FALSE(playback.IsValidPlaybackOffset(1));
}

TEST(NormalPlayback, TellsWhomItPlaysTo) {
  NormalRig rig;
  rig.Insert(Log({{1000, "a"}}));
  ASSERT_TRUE(rig.Start());
  rig.clock->Advance(1000);
  const std::uint64_t both =
      ClientIdSet::Bit(rig.gps.client_id) | ClientIdSet::Bit(rig.can.client_id);
  // speed, started, speed, speed, end
  EXPECT_THAT(rig.trace.ClientSets(), ElementsAre(0U, both, 0U, 0U, both));
}

TEST(NormalPlayback, NamesItsThread) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}}));
  EXPECT_THAT(rig.owner.Names(), ElementsAre(L"Playback"));
}

}  // namespace
}  // namespace kestrav::test
