#ifndef KESTRAV_TESTS_UNIT_ENGINE_ENGINE_FIXTURE_H_
#define KESTRAV_TESTS_UNIT_ENGINE_ENGINE_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "support/log_builder.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/notification_log.h"
#include "support/parsed_log.h"
#include "support/recording_client.h"
#include "support/streams.h"
#include "support/thread_modules.h"

namespace kestrav::test {

// An engine named "Eng" with the clients "GPS" (21) and "CAN" (22) besides its own, and an observer
// of all notifications, on a clock that stands at 1000 ms.
class EngineTest : public ::testing::Test {
 protected:
  static constexpr std::uint16_t kGps = 21;
  static constexpr std::uint16_t kCan = 22;

  EngineTest() {
    EXPECT_TRUE(engine_.Init(&threads_, L"Eng"));
    EXPECT_TRUE(engine_.RegisterClient(&gps_));
    EXPECT_TRUE(engine_.RegisterClient(&can_));
    EXPECT_NE(engine_.notifier.Connect([this](const NotificationInfo& info) {
      notifications_.SendNotification(info);
      if (on_notification_) on_notification_(info);
    }),
              0u);
  }

  // Selects GPS, hands over a new stream and records.
  void Record() {
    EXPECT_TRUE(engine_.EnableEncryption(false));
    EXPECT_TRUE(engine_.SelectForLogging(L"GPS"));
    EXPECT_TRUE(engine_.SetLoggingOutputStream(stream_));
    EXPECT_TRUE(engine_.StartLogging());
    clock_->Settle();
    EXPECT_EQ(engine_.GetLoggingStatus(), LoggingRunning);
  }
  // A log in which GPS was client 3: a record each of `times`, the first dictionary at 1000 ms.
  static Bytes LogWith(const std::vector<std::uint32_t>& times,
                       std::uint32_t duration_ms = 60'000) {
    LogBuilder log;
    log.StartClock(1000).Duration(duration_ms).Selection(0x1008);
    log.Dictionary({{"GPS", 3}, {"Info Client", 12}}, 1000);
    for (const std::uint32_t time : times) log.Record(3, 7, time, std::to_string(time));
    return log.Build();
  }
  // Chooses the mode, opens such a log and selects GPS.
  void Open(PlaybackModeType mode, const std::vector<std::uint32_t>& times = {1000, 61'000}) {
    EXPECT_TRUE(engine_.SetPlaybackMode(mode));
    EXPECT_TRUE(engine_.SetPlaybackInputStream(std::make_shared<BytesInputStream>(LogWith(times))));
    unsigned int length_ms = 0;
    unsigned int size = 0;
    std::vector<String> clients;
    EXPECT_TRUE(engine_.GetPlaybackAttributes(length_ms, size, clients));
    EXPECT_TRUE(engine_.SelectForPlayback(L"GPS"));
  }
  void Play(PlaybackModeType mode) {
    Open(mode);
    EXPECT_TRUE(engine_.StartPlayback());
    clock_->Settle();
    EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackPlaying);
  }

  // Id and value of the time notifications since the last call.
  std::vector<std::pair<int, std::uint32_t>> TakeTimes() {
    std::vector<std::pair<int, std::uint32_t>> times;
    const std::vector<NotificationInfo> all = notifications_.All();
    for (const NotificationInfo& info : all) {
      if (info.id == NotifyRecordingTime || info.id == NotifyPlaybackTime) {
        times.emplace_back(static_cast<int>(info.id), info.value);
      }
    }
    notifications_.TakeIds();
    return times;
  }

  ManualClock clock_;
  ThreadsUnderTest threads_;
  NotificationLog notifications_;
  std::function<void(const NotificationInfo&)> on_notification_;  // set before it is wanted
  RecordingClient gps_{L"GPS"};
  RecordingClient can_{L"CAN"};
  std::shared_ptr<BytesOutputStream> stream_ = std::make_shared<BytesOutputStream>();
  KestravImpl engine_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_ENGINE_ENGINE_FIXTURE_H_
