#ifndef KESTRAV_TESTS_UNIT_PLAYBACK_PASS_THROUGH_RIG_H_
#define KESTRAV_TESTS_UNIT_PLAYBACK_PASS_THROUGH_RIG_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/playback/pass_through_playback.h"
#include "support/log_builder.h"
#include "support/notification_log.h"
#include "support/recording_client.h"

namespace kestrav::test {

// Cuts a healthy log into its stream header and its records.
inline std::vector<Bytes> Pieces(const LogBuilder& log, std::size_t records) {
  const Bytes bytes = log.Build();
  std::vector<Bytes> pieces;
  std::size_t from = 0;
  for (std::size_t i = 0; i <= records; ++i) {
    const std::size_t to = i < records ? log.RecordOffset(i) : bytes.size();
    pieces.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                        bytes.begin() + static_cast<std::ptrdiff_t>(to));
    from = to;
  }
  return pieces;
}

inline Memory::MemBlock Block(const Bytes& bytes) {
  Memory::MemBlock block;
  EXPECT_TRUE(block.Assign(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
  return block;
}

inline std::vector<std::string> PayloadsOf(const RecordingClient& client) {
  std::vector<std::string> payloads;
  for (const Delivery& delivery : client.Deliveries()) payloads.push_back(delivery.payload);
  return payloads;
}

// A pass-through playback with all that it needs. Two clients have an id that the registry gave
// them, one has a fixed id and so stands in the selection of a stream header.
struct PassThroughRig {
  PassThroughRig() {
    for (RecordingClient* client : {&can, &gps, &fixed}) {
      EXPECT_TRUE(manager.RegisterClient(client));
    }
  }

  bool Start() { return playback.StartPlayback(&manager, &notifications, owner, L"Playback"); }
  bool Feed(const Bytes& piece) { return playback.PlaybackData(Block(piece)); }
  // Starts, feeds all pieces, each of which must be taken, and forgets the notification.
  void Play(const LogBuilder& log, std::size_t records) {
    ASSERT_TRUE(Start());
    ASSERT_EQ(notifications.TakeIds(), std::vector<int>{NotifyPlaybackStarted});
    for (const Bytes& piece : Pieces(log, records)) ASSERT_TRUE(Feed(piece));
  }

  RecordingClient gps{L"GPS"};
  RecordingClient can{L"CAN"};
  RecordingClient fixed{L"Fixed", 2};
  ClientManager manager;
  NotificationLog notifications;
  Thread::ThreadModule owner;
  BinaryPlaybackPassThroughImpl playback;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_PLAYBACK_PASS_THROUGH_RIG_H_
