#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>

#include "reliability/fault_loop.h"
#include "reliability/player_rig.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

struct Case {
  const char* name;
  PlaybackModeType mode;
  bool scrambled;
};

class PlaybackShortOfMemory : public testing::TestWithParam<Case> {
 protected:
  // Plays with allocation `at` failing; whether one failed.
  bool Run(std::uint32_t at, Extent extent) {
    ManualClock clock;
    PlayerRig rig(*clock.operator->(), GetParam().mode, log_);
    Played played;
    std::uint32_t failed = 0;
    {
      const FailingMemory memory(at, extent);
      played = rig.Play();
      failed = memory.Failed();
    }
    if (extent == Extent::kOnce) {
      EXPECT_TRUE(played.started);
    }
    ExpectDocumented(rig, played, failed);
    ExpectCompletePlayback(rig);
    return failed > 0;
  }

  void ExpectDocumented(PlayerRig& rig, const Played& played, std::uint32_t failed) const {
    EXPECT_EQ(rig.engine.GetPlaybackStatus(), PlaybackOff);
    EXPECT_EQ(rig.tally.wrong, 0u);
    const std::vector<int> ids = rig.TakeNotifications();
    if (!ids.empty()) {
      EXPECT_EQ(ids.back(), NotifyPlaybackStopped);
    }
    const std::uint32_t delivered = rig.tally.delivered;
    if (failed == 0) {
      EXPECT_TRUE(played.finished);
      EXPECT_EQ(delivered, kAllMessages);
    }
    for (std::uint32_t n = 0; n < kMessages; ++n) ExpectReasonToLack(n, delivered, played);
  }

  // A message is lacking because it needed memory, because the playback ended before it, or because
  // its client could not be offered.
  void ExpectReasonToLack(std::uint32_t n, std::uint32_t delivered, const Played& played) const {
    constexpr std::uint32_t kEven = 0x55555555;
    const std::uint32_t of_its_client = n % 2 == 0 ? kEven : ~kEven;
    const bool lacks = (delivered >> n & 1) == 0;
    const bool client_left_out = (delivered & of_its_client) == 0;
    if (!lacks || IsLarge(n) || client_left_out) return;
    EXPECT_FALSE(played.finished) << n;
    EXPECT_EQ(delivered >> n, 0u) << n;
  }

  const PlayedLog log_{static_cast<std::uint8_t>(GetParam().scrambled ? 0x35 : 0),
                       static_cast<std::uint8_t>(GetParam().scrambled ? 0x81 : 0)};
};

TEST_P(PlaybackShortOfMemory, LacksOnlyWhatNeededItAndPlaysAgain) {
  const Watchdog watchdog(std::chrono::seconds(120), "playback short of memory");
  const std::uint32_t points =
      FailEachAllocation([this](std::uint32_t at, Extent extent) { return Run(at, extent); });
  std::printf("[figure] allocation failure, %s playback, %s: %u fault points, 0 leaks\n",
              GetParam().name, GetParam().scrambled ? "scrambled" : "plain", points);
}

INSTANTIATE_TEST_SUITE_P(Modes, PlaybackShortOfMemory,
                         testing::Values(Case{"normal", PlaybackModeNormal, false},
                                         Case{"normal", PlaybackModeNormal, true},
                                         Case{"polling", PlaybackModePolling, false},
                                         Case{"polling", PlaybackModePolling, true},
                                         Case{"pass-through", PlaybackModePassThrough, true}));

}  // namespace
}  // namespace kestrav::test
