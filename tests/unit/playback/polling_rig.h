#ifndef KESTRAV_TESTS_UNIT_PLAYBACK_POLLING_RIG_H_
#define KESTRAV_TESTS_UNIT_PLAYBACK_POLLING_RIG_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/playback/polling_playback.h"
#include "support/log_builder.h"
#include "support/notification_log.h"
#include "support/recording_client.h"
#include "support/streams.h"

namespace kestrav::test {

// The ids under which the logs of these tests were recorded.
inline constexpr std::uint16_t kGps = 21;
inline constexpr std::uint16_t kCan = 22;

// A polling playback with all that it needs. The clients register in another order than they were
// recorded in, so the ids that they have now are exchanged.
struct PollingRig {
  PollingRig() {
    EXPECT_TRUE(manager.RegisterClient(&can));
    EXPECT_TRUE(manager.RegisterClient(&gps));
  }

  // Offers the clients of a log and selects them all.
  void Select(const Dictionary& recorded = {{L"CAN", kCan}, {L"GPS", kGps}}) {
    std::vector<String> offered;
    EXPECT_TRUE(manager.UpdatePlaybackClientList(offered, recorded, 0));
    for (const String& string_id : offered) EXPECT_TRUE(manager.SelectForPlayback(string_id));
  }

  bool Insert(const Bytes& log) {
    stream = std::make_shared<BytesInputStream>(log);
    return playback.SetInputStream(stream);
  }

  bool Start() { return playback.StartPlayback(&manager, &notifications, owner, L"Playback"); }

  // Selects the recorded clients, inserts the log, starts, and forgets the notification of it.
  void Play(const LogBuilder& log) {
    Select();
    ASSERT_TRUE(Insert(log.Build()));
    ASSERT_TRUE(Start());
    ASSERT_EQ(notifications.TakeIds(), std::vector<int>{NotifyPlaybackStarted});
  }

  bool Next() { return playback.PlaybackNextMessage(); }

  // Polls until the playback leaves the state of playing.
  void PlayToTheEnd() {
    while (playback.GetPlaybackStatus() == PlaybackPlaying) Next();
  }

  // Whether the playback has let go of the stream that was inserted last.
  bool IsStreamReleased() const { return stream.use_count() == 1; }

  RecordingClient gps{L"GPS"};
  RecordingClient can{L"CAN"};
  ClientManager manager;
  NotificationLog notifications;
  Thread::ThreadModule owner;
  SmartPtr::Ptr<BytesInputStream> stream;
  BinaryPlaybackPollingImpl playback;
};

inline std::vector<std::string> Payloads(const RecordingClient& client) {
  std::vector<std::string> payloads;
  for (const Delivery& delivery : client.Deliveries()) payloads.push_back(delivery.payload);
  return payloads;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_PLAYBACK_POLLING_RIG_H_
