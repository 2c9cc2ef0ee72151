#ifndef KESTRAV_TESTS_UNIT_PLAYBACK_NORMAL_RIG_H_
#define KESTRAV_TESTS_UNIT_PLAYBACK_NORMAL_RIG_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/playback/normal_playback.h"
#include "support/log_builder.h"
#include "support/manual_clock.h"
#include "support/recording_client.h"
#include "support/thread_modules.h"

namespace kestrav::test {

using Entries = std::vector<std::string>;

// The notification in a word; the new speed with it.
inline std::string Describe(const NotificationInfo& info) {
  constexpr const char* kWords[] = {"",        "",        "started", "stopped", "paused",
                                    "resumed", "rewinds", "rewound", "end"};
  if (info.id == NotifyPlaybackSpeed) return "speed " + std::to_string(info.speed);
  return info.id < std::size(kWords) ? kWords[info.id] : "notification " + std::to_string(info.id);
}

// Notifications and deliveries in the order in which they came, each as "<ms> <what>".
class Trace final : public INotificationSink {
 public:
  explicit Trace(ManualClock& clock) : clock_(clock) {}

  void SendNotification(const NotificationInfo& info) override {
    Add(Describe(info));
    {
      const std::lock_guard lock(mutex_);
      sets_.push_back(info.clients.Mask());
    }
    if (on_notification) on_notification(info);
  }
  void Add(const std::string& what) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(std::to_string(clock_->ElapsedMs() - origin_) + " " + what);
  }
  // The entries so far, which are then forgotten.
  Entries Take() {
    const std::lock_guard lock(mutex_);
    sets_.clear();
    return std::exchange(entries_, {});
  }
  // The clients of each notification since the last `Take`.
  std::vector<std::uint64_t> ClientSets() const {
    const std::lock_guard lock(mutex_);
    return sets_;
  }
  // Times count from now on.
  void StartNow() {
    const std::lock_guard lock(mutex_);
    origin_ = clock_->ElapsedMs();
  }

  std::function<void(const NotificationInfo&)> on_notification;

 private:
  ManualClock& clock_;
  mutable std::mutex mutex_;
  Entries entries_;
  std::vector<std::uint64_t> sets_;
  std::uint64_t origin_ = 0;
};

// The ids under which the logs of these tests were recorded, and the clock at which they start.
inline constexpr std::uint16_t kRecordedGps = 21;
inline constexpr std::uint16_t kRecordedCan = 22;
inline constexpr std::uint16_t kRecordedNobody = 30;
inline constexpr std::uint32_t kLogStart = 5000;

// A record by the time since the start of its log.
struct At {
  std::uint32_t ms;
  std::string payload;
  std::uint16_t client = kRecordedGps;
};

inline LogBuilder Log(const std::vector<At>& records, std::uint32_t duration_ms = 60'000,
                      std::uint32_t log_start = kLogStart) {
  LogBuilder log;
  log.StartClock(log_start).Duration(duration_ms);
  for (const At& record : records) {
    log.Record(record.client, 1, log_start + record.ms, record.payload);
  }
  return log;
}

// A normal playback on the manual clock with all that it needs. The clients register in another
// order than they were recorded in.
struct NormalRig {
  explicit NormalRig(std::uint32_t clock_ms = 1000) : clock(clock_ms) {
    for (RecordingClient* client : {&can, &gps}) {
      EXPECT_TRUE(manager.RegisterClient(client));
      client->on_delivery = [this](const ILogMessage& message) { return OnDelivery(message); };
    }
  }

  void Select() {
    std::vector<String> offered;
    const Dictionary recorded = {{L"CAN", kRecordedCan}, {L"GPS", kRecordedGps}};
    ASSERT_TRUE(manager.UpdatePlaybackClientList(offered, recorded, 0));
    for (const String& string_id : offered) ASSERT_TRUE(manager.SelectForPlayback(string_id));
  }
  // Selects the recorded clients and inserts and opens the log.
  void Insert(const LogBuilder& log) {
    Select();
    stream = std::make_shared<BytesInputStream>(log.Build());
    ASSERT_TRUE(playback.SetInputStream(stream));
    Open();
  }
  // Reads the stream's header, so that offsets can be judged.
  bool Open() {
    std::uint32_t length_ms = 0;
    std::uint32_t size = 0;
    std::uint16_t mask = 0;
    Memory::MemBlock dictionary;
    return playback.GetPlaybackAttributes(length_ms, size, mask, dictionary, 12);
  }
  bool Start() { return playback.StartPlayback(&manager, &trace, owner, L"Playback"); }

  // Inserts the log, starts at speed 1, and forgets what that brings; times count from here.
  void Play(const LogBuilder& log) {
    Insert(log);
    trace.StartNow();
    ASSERT_TRUE(Start());
    Entries start = Settled();
    start.resize(3);
    ASSERT_EQ(start, (Entries{"0 speed 1", "0 started", "0 speed 1"}));
    ASSERT_EQ(playback.GetPlaybackStatus(), PlaybackPlaying);
  }

  // What came up to now, up to `ms` from now.
  Entries Settled() {
    clock->Settle();
    return trace.Take();
  }
  Entries Run(std::uint32_t ms) {
    clock->Advance(ms);
    return trace.Take();
  }

  PlaybackStatusType Status() const { return playback.GetPlaybackStatus(); }
  PlaybackSpeedType Speed() const { return playback.GetPlaybackSpeed(); }
  std::uint32_t Position() const { return playback.GetPlaybackTimeScnds(); }
  bool SetStartSpeed(int speed) {
    return playback.SetStartPlaybackSpeed(static_cast<PlaybackSpeedType>(speed));
  }

  bool OnDelivery(const ILogMessage& message) {
    const std::string payload(reinterpret_cast<const char*>(message.GetDataPointer()),
                              message.GetDataSize());
    trace.Add(payload);
    return !react || react(payload);
  }

  ManualClock clock;
  Trace trace{clock};
  RecordingClient gps{L"GPS"};
  RecordingClient can{L"CAN"};
  ClientManager manager;
  ThreadsUnderTest owner;
  SmartPtr::Ptr<BytesInputStream> stream;
  std::function<bool(const std::string&)> react;  // the clients' answer to a payload; none: true
  BinaryPlaybackNormalImpl playback;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_PLAYBACK_NORMAL_RIG_H_
