#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "kestrav/recording/binary_logger.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/notification_log.h"
#include "support/parsed_log.h"
#include "support/streams.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

constexpr std::uint16_t kWriter = 21;

// Writers that offer messages at every moment of a start and of a stop; each of them is taken a few
// times a recording.
class EagerWriters {
 public:
  EagerWriters(BinaryLogger& logger, int count) {
    for (int i = 0; i < count; ++i) threads_.emplace_back([this, &logger] { Run(logger); });
  }
  ~EagerWriters() { Finish(); }

  void NextRecording() { ++recording_; }

  // How many messages were taken.
  int Finish() {
    over_ = true;
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    return accepted_;
  }

 private:
  void Run(BinaryLogger& logger) {
    constexpr int kEnough = 20;
    for (int recording = 0, taken = 0; !over_;) {
      if (recording != recording_) taken = 0;
      recording = recording_;
      const bool accepted = taken < kEnough && logger.Write(MakeMessage(kWriter, 7, "payload"));
      if (accepted) ++taken, ++accepted_;
      if (!accepted) std::this_thread::yield();
    }
  }

  std::atomic<bool> over_ = false;
  std::atomic<int> recording_ = 0;
  std::atomic<int> accepted_ = 0;
  std::vector<std::thread> threads_;
};

TEST(RacingBinaryLogger, WritesNoRecordBeforeTheStreamHeaderHoweverSoonMessagesCome) {
  constexpr int kRuns = 1000;
  const Watchdog watchdog(std::chrono::seconds(60), "eager writers");
  const ManualClock clock;  // at its end the timer thread has ended too
  Thread::ThreadModule threads;
  NotificationLog notifications;
  ClientManager clients;
  InfoClientImpl info_client;
  ASSERT_TRUE(clients.RegisterClient(&info_client));
  ASSERT_TRUE(clients.SelectForLogging(L"Info Client"));
  BinaryLogger logger;
  EagerWriters writers(logger, 2);
  int recorded = 0;
  for (int run = 0; run < kRuns; ++run) {
    const auto stream = std::make_shared<BytesOutputStream>();
    writers.NextRecording();
    ASSERT_TRUE(logger.SetBinaryLogStream(stream));
    ASSERT_TRUE(logger.StartLogging(threads, &notifications, &clients, &info_client, L"T"));
    ASSERT_TRUE(logger.StopLoggingThread());
    const ParsedLog log = ParseLog(stream->Content());
    ASSERT_EQ(log.error, "");
    recorded += static_cast<int>(log.PayloadsOf(kWriter).size());
  }
  EXPECT_EQ(recorded, writers.Finish());
}

// The stop may come at any moment of the start.
TEST(RacingBinaryLogger, LeavesAWholeLogOrNoneWhenItIsStoppedWhileItStarts) {
  constexpr int kRuns = 2000;
  const Watchdog watchdog(std::chrono::seconds(60), "a stop during the start");
  const ManualClock clock;  // at its end the timer thread has ended too
  Thread::ThreadModule threads;
  NotificationLog notifications;
  ClientManager clients;
  InfoClientImpl info_client;
  ASSERT_TRUE(clients.RegisterClient(&info_client));
  ASSERT_TRUE(clients.SelectForLogging(L"Info Client"));
  BinaryLogger logger;
  std::atomic<bool> over = false;
  std::thread stopper([&] {
    while (!over) logger.StopLoggingThread();
  });
  int broken = 0;
  for (int run = 0; run < kRuns; ++run) {
    const auto stream = std::make_shared<BytesOutputStream>();
    if (!logger.SetBinaryLogStream(stream)) continue;  // the stop of the run before goes on
    EXPECT_TRUE(logger.StartLogging(threads, &notifications, &clients, &info_client, L"T"));
    EXPECT_TRUE(logger.StopLoggingThread());
    const Bytes log = stream->Content();
    if (!log.empty() && ParseLog(log).error != "") ++broken;
  }
  over = true;
  stopper.join();
  EXPECT_EQ(broken, 0);
}

}  // namespace
}  // namespace kestrav::test
