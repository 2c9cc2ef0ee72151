#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "scenario/stress_player.h"
#include "scenario/stress_writer.h"
#include "support/notification_log.h"
#include "support/streams.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// How long the threads work: 20 s, or KESTRAV_STRESS_SECONDS.
seconds Duration() {
  const char* const wanted = std::getenv("KESTRAV_STRESS_SECONDS");
  return seconds(wanted != nullptr ? std::atoi(wanted) : 20);
}

// What the threads decide by chance: 1, or KESTRAV_STRESS_SEED.
std::uint32_t Seed() {
  const char* const wanted = std::getenv("KESTRAV_STRESS_SEED");
  return wanted != nullptr ? static_cast<std::uint32_t>(std::atoi(wanted)) : 1;
}

// Sixteen writers; this thread starts and stops; one thread watches, one uses the registry, one
// plays a log with the engine that records, one with an engine of its own.
class ThreadStressTest : public ::testing::Test {
 protected:
  static constexpr int kWriters = 16;

  ThreadStressTest() {
    EXPECT_TRUE(engine_.Init(&threads_, L"Stress"));
    EXPECT_TRUE(polling_engine_.Init(&threads_, L"Polling"));
    EXPECT_TRUE(polling_engine_.SetPlaybackMode(PlaybackModePolling));
    EXPECT_TRUE(engine_.RegisterClient(&player_.listener));
    for (int i = 0; i < kWriters; ++i) {
      writers_.push_back(std::make_unique<StressWriter>(engine_, rounds_, i));
      EXPECT_TRUE(engine_.RegisterClient(&writers_.back()->client));
      EXPECT_TRUE(engine_.SelectForLogging(writers_.back()->client.string_id));
    }
    EXPECT_NE(engine_.notifier.Connect([this](const NotificationInfo& info) { Hear(info); }), 0u);
  }

  // On the recording thread, the timer thread and those that play.
  void Hear(const NotificationInfo& info) {
    switch (info.id) {
      case NotifyRecordingTime:
        ++ticks_;
        ticks_.notify_all();
        break;
      case NotifyEndOfLog:
        player_.HearEnd();
        break;
      case NotifyLoggingStarted:
      case NotifyLoggingStopped:
        notifications_.SendNotification(info);
        break;
      case NotifyLoggingFinished:
        notifications_.SendNotification(info);
        ++finished_;
        finished_.notify_all();
        break;
      default:
        break;
    }
  }

  void Watch() {
    while (!rounds_.over) {
      std::atomic<int> heard = 0;
      const std::uint32_t id = engine_.notifier.Connect([&](const NotificationInfo&) { ++heard; });
      const std::int32_t status = engine_.GetLoggingStatus();
      if (id == 0 || status < LoggingOff || status > LoggingRunning) ++mistakes_;
      const PlaybackStatusType playback = engine_.GetPlaybackStatus();
      if (playback < PlaybackOff || playback > PlaybackFinished) ++mistakes_;
      if (engine_.GetRecordingTimeScnds() > 1000 || engine_.GetPlaybackTimeScnds() > 1) {
        ++mistakes_;
      }
      if (!engine_.notifier.Disconnect(id)) ++mistakes_;
      std::this_thread::yield();
    }
  }

  // Its client comes and goes, and is selected, whenever no recording or playback forbids it.
  void UseRegistry() {
    RecordingClient visitor(L"Visitor", 5);
    while (!rounds_.over) {
      std::vector<String> clients;
      std::map<String, bool> selected;
      if (!engine_.GetClientsList(clients) || clients.size() < kWriters + 1u) ++mistakes_;
      if (!engine_.GetLoggingClientsList(selected) || !selected[L"Writer 0"]) ++mistakes_;
      if (!engine_.SendControlStringToClient(L"Writer 1", L"x")) ++mistakes_;
      if (!engine_.IsSelectedForLogging(writers_[2]->client.client_id)) ++mistakes_;
      const std::lock_guard lock(registry_);
      if (engine_.RegisterClient(&visitor)) {
        ++visits_;
        engine_.SelectForLogging(L"Visitor");
        if (!engine_.UnRegisterClient(&visitor)) ++mistakes_;
      }
      std::this_thread::yield();
    }
  }

  void PlayWhereOthersRecord() {
    while (!rounds_.over) {
      player_.PlayNormally(registry_);
      player_.Rest();
    }
  }

  // Its listener is registered anew for each playback.
  void PlayByPolling() {
    while (!rounds_.over) {
      if (!polling_engine_.RegisterClient(&polling_player_.listener)) ++mistakes_;
      polling_player_.PlayByPolling();
      if (!polling_engine_.UnRegisterClient(&polling_player_.listener)) ++mistakes_;
      std::this_thread::yield();
    }
  }

  // Runs `change` while no writer holds the gate.
  void Alone(const std::function<void()>& change) {
    rounds_.gate_wanted = true;
    const std::unique_lock lock(rounds_.gate);
    change();
    rounds_.gate_wanted = false;
  }

  // Lets every writer hand in its messages of a round.
  void BeginRound() {
    rounds_.attempts = 0;
    ++rounds_.begun;
    rounds_.begun.notify_all();
  }

