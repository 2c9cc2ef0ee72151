#include <utility>

#include "normal_rig.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;

LogBuilder EverySecond() {
  return Log({{1000, "a"}, {2000, "b"}, {3000, "c"}, {4000, "d"}, {5000, "e"}});
}

// Plays the log to its end and longer; a client makes the calls when it is given `payload`.
Entries PlayWithCallsAt(NormalRig& rig, const std::string& payload,
                        const std::function<void()>& calls, const LogBuilder& log) {
  rig.Play(log);
  int times = 0;
  rig.react = [&](const std::string& delivered) {
    if (delivered == payload && times++ == 0) calls();
    return true;
  };
  Entries seen = rig.Run(10000);
  rig.react = nullptr;
  return seen;
}

TEST(NormalCallback, MayAskWhereThePlaybackIs) {
  NormalRig rig;
  std::vector<std::uint32_t> answers;
  PlayWithCallsAt(
      rig, "b",
      [&] {
        answers = {static_cast<std::uint32_t>(rig.Status()),
                   static_cast<std::uint32_t>(rig.Speed()), rig.Position(),
                   rig.playback.GetPlaybackLogLengthMs()};
      },
      EverySecond());
  EXPECT_THAT(answers, ElementsAre(PlaybackPlaying, PlaybackSpeed1x, 2U, 60000U));
}

TEST(NormalCallback, MayStopThePlaybackWithoutWaiting) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "b", [&] { rig.playback.StopPlayback(false); }, EverySecond()),
              ElementsAre("1000 a", "2000 b", "2000 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  rig.Play(EverySecond());
}

TEST(NormalCallback, MayPauseThePlaybackAndCannotResumeItWhilePlaying) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "b", [&] { EXPECT_TRUE(rig.playback.PausePlayback()); }, EverySecond()),
              ElementsAre("1000 a", "2000 b", "2000 speed 0", "2000 paused"));
  rig.react = [&](const std::string&) {
    EXPECT_FALSE(rig.playback.ResumePlayback());
    return true;
  };
  EXPECT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("10000 resumed", "10000 speed 1", "10000 c"));
}

TEST(NormalCallback, CannotSetTheStartSpeedWhilePlaying) {
  NormalRig rig;
  PlayWithCallsAt(
      rig, "b", [&] { EXPECT_FALSE(rig.SetStartSpeed(4)); }, EverySecond());
  EXPECT_EQ(rig.Status(), PlaybackFinished);
}

TEST(NormalCallback, MayGoFaster) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "b", [&] { EXPECT_TRUE(rig.playback.FastForward()); }, EverySecond()),
              ElementsAre("1000 a", "2000 b", "2000 speed 2", "3000 c", "3500 d", "4000 speed 0",
                          "4000 e", "4000 end"));
}

TEST(NormalCallback, MayRewind) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "d",
                  [&] {
                    rig.playback.SetRewindTimeScnds(2);
                    EXPECT_TRUE(rig.playback.RewindPlayback());
                  },
                  EverySecond()),
              ElementsAre("1000 a", "2000 b", "3000 c", "4000 d", "4000 speed 0", "4000 rewinds",
                          "4000 speed 1", "4000 rewound", "4000 b", "5000 c", "6000 d",
                          "7000 speed 0", "7000 e", "7000 end"));
}

// A start or a resume that delivers the last record at once is still being served.

TEST(NormalCallback, MayStartAnewWhenAResumeHasJustReachedTheEnd) {
  NormalRig rig;
  rig.Play(Log({{1000, "a"}}));
  ASSERT_TRUE(rig.playback.PausePlayback());
  ASSERT_THAT(rig.Settled(), ElementsAre("0 speed 0", "0 paused"));
  bool once = true;
  rig.react = [&](const std::string&) { return !std::exchange(once, false) || rig.Start(); };
  ASSERT_TRUE(rig.playback.ResumePlayback());
  EXPECT_THAT(rig.Settled(), ElementsAre("0 resumed", "0 speed 1", "0 speed 0", "0 a", "0 speed 1",
                                         "0 started", "0 speed 1", "0 end"));
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 speed 0", "1000 a", "1000 end"));
}

TEST(NormalCallback, MayStartAnewWhenAStartAtAnOffsetHasJustReachedTheEnd) {
  NormalRig rig;
  rig.Insert(Log({{2000, "a"}}));
  ASSERT_TRUE(rig.playback.SetStartPlaybackOffsetScnds(2));
  int deliveries = 0;
  rig.react = [&](const std::string&) { return ++deliveries == 3 || rig.Start(); };
  ASSERT_TRUE(rig.Start());
  rig.Settled();
  EXPECT_EQ(deliveries, 3);
  EXPECT_EQ(rig.Status(), PlaybackFinished);
}

// Several events that are set at once are served in the order quit, start, pause, rewind, end.

TEST(NormalEvents, ServeTheQuitFirst) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "b",
                  [&] {
                    EXPECT_TRUE(rig.playback.PausePlayback());
                    EXPECT_TRUE(rig.playback.RewindPlayback());
                    EXPECT_TRUE(rig.Start());
                    rig.playback.StopPlayback(false);
                  },
                  EverySecond()),
              ElementsAre("1000 a", "2000 b", "2000 speed 0", "2000 rewinds", "2000 stopped"));
}

