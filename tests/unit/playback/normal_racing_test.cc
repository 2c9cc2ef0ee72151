#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "normal_rig.h"
#include "support/notification_log.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

// Callers on several threads and the real clock: nothing is known about the order, but nothing
// hangs, every thread comes to its end, and the playback is as good as new afterwards.
class NormalRacing : public testing::Test {
 protected:
  static constexpr int kCallers = 4;
  static constexpr std::chrono::milliseconds kFor{400};

  NormalRacing() {
    for (RecordingClient* client : {&can_, &gps_}) {
      EXPECT_TRUE(manager_.RegisterClient(client));
      client->on_delivery = [this](const ILogMessage& message) {
        ++deliveries_;
        if (message.GetDataID() == 2) playback_.PausePlayback();
        if (message.GetDataID() == 3) playback_.FastForward();
        return true;
      };
    }
    std::vector<String> offered;
    EXPECT_TRUE(manager_.UpdatePlaybackClientList(
        offered, {{L"CAN", kRecordedCan}, {L"GPS", kRecordedGps}}, 0));
    for (const String& string_id : offered) EXPECT_TRUE(manager_.SelectForPlayback(string_id));
    LogBuilder log;
    log.StartClock(kLogStart).Duration(4000);
    for (std::uint32_t i = 0; i < 2000; ++i) {
      log.Record(i % 3 == 0 ? kRecordedCan : kRecordedGps,
                 i % 50 == 7   ? 2
                 : i % 70 == 8 ? 3
                               : 1,
                 kLogStart + 2 * i, "record");
    }
    log_ = log.Build();
  }

  bool Start() { return playback_.StartPlayback(&manager_, &notifications_, owner_, L"Playback"); }
  bool Insert() { return playback_.SetInputStream(std::make_shared<BytesInputStream>(log_)); }

  void CallAtRandom(std::uint32_t seed) {
    std::minstd_rand engine(seed);
    const auto random = [&engine] { return static_cast<std::uint32_t>(engine() >> 4); };
    while (!over_) {
      switch (random() % 16) {
        case 0:
          Insert();
          break;
        case 1:
          Start();
          break;
        case 2:
          playback_.PausePlayback();
          break;
        case 3:
          playback_.ResumePlayback();
          break;
        case 4:
          playback_.FastForward();
          break;
        case 5:
          playback_.RewindPlayback();
          break;
        case 6:
          playback_.SetStartPlaybackSpeed(static_cast<PlaybackSpeedType>(random() % 12));
          break;
        case 7:
          playback_.SetStartPlaybackOffsetScnds(random() % 5);
          break;
        case 8:
          playback_.SetRewindTimeScnds(random() % 3);
          break;
        case 9:
          if (random() % 8 == 0) playback_.StopPlayback(false);
          break;
        case 10:
          if (random() % 8 == 0) playback_.StopPlayback(true);
          break;
        case 11:
          playback_.GetPlaybackTimeScnds();
          break;
        case 12:
          playback_.GetPlaybackSpeed();
          break;
        case 13:
          playback_.IsValidPlaybackOffset(3);
          break;
        case 14:
          playback_.GetPlaybackLogSize();
          break;
        default:
          std::this_thread::yield();
          break;
      }
    }
  }

  RecordingClient gps_{L"GPS"};
  RecordingClient can_{L"CAN"};
  ClientManager manager_;
  NotificationLog notifications_;
  Thread::ThreadModule owner_;
  Bytes log_;
  std::atomic<std::uint64_t> deliveries_{0};
  std::atomic<bool> over_{false};
  BinaryPlaybackNormalImpl playback_;
};

TEST_F(NormalRacing, CallersLeaveAPlaybackThatStopsAndPlaysAgain) {
  const Watchdog watchdog(std::chrono::seconds(60), "normal playback under racing callers");
  std::vector<std::thread> callers;
  for (int i = 0; i < kCallers; ++i) {
    callers.emplace_back([this, i] { CallAtRandom(static_cast<std::uint32_t>(i) + 1); });
  }
  const auto until = std::chrono::steady_clock::now() + kFor;
  while (std::chrono::steady_clock::now() < until || deliveries_ == 0) notifications_.TakeIds();
  over_ = true;
  for (std::thread& caller : callers) caller.join();

  playback_.StopPlayback(true);
  EXPECT_EQ(playback_.GetPlaybackStatus(), PlaybackOff);
  EXPECT_EQ(playback_.GetPlaybackSpeed(), PlaybackSpeedStopped);

  // Unpaced, so that the end comes at once; a pause by a client is resumed.
  gps_.on_delivery = can_.on_delivery = nullptr;
  deliveries_ = 0;
  notifications_.TakeIds();
  ASSERT_TRUE(Insert());
  ASSERT_TRUE(playback_.SetStartPlaybackSpeed(PlaybackSpeedStopped));
  const std::size_t before = gps_.Deliveries().size() + can_.Deliveries().size();
  ASSERT_TRUE(Start());
  while (playback_.GetPlaybackStatus() != PlaybackFinished) std::this_thread::yield();
  playback_.StopPlayback(true);
  EXPECT_EQ(gps_.Deliveries().size() + can_.Deliveries().size() - before, 2000U);
}

TEST_F(NormalRacing, DestructionEndsWhateverRuns) {
  const Watchdog watchdog(std::chrono::seconds(60), "destruction of a running playback");
  for (int i = 0; i < 200; ++i) {
    BinaryPlaybackNormalImpl playback;
    ASSERT_TRUE(playback.SetInputStream(std::make_shared<BytesInputStream>(log_)));
    ASSERT_TRUE(playback.StartPlayback(&manager_, &notifications_, owner_, L"Playback"));
    if (i % 2 == 0) playback.PausePlayback();
    if (i % 3 == 0) playback.RewindPlayback();
    if (i % 5 == 0) playback.StopPlayback(false);
  }
}

}  // namespace
}  // namespace kestrav::test