  // One recording, guarded every other time, of which the writers see the start every other time
  // too. It lasts until they have come some way, now and then until a second has passed.
  void Round(int round) {
    const auto stream = std::make_shared<BytesOutputStream>();
    const bool guarded = round % 2 == 0;
    const bool seen_starting = round % 4 < 2;
    const int patience = static_cast<int>(random_() % (kWriters * StressWriter::kAttemptsPerRound));
    ASSERT_TRUE(engine_.EnableEncryption(round % 3 != 0));
    ASSERT_TRUE(engine_.SetLoggingOutputStream(stream));
    if (seen_starting) BeginRound();
    ASSERT_TRUE(engine_.StartLogging());
    if (guarded) Alone([&] { rounds_.guarded_round = round; });
    if (!seen_starting) BeginRound();
    while (rounds_.attempts < patience) std::this_thread::yield();
    WaitForTickNowAndThen();
    if (guarded) {
      Alone([this] {
        rounds_.guarded_round = StressRounds::kNone;
        EXPECT_TRUE(engine_.StopLogging());
      });
    } else {
      ASSERT_TRUE(engine_.StopLogging());
    }
    finished_.wait(round);
    TakeLog(round, *stream);
  }

  void WaitForTickNowAndThen() {
    if (steady_clock::now() < next_tick_wanted_) return;
    next_tick_wanted_ = steady_clock::now() + seconds(5);
    ticks_.wait(ticks_);
  }

  void TakeLog(int round, const BytesOutputStream& stream) {
    const ParsedLog log = ParseLog(stream.Content());
    ASSERT_EQ(log.error, "") << "log " << round;
    ASSERT_EQ(log.stream_length, stream.Content().size()) << "log " << round;
    for (const auto& writer : writers_) {
      ASSERT_EQ(writer->TakeLog(round, log), "") << "log " << round;
    }
    ASSERT_THAT(notifications_.TakeIds(), ::testing::ElementsAre(0, 1, 9)) << "log " << round;
  }

  void WaitForAttempts() {
    while (rounds_.attempts < kWriters * StressWriter::kAttemptsPerRound) {
      std::this_thread::yield();
    }
  }

  Thread::ThreadModule threads_;
  StressRounds rounds_;
  NotificationLog notifications_;
  std::atomic<int> finished_ = 0;
  std::atomic<int> ticks_ = 0;
  std::atomic<int> mistakes_ = 0;
  std::atomic<int> visits_ = 0;
  steady_clock::time_point next_tick_wanted_ = steady_clock::now();
  std::mutex registry_;  // held while clients come and go and while a playback is started
  std::mt19937 random_{Seed()};
  std::vector<std::unique_ptr<StressWriter>> writers_;
  StressPlayer player_{engine_, Seed() + 1};
  StressPlayer polling_player_{polling_engine_, Seed() + 2};
  KestravImpl engine_;
  KestravImpl polling_engine_;
};

TEST_F(ThreadStressTest, RecordsEveryAcceptedMessageOnceInOrderInTheLogOfItsTime) {
  const Watchdog watchdog(Duration() + seconds(120), "writers, starter, registry user, players");
  std::vector<std::thread> threads;
  for (const auto& writer : writers_) threads.emplace_back([&writer] { writer->Run(); });
  threads.emplace_back([this] { Watch(); });
  threads.emplace_back([this] { UseRegistry(); });
  threads.emplace_back([this] { PlayWhereOthersRecord(); });
  threads.emplace_back([this] { PlayByPolling(); });

  int round = 0;
  const auto end = steady_clock::now() + Duration();
  for (; steady_clock::now() < end && !HasFatalFailure(); ++round) {
    Round(round);
    if (!HasFatalFailure()) WaitForAttempts();
  }
  rounds_.over = true;
  ++rounds_.begun;
  rounds_.begun.notify_all();
  for (std::thread& thread : threads) thread.join();

  StressWriter::Tally all;
  for (const auto& writer : writers_) {
    EXPECT_EQ(writer->wrongly_refused, 0);
    EXPECT_EQ(writer->Verify(all), "") << Text::ToUtf8(writer->client.string_id);
  }
  EXPECT_EQ(all.accepted, all.on_file);
  EXPECT_EQ(mistakes_, 0);
  EXPECT_EQ(player_.mistakes + player_.listener.mistakes, 0);
  EXPECT_EQ(polling_player_.mistakes + polling_player_.listener.mistakes, 0);
  EXPECT_GT(visits_, 0);
  EXPECT_GT(ticks_, 0);
  EXPECT_GT(player_.finished, 0);
  EXPECT_GT(player_.disturbed, 0);
  EXPECT_GT(polling_player_.finished, 0);
  EXPECT_GT(all.guarded, 0u);
  EXPECT_GT(all.unguarded, 0u);
  EXPECT_GT(all.refused, 0u);
  std::printf(
      "[figure] stress: %d writers, seed %u, %lld s: %d logs, accepted %zu (guarded %zu), on file "
      "%zu, refused %zu; playbacks %d whole, %d disturbed, %d by polling; %d registrations\n",
      kWriters, Seed(), static_cast<long long>(Duration().count()), round, all.accepted,
      all.guarded, all.on_file, all.refused, player_.finished, player_.disturbed,
      polling_player_.finished, visits_.load());
}

}  // namespace
}  // namespace kestrav::test
