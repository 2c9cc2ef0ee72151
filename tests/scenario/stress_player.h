#ifndef KESTRAV_TESTS_SCENARIO_STRESS_PLAYER_H_
#define KESTRAV_TESTS_SCENARIO_STRESS_PLAYER_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kestrav/clients/client.h"
#include "kestrav/engine/kestrav.h"
#include "support/log_builder.h"
#include "support/streams.h"

namespace kestrav::test {

// A scrambled log of numbered messages, some of them at one time, which lasts a few milliseconds.
class StressLog {
 public:
  static constexpr int kMessages = 60;

  static Bytes Make() {
    LogBuilder log(0x35, 0xA1);
    log.StartClock(1000).Duration(1000).Selection(0x8000);
    log.Dictionary({{"Listener", kDictionaryId}}, 1000);
    for (int n = 0; n < kMessages; ++n) {
      log.Record(kDictionaryId, 1, 1000 + static_cast<std::uint32_t>(n / 5), std::to_string(n));
    }
    return log.Build();
  }

 private:
  static constexpr int kDictionaryId = 40;
};

// The client that the log is played to. It counts, and knows which message must come next.
class StressListener final : public IClient {
 public:
  // An id of its own, since there is no end to its registrations.
  StressListener() : IClient(6) {}

  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return L"Listener"; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
  bool OnPlaybackData(const ILogMessage& message) override {
    const std::string payload(reinterpret_cast<const char*>(message.GetDataPointer()),
                              message.GetDataSize());
    const int number = std::stoi(payload);
    // A rewind begins again.
    if (number != next_ && number != 0) ++mistakes;
    next_ = number + 1;
    return true;
  }

  void Expect() { next_ = 0; }
  int Heard() const { return next_; }

  std::atomic<int> mistakes = 0;

 private:
  std::atomic<int> next_ = 0;
};

// Who plays a log with an engine again and again, from one thread. What goes wrong is counted.
class StressPlayer {
 public:
  StressPlayer(IKestrav& engine, std::uint32_t seed) : engine_(engine), random_(seed) {}

  // Plays to the end in steps of its own.
  void PlayByPolling() {
    Open();
    Check(engine_.StartPlayback());
    int calls = 0;
    while (engine_.PlaybackNextMessage()) ++calls;
    // The last call tells the end.
    Check(calls == StressLog::kMessages + 1 && Whole());
    ++finished;
  }

  // Plays on the engine's thread: to the end, or some way and then a pause, a rewind or a stop.
  // `registry` keeps those away who would stop a playback that has no client yet.
  void PlayNormally(std::mutex& registry) {
    const bool to_end = random_() % 2 == 0;
    const int ends_before = ends_;
    {
      const std::lock_guard lock(registry);
      Open();
      Check(engine_.SetStartPlaybackSpeed(random_() % 2 == 0 ? PlaybackSpeedStopped
                                                             : PlaybackSpeed1x));
      Check(engine_.StartPlayback());
    }
    if (to_end) {
      ends_.wait(ends_before);
      Check(Whole());
      ++finished;
    } else {
      Disturb();
      ++disturbed;
    }
    engine_.StopPlayback(true);
    Check(engine_.GetPlaybackStatus() == PlaybackOff);
  }

  // Rests for a random while, so that there are times without a playback.
  void Rest() { std::this_thread::sleep_for(std::chrono::microseconds(random_() % 10'000)); }

  // Tell it of notification 8.
  void HearEnd() {
    ++ends_;
    ends_.notify_all();
  }

  StressListener listener;
  std::atomic<int> mistakes = 0;
  int finished = 0;
  int disturbed = 0;

 private:
  void Open() {
    listener.Expect();
    unsigned int length_ms = 0;
    unsigned int size = 0;
    std::vector<String> clients;
    Check(engine_.SetPlaybackInputStream(std::make_shared<BytesInputStream>(log_)));
    Check(engine_.GetPlaybackAttributes(length_ms, size, clients));
    Check(clients.size() == 1 && size == log_.size());
    Check(engine_.SelectForPlayback(listener.GetClientStringID()));
  }

  // The playback may come to its end meanwhile, so the answers say nothing.
  void Disturb() {
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % 5'000));
    switch (random_() % 4) {
      case 0:
        engine_.PausePlayback();
        break;
      case 1:
        engine_.RewindPlayback();
        break;
      case 2:
        engine_.FastForwardPlayback();
        break;
      default:
        return;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % 5'000));
  }

  bool Whole() const { return listener.Heard() == StressLog::kMessages; }
  void Check(bool holds) {
    if (!holds) ++mistakes;
  }

  IKestrav& engine_;
  const Bytes log_ = StressLog::Make();
  std::mt19937 random_;
  std::atomic<int> ends_ = 0;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SCENARIO_STRESS_PLAYER_H_
