#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "engine_fixture.h"
#include "kestrav/host/io/file_stream.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kRounds = 1000;

std::ptrdiff_t CountEntries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder),
                       std::filesystem::directory_iterator());
}

// Waits for threads that have done their work and are about to leave; the watchdog knows those that
// never do. A timer that is left behind keeps the thread of the timers.
void WaitUntilThreadsAreGone(std::ptrdiff_t expected) {
  while (CountEntries("/proc/self/task") > expected) std::this_thread::yield();
}

class EngineLoopTest : public EngineTest {
 protected:
  EngineLoopTest() {
    const Bytes log = LogWith({1000, 1500, 61'000});
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(log.data()), static_cast<std::streamsize>(log.size()));
  }
  ~EngineLoopTest() override { std::filesystem::remove(path_); }

  SmartPtr::Ptr<Io::IInputStream> OpenFile() const {
    auto stream = std::make_shared<Io::BufferedFileInputStream>();
    EXPECT_TRUE(stream->Open(path_.wstring()));
    return stream;
  }

  // A playback in one of the modes, as far as the round has it.
  static void PlayRound(IKestrav& engine, const SmartPtr::Ptr<Io::IInputStream>& stream,
                        int round) {
    const auto mode = static_cast<PlaybackModeType>(round % 3);
    ASSERT_TRUE(engine.SetPlaybackMode(mode));
    if (mode != PlaybackModePassThrough) {
      ASSERT_TRUE(engine.SetPlaybackInputStream(stream));
      unsigned int length_ms = 0;
      unsigned int size = 0;
      std::vector<String> clients;
      ASSERT_TRUE(engine.GetPlaybackAttributes(length_ms, size, clients));
      ASSERT_TRUE(engine.SelectForPlayback(L"GPS"));
    }
    ASSERT_TRUE(engine.StartPlayback());
    if (round % 5 == 1) engine.PausePlayback();
    if (round % 7 == 2) engine.RewindPlayback();
    if (mode == PlaybackModePolling) engine.PlaybackNextMessage();
    // The other rounds leave the playback to the next mode or to the destruction.
    if (round % 4 == 0) engine.StopPlayback(true);
    if (round % 4 == 1) engine.StopPlayback(false);
  }

  const std::filesystem::path path_ = std::filesystem::temp_directory_path() /
                                      ("kestrav_loop_" + std::to_string(::getpid()) + ".log");
};

TEST_F(EngineLoopTest, LeavesNothingBehindAfterAThousandModesStartsAndStops) {
  const Watchdog watchdog(std::chrono::seconds(120), "a thousand playbacks of one engine");
  const std::ptrdiff_t threads = CountEntries("/proc/self/task");
  const std::ptrdiff_t descriptors = CountEntries("/proc/self/fd");
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_NO_FATAL_FAILURE(PlayRound(engine_, OpenFile(), round)) << "round " << round;
    engine_.StopPlayback(true);
  }
  ASSERT_TRUE(engine_.SetPlaybackMode(PlaybackModePassThrough));
  clock_->Settle();
  while (engine_.GetPlaybackStatus() != PlaybackOff) engine_.StopPlayback(true);
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  // Starts that were not stopped, since their playback ended by itself, still count.
  for (int i = 0; i < 256; ++i) engine_.StopUpdateTimer();
  WaitUntilThreadsAreGone(threads);
}

TEST_F(EngineLoopTest, LeavesNothingBehindAfterAThousandLives) {
  const Watchdog watchdog(std::chrono::seconds(120), "a thousand engines");
  const std::ptrdiff_t threads = CountEntries("/proc/self/task");
  const std::ptrdiff_t descriptors = CountEntries("/proc/self/fd");
  for (int round = 0; round < kRounds; ++round) {
    RecordingClient gps(L"GPS");
    KestravImpl engine;
    ASSERT_TRUE(engine.Init(&threads_, L"Life"));
    ASSERT_TRUE(engine.RegisterClient(&gps));
    ASSERT_NO_FATAL_FAILURE(PlayRound(engine, OpenFile(), round)) << "round " << round;
  }
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  WaitUntilThreadsAreGone(threads);
}

// The mode changes while the thread plays: the old object is ended, not left to run.
TEST_F(EngineLoopTest, EndsThePlaybackThreadWithItsMode) {
  const Watchdog watchdog(std::chrono::seconds(120), "changes of the mode while playing");
  const std::ptrdiff_t threads = CountEntries("/proc/self/task");
  for (int round = 0; round < 100; ++round) {
    Play(PlaybackModeNormal);
    EXPECT_TRUE(engine_.SetPlaybackMode(PlaybackModePolling));
    EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
    engine_.StopUpdateTimer();
  }
  WaitUntilThreadsAreGone(threads);
  EXPECT_EQ(gps_.Deliveries().size(), 100U);
}

// What a client may do from inside its callback.
TEST_F(EngineTest, MayBeCalledBackByAClientThatIsGivenARecord) {
  Open(PlaybackModeNormal, {2000, 3000, 4000});
  std::vector<int> answers;
  gps_.on_delivery = [&](const ILogMessage&) {
    answers.push_back(engine_.GetPlaybackStatus());
    answers.push_back(engine_.SetStartPlaybackSpeed(PlaybackSpeed4x));
    answers.push_back(engine_.StartPlayback());
    answers.push_back(engine_.RegisterClient(&can_));
    answers.push_back(engine_.SelectForPlayback(L"GPS"));
    engine_.StopPlayback(false);
    return true;
  };
  ASSERT_TRUE(engine_.StartPlayback());
  clock_->Advance(10'000);
  EXPECT_THAT(answers, ElementsAre(PlaybackPlaying, 0, 0, 0, 0));
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
  notifications_.TakeIds();
  clock_->Advance(5000);
  EXPECT_THAT(notifications_.TakeIds(), IsEmpty());  // the stop has given the timer back
}

TEST_F(EngineTest, StopsAPlaybackWhenTheClientThatIsPlayedToLeavesInItsCallback) {
  Open(PlaybackModeNormal, {2000, 3000, 4000});
  gps_.on_delivery = [&](const ILogMessage&) { return engine_.UnRegisterClient(&gps_); };
  ASSERT_TRUE(engine_.StartPlayback());
  clock_->Advance(10'000);
  EXPECT_EQ(gps_.Deliveries().size(), 1U);
  EXPECT_EQ(engine_.GetPlaybackStatus(), PlaybackOff);
}

}  // namespace
}  // namespace kestrav::test
