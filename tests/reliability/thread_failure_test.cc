#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "reliability/fault_loop.h"
#include "reliability/player_rig.h"
#include "reliability/recorder_rig.h"
#include "support/failing_threads.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Records with start `at` of a thread failing; whether one failed. Without a timer thread nothing
// but the repeated dictionary is lacking.
bool RecordShortOfThreads(std::uint32_t at, Extent extent) {
  ManualClock clock;
  RecorderRig rig(*clock.operator->());
  const auto stream = std::make_shared<FixedOutputStream>(1 << 14);
  Recorded recorded;
  std::uint32_t failed = 0;
  {
    const FailingThreads threads(at, extent);
    recorded = rig.Record(stream, true);
    failed = threads.Failed();
  }
  EXPECT_TRUE(recorded.ran || extent == Extent::kFromThenOn);
  EXPECT_EQ(recorded.stopped, recorded.ran);
  EXPECT_EQ(recorded.accepted, recorded.ran ? kAllMessages : 0);
  if (recorded.ran) {
    EXPECT_THAT(rig.TakeNotifications(), ElementsAre(0, 1, 9));
    EXPECT_EQ(MessagesIn(stream->Content()), kAllMessages);
  } else {
    EXPECT_THAT(rig.TakeNotifications(), IsEmpty());
    EXPECT_TRUE(stream->Content().empty());
  }
  ExpectCompleteRecording(rig, true);
  return failed > 0;
}

TEST(RecordingShortOfThreads, RunsOrIsRefusedAndRecordsAgain) {
  const Watchdog watchdog(std::chrono::seconds(120), "recording short of threads");
  const std::uint32_t points = FailEach("thread", RecordShortOfThreads);
  std::printf("[figure] thread failure, recording: %u fault points\n", points);
}

bool PlayShortOfThreads(std::uint32_t at, Extent extent) {
  static const PlayedLog log(0x35, 0x81);
  ManualClock clock;
  PlayerRig rig(*clock.operator->(), PlaybackModeNormal, log);
  Played played;
  std::uint32_t failed = 0;
  {
    const FailingThreads threads(at, extent);
    played = rig.Play();
    failed = threads.Failed();
  }
  EXPECT_TRUE(played.started || extent == Extent::kFromThenOn);
  EXPECT_EQ(played.finished, played.started);
  EXPECT_EQ(rig.tally.delivered, played.started ? kAllMessages : 0);
  ExpectCompletePlayback(rig);
  return failed > 0;
}

TEST(PlaybackShortOfThreads, RunsOrIsRefusedAndPlaysAgain) {
  const Watchdog watchdog(std::chrono::seconds(120), "playback short of threads");
  const std::uint32_t points = FailEach("thread", PlayShortOfThreads);
  std::printf("[figure] thread failure, playback: %u fault points\n", points);
}

}  // namespace
}  // namespace kestrav::test
