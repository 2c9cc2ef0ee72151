#include "kestrav/playback/polling_playback.h"
#include "normal_rig.h"
#include "pass_through_rig.h"

namespace kestrav::test {
namespace {

using testing::IsEmpty;
using testing::Not;

struct Keys {
  std::uint8_t header;
  std::uint8_t data;
};

constexpr std::size_t kRecords = 300;
constexpr std::uint16_t kIds[] = {kRecordedGps, kRecordedCan, kRecordedNobody, 63, 64, 1000};

// A dictionary and records of clients that are played and of others, in order of time.
LogBuilder Drive(Keys keys) {
  LogBuilder log(keys.header, keys.data);
  log.StartClock(kLogStart).Duration(60000).Selection(0x9000);
  log.Dictionary({{"CAN", kRecordedCan}, {"GPS", kRecordedGps}, {"Other", kRecordedNobody}},
                 kLogStart);
  std::uint32_t time = kLogStart;
  for (std::size_t i = 1; i < kRecords; ++i) {
    time += static_cast<std::uint32_t>(i * i % 41);
    log.Record(kIds[i * 7 % std::size(kIds)], static_cast<std::uint16_t>(i), time,
               std::string(i % 37 + 1, static_cast<char>(i)));
  }
  return log;
}

// What both clients were given.
struct Deliveries {
  std::vector<Delivery> gps;
  std::vector<Delivery> can;

  friend bool operator==(const Deliveries&, const Deliveries&) = default;
};

Deliveries PlayPassThrough(const LogBuilder& log) {
  PassThroughRig rig;
  rig.Play(log, kRecords);
  return {rig.gps.Deliveries(), rig.can.Deliveries()};
}

Deliveries PlayNormal(const LogBuilder& log, int speed) {
  NormalRig rig;
  rig.Insert(log);
  EXPECT_TRUE(rig.SetStartSpeed(speed));
  EXPECT_TRUE(rig.Start());
  rig.Run(60000);
  EXPECT_EQ(rig.Status(), PlaybackFinished);
  return {rig.gps.Deliveries(), rig.can.Deliveries()};
}

Deliveries PlayPolling(const LogBuilder& log) {
  NormalRig rig;
  rig.Select();
  BinaryPlaybackPollingImpl playback;
  EXPECT_TRUE(playback.SetInputStream(std::make_shared<BytesInputStream>(log.Build())));
  EXPECT_TRUE(playback.StartPlayback(&rig.manager, &rig.trace, rig.owner, L"Playback"));
  while (playback.GetPlaybackStatus() == PlaybackPlaying) playback.PlaybackNextMessage();
  EXPECT_EQ(playback.GetPlaybackStatus(), PlaybackFinished);
  return {rig.gps.Deliveries(), rig.can.Deliveries()};
}

class Modes : public testing::TestWithParam<Keys> {};

TEST_P(Modes, GiveTheSameDeliveriesForAHealthyLog) {
  const LogBuilder log = Drive(GetParam());
  const Deliveries expected = PlayPolling(log);
  ASSERT_THAT(expected.gps, Not(IsEmpty()));
  ASSERT_THAT(expected.can, Not(IsEmpty()));
  EXPECT_TRUE(PlayNormal(log, 1) == expected);
  EXPECT_TRUE(PlayNormal(log, 10) == expected);
  EXPECT_TRUE(PlayNormal(log, 0) == expected);
  EXPECT_TRUE(PlayPassThrough(log) == expected);
}

INSTANTIATE_TEST_SUITE_P(Scrambling, Modes,
                         testing::Values(Keys{0, 0}, Keys{0xFE, 0x5A}, Keys{0x11, 0},
                                         Keys{0, 0x22}));

}  // namespace
}  // namespace kestrav::test
