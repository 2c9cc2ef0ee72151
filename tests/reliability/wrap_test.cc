#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <memory>

#include "reliability/player_rig.h"
#include "reliability/recorder_rig.h"
#include "support/parsed_log.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t kLastMs = 0xFFFFFFFF;
constexpr std::int64_t kPast32Bits = std::int64_t{1} << 32;

class RecordingAcrossTheWrap : public testing::TestWithParam<std::uint32_t> {};

// Wherever in it the clock wraps: at its start, at a tick, at a message, at its end.
TEST_P(RecordingAcrossTheWrap, IsComplete) {
  ManualClock clock(kLastMs - GetParam());
  RecorderRig rig(*clock.operator->());
  const ParsedLog log = ParseLog(ExpectCompleteRecording(rig, true));
  EXPECT_EQ(log.start_clock, kLastMs - GetParam());
  EXPECT_EQ(log.duration_ms, log.records.back().time_ms < log.start_clock ? 0u : 30'000u);
  ExpectCompleteRecording(rig, true);  // and the next one, behind it
}

INSTANTIATE_TEST_SUITE_P(Points, RecordingAcrossTheWrap,
                         testing::Values(0, 1, 999, 1'000, 2'499, 9'999, 10'000, 15'000, 27'499,
                                         27'500, 29'999, 30'000));

class PlaybackAcrossTheWrap : public testing::TestWithParam<PlaybackModeType> {};

TEST_P(PlaybackAcrossTheWrap, OfTheClockIsComplete) {
  const PlayedLog log(0x35, 0x81);
  for (const std::uint32_t before : {0u, 1u, 99u, 100u, 650u, 1'199u, 1'200u}) {
    SCOPED_TRACE(before);
    ManualClock clock(kLastMs - before);
    PlayerRig rig(*clock.operator->(), GetParam(), log);
    ExpectCompletePlayback(rig);
    ExpectCompletePlayback(rig);
  }
}

// Normal playback takes a wrapped time stamp for one from before the start, and ends there.
TEST_P(PlaybackAcrossTheWrap, OfTheTimeStampsEndsThereOrIsComplete) {
  const PlayedLog wrapping(0x35, 0x81, kLastMs - 650);
  constexpr std::uint32_t kBeforeTheWrap = (1U << 6) - 1;
  ManualClock clock;
  PlayerRig rig(*clock.operator->(), GetParam(), wrapping);
  const Played played = rig.Play();
  EXPECT_TRUE(played.started);
  EXPECT_EQ(rig.tally.wrong, 0u);
  EXPECT_EQ(rig.engine.GetPlaybackStatus(), PlaybackOff);
  const bool ends = GetParam() == PlaybackModeNormal;
  EXPECT_EQ(rig.tally.delivered, ends ? kBeforeTheWrap : kAllMessages);
  EXPECT_EQ(played.finished, !ends);
  EXPECT_EQ(rig.TakeNotifications().back(), NotifyPlaybackStopped);
}

// The indices of a log that begins just below the last one, which a whole number of rounds of the
// record keys separates from 0.
TEST_P(PlaybackAcrossTheWrap, OfTheIndicesIsComplete) {
  for (const std::uint8_t key : {std::uint8_t{0}, std::uint8_t{0x35}}) {
    SCOPED_TRACE(int{key});
    const std::uint32_t first = key == 0 ? kLastMs - 5 : 0xFFFFFF00;
    const PlayedLog log(key, key, 5'000, first);
    ManualClock clock;
    PlayerRig rig(*clock.operator->(), GetParam(), log);
    ExpectCompletePlayback(rig);
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, PlaybackAcrossTheWrap,
                         testing::Values(PlaybackModeNormal, PlaybackModePolling,
                                         PlaybackModePassThrough));

class RecordingByTheWallClock : public testing::TestWithParam<std::int64_t> {};

TEST_P(RecordingByTheWallClock, StoresItsLow32Bits) {
  ManualClock clock(1000, GetParam());
  RecorderRig rig(*clock.operator->());
  const ParsedLog log = ParseLog(ExpectCompleteRecording(rig, false));
  EXPECT_EQ(log.start_time, static_cast<std::uint32_t>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Seconds, RecordingByTheWallClock,
                         testing::Values(1, 0x7FFFFFFF, 0x80000000, kPast32Bits - 1, kPast32Bits,
                                         kPast32Bits + 12'345, 250'000'000'000));

class RecordingBeforeTheWallClock : public testing::TestWithParam<std::int64_t> {};

TEST_P(RecordingBeforeTheWallClock, DoesNotStartUntilItsFirstSecond) {
  ManualClock clock(1000, GetParam());
  RecorderRig rig(*clock.operator->());
  const auto stream = std::make_shared<FixedOutputStream>(1 << 14);
  ASSERT_TRUE(rig.Prepare(true));
  ASSERT_TRUE(rig.engine.SetLoggingOutputStream(stream));
  EXPECT_TRUE(rig.engine.StartLogging());
  clock->Settle();
  EXPECT_FALSE(rig.engine.IsLogging());
  EXPECT_TRUE(stream->Content().empty());
  clock->Advance(static_cast<std::uint32_t>(1 - GetParam()) * 1000);
  const ParsedLog log = ParseLog(ExpectCompleteRecording(rig, true));
  EXPECT_EQ(log.start_time, 1u);
}

INSTANTIATE_TEST_SUITE_P(Seconds, RecordingBeforeTheWallClock, testing::Values(0, -1, -40));

}  // namespace
}  // namespace kestrav::test
