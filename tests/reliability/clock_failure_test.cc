#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "reliability/fault_loop.h"
#include "reliability/player_rig.h"
#include "reliability/recorder_rig.h"
#include "support/faulty_clock.h"
#include "support/parsed_log.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Records with reading `at` of the clocks failing; whether one failed.
bool RecordWithAFailingClock(std::uint32_t at, Extent extent) {
  FaultyClock clock;
  RecorderRig rig(*clock);
  const auto stream = std::make_shared<FixedOutputStream>(1 << 14);
  clock.readings.Arm(at, extent);
  const Recorded recorded = rig.Record(stream, true);
  clock.readings.Disarm();

  EXPECT_TRUE(recorded.prepared);
  EXPECT_TRUE(recorded.ran || extent == Extent::kFromThenOn);
  EXPECT_EQ(recorded.stopped, recorded.ran);
  EXPECT_EQ(rig.engine.GetLoggingStatus(), LoggingOff);
  const Bytes log = stream->Content();
  if (recorded.ran) {
    // A message without a time stamp is refused; what was accepted is there.
    EXPECT_EQ(MessagesIn(log), recorded.accepted);
    EXPECT_EQ(ParseLog(log).stream_length, log.size());
    EXPECT_THAT(rig.TakeNotifications(), ElementsAre(0, 1, 9));
  } else {
    EXPECT_EQ(recorded.accepted, 0u);
    EXPECT_LE(log.size(), 128u);
    EXPECT_THAT(rig.TakeNotifications(), IsEmpty());
  }
  const std::uint32_t failed = clock.readings.Failed();
  ExpectCompleteRecording(rig, true);
  return failed > 0;
}

TEST(RecordingWithAFailingClock, RefusesWhatCannotBeStampedAndKeepsTheRest) {
  const Watchdog watchdog(std::chrono::seconds(120), "recording with a failing clock");
  const std::uint32_t points = FailEach("reading", RecordWithAFailingClock);
  std::printf("[figure] clock failure, recording: %u fault points\n", points);
}

const PlayedLog& ScrambledLog() {
  static const PlayedLog log(0x35, 0x81);
  return log;
}

// Plays with reading `at` of the clocks failing; whether one failed.
bool PlayWithAFailingClock(std::uint32_t at, Extent extent, Calls calls) {
  FaultyClock clock;
  PlayerRig rig(*clock, PlaybackModeNormal, ScrambledLog());
  clock.readings.Arm(at, extent);
  const Played played = rig.Play(calls);
  clock.readings.Disarm();

  EXPECT_TRUE(played.prepared);
  EXPECT_TRUE(played.started || extent == Extent::kFromThenOn);
  EXPECT_EQ(rig.engine.GetPlaybackStatus(), PlaybackOff);
  EXPECT_EQ(rig.engine.GetPlaybackSpeed(), PlaybackSpeedStopped);
  EXPECT_EQ(rig.tally.wrong, 0u);
  // Once it fails the playback ends; nothing is left out before.
  const std::uint32_t delivered = rig.tally.delivered;
  EXPECT_EQ(delivered & (delivered + 1), 0u) << delivered;
  EXPECT_TRUE(!played.finished || delivered == kAllMessages) << delivered;
  EXPECT_TRUE(played.finished || clock.readings.Failed() > 0);
  const std::uint32_t failed = clock.readings.Failed();
  ExpectCompletePlayback(rig);
  return failed > 0;
}

class NormalPlaybackWithAFailingClock : public testing::TestWithParam<Calls> {};

TEST_P(NormalPlaybackWithAFailingClock, EndsWhereItCannotKeepTimeAndPlaysAgain) {
  const Watchdog watchdog(std::chrono::seconds(120), "playback with a failing clock");
  const std::uint32_t points = FailEach("reading", [](std::uint32_t at, Extent extent) {
    return PlayWithAFailingClock(at, extent, GetParam());
  });
  std::printf("[figure] clock failure, normal playback%s: %u fault points\n",
              GetParam() == Calls::kNone ? "" : " with pause, speeds and rewind", points);
}

INSTANTIATE_TEST_SUITE_P(Calls, NormalPlaybackWithAFailingClock,
                         testing::Values(Calls::kNone, Calls::kMany));

class PlaybackWithoutAClock : public testing::TestWithParam<PlaybackModeType> {};

TEST_P(PlaybackWithoutAClock, NeedsNone) {
  FaultyClock clock;
  PlayerRig rig(*clock, GetParam(), ScrambledLog());
  clock.readings.Arm(0, Extent::kFromThenOn);
  ExpectCompletePlayback(rig);
}

INSTANTIATE_TEST_SUITE_P(Modes, PlaybackWithoutAClock,
                         testing::Values(PlaybackModePolling, PlaybackModePassThrough));

}  // namespace
}  // namespace kestrav::test