TEST(NormalEvents, ServeTheStartBeforeThePauseAndTheRewind) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "b",
                  [&] {
                    EXPECT_TRUE(rig.playback.PausePlayback());
                    EXPECT_TRUE(rig.playback.RewindPlayback());
                    EXPECT_TRUE(rig.Start());
                  },
                  EverySecond()),
              ElementsAre("1000 a", "2000 b", "2000 speed 0", "2000 rewinds", "2000 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  rig.Play(EverySecond());
  EXPECT_THAT(rig.Run(1000), ElementsAre("1000 a"));
}

TEST(NormalEvents, ServeThePauseBeforeTheRewind) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "c",
                  [&] {
                    EXPECT_TRUE(rig.playback.PausePlayback());
                    EXPECT_TRUE(rig.playback.RewindPlayback());
                  },
                  EverySecond()),
              ElementsAre("1000 a", "2000 b", "3000 c", "3000 speed 0", "3000 rewinds",
                          "3000 speed 0", "3000 paused", "3000 speed 1", "3000 rewound", "3000 a",
                          "4000 b", "5000 c", "6000 d", "7000 speed 0", "7000 e", "7000 end"));
}

TEST(NormalEvents, ServeTheRewindBeforeTheEnd) {
  NormalRig rig;
  EXPECT_THAT(
      PlayWithCallsAt(
          rig, "e", [&] { EXPECT_TRUE(rig.playback.RewindPlayback()); }, EverySecond()),
      ElementsAre("1000 a", "2000 b", "3000 c", "4000 d", "5000 speed 0", "5000 e", "5000 speed 0",
                  "5000 rewinds", "5000 speed 1", "5000 rewound", "5000 a", "5000 end", "6000 b",
                  "7000 c", "8000 d", "9000 speed 0", "9000 e", "9000 end"));
}

TEST(NormalEvents, ServeTheStartBeforeTheEnd) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "e", [&] { EXPECT_TRUE(rig.Start()); }, EverySecond()),
              ElementsAre("1000 a", "2000 b", "3000 c", "4000 d", "5000 speed 0", "5000 e",
                          "5000 speed 1", "5000 started", "5000 speed 1", "5000 end", "6000 a",
                          "7000 b", "8000 c", "9000 d", "10000 speed 0", "10000 e", "10000 end"));
}

TEST(NormalEvents, ServeThePauseBeforeTheEnd) {
  NormalRig rig;
  EXPECT_THAT(
      PlayWithCallsAt(
          rig, "a", [&] { EXPECT_TRUE(rig.playback.PausePlayback()); },
          Log({{1000, "a"}, {1000, "b"}})),
      ElementsAre("1000 a", "1000 speed 0", "1000 b", "1000 speed 0", "1000 paused", "1000 end"));
  EXPECT_EQ(rig.Status(), PlaybackPaused);
}

// A pause that was asked for in a burst waits for the burst.
TEST(NormalEvents, AreServedAfterTheBurst) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "a", [&] { EXPECT_TRUE(rig.playback.PausePlayback()); },
                  Log({{1000, "a"}, {1000, "b"}, {1000, "c"}, {2000, "d"}})),
              ElementsAre("1000 a", "1000 b", "1000 c", "1000 speed 0", "1000 paused"));
}

TEST(NormalEvents, SetTwiceAreServedOnce) {
  NormalRig rig;
  EXPECT_THAT(PlayWithCallsAt(
                  rig, "a",
                  [&] {
                    for (int i = 0; i < 5; ++i) EXPECT_TRUE(rig.playback.PausePlayback());
                  },
                  EverySecond()),
              ElementsAre("1000 a", "1000 speed 0", "1000 paused"));
}

TEST(NormalObserver, MayCallBackWhileItIsTold) {
  NormalRig rig;
  std::vector<int> statuses;
  rig.trace.on_notification = [&](const NotificationInfo& info) {
    statuses.push_back(rig.Status());
    if (info.id == NotifyPlaybackPaused) {
      EXPECT_TRUE(rig.playback.ResumePlayback());
    }
    if (info.id == NotifyEndOfLog) rig.playback.StopPlayback(false);
  };
  rig.Insert(Log({{1000, "a"}, {2000, "b"}}));
  rig.trace.StartNow();
  ASSERT_TRUE(rig.Start());
  rig.Settled();
  EXPECT_TRUE(rig.playback.PausePlayback());
  // The resume delivers what is pending at once.
  EXPECT_THAT(rig.Run(1000), ElementsAre("0 speed 0", "0 paused", "0 resumed", "0 speed 1", "0 a",
                                         "1000 speed 0", "1000 b", "1000 end", "1000 stopped"));
  EXPECT_EQ(rig.Status(), PlaybackOff);
  EXPECT_THAT(statuses, ElementsAre(0, 1, 2, 2, 3, 2, 2, 5, 5, 5));
}

}  // namespace
}  // namespace kestrav::test
