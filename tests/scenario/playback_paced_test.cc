#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/recording_client.h"
#include "support/streams.h"

namespace kestrav::test {
namespace {

constexpr int kMessages = 120;

using Times = std::vector<std::pair<std::uint64_t, std::string>>;

// A drive recorded by one engine and played back by another, both to the millisecond.
class PacedPlaybackTest : public testing::TestWithParam<int> {
 protected:
  // Records messages at uneven times; the times since the start of the log.
  Times Record() {
    RecordingClient gps(L"GPS");
    const auto stream = std::make_shared<BytesOutputStream>();
    KestravImpl engine;
    EXPECT_TRUE(engine.Init(&threads_, L"Recorder"));
    EXPECT_TRUE(engine.RegisterClient(&gps));
    EXPECT_TRUE(engine.SelectForLogging(L"GPS"));
    EXPECT_TRUE(engine.SetLoggingOutputStream(stream));
    EXPECT_TRUE(engine.StartLogging());
    clock_->Settle();
    const std::uint64_t start = clock_->ElapsedMs();
    Times times;
    for (int n = 0; n < kMessages; ++n) {
      clock_->Advance(static_cast<std::uint32_t>(n * n * 7 % 131));
      times.emplace_back(clock_->ElapsedMs() - start, std::to_string(n));
      EXPECT_TRUE(engine.WriteData(MakeMessage(gps.client_id, 1, times.back().second)));
    }
    EXPECT_TRUE(engine.StopLogging());
    clock_->Settle();
    log_ = stream->Content();
    return times;
  }

  // Plays the log to its end; the times since the start of the playback.
  Times Play(int speed) {
    Times times;
    std::uint64_t start = 0;
    RecordingClient gps(L"GPS");
    gps.on_delivery = [&](const ILogMessage& message) {
      times.emplace_back(clock_->ElapsedMs() - start,
                         std::string(reinterpret_cast<const char*>(message.GetDataPointer()),
                                     message.GetDataSize()));
      return true;
    };
    KestravImpl engine;
    EXPECT_TRUE(engine.Init(&threads_, L"Player"));
    EXPECT_TRUE(engine.RegisterClient(&gps));
    EXPECT_TRUE(engine.SetPlaybackInputStream(std::make_shared<BytesInputStream>(log_)));
    unsigned int length_ms = 0;
    unsigned int size = 0;
    std::vector<String> clients;
    EXPECT_TRUE(engine.GetPlaybackAttributes(length_ms, size, clients));
    EXPECT_TRUE(engine.SelectForPlayback(L"GPS"));
    EXPECT_TRUE(engine.SetStartPlaybackSpeed(static_cast<PlaybackSpeedType>(speed)));
    start = clock_->ElapsedMs();
    EXPECT_TRUE(engine.StartPlayback());
    clock_->Advance(60'000);
    EXPECT_EQ(engine.GetPlaybackStatus(), PlaybackFinished);
    engine.StopPlayback(true);
    return times;
  }

  ManualClock clock_;
  Thread::ThreadModule threads_;
  Bytes log_;
};

TEST_P(PacedPlaybackTest, KeepsTheSpacingOfTheRecordingDividedByTheSpeed) {
  const Times recorded = Record();
  Times expected;
  std::uint64_t at = 0;
  std::uint64_t before = 0;
  for (const auto& [time, payload] : recorded) {
    at += (time - before) / static_cast<std::uint64_t>(GetParam());
    before = time;
    expected.emplace_back(at, payload);
  }
  EXPECT_EQ(Play(GetParam()), expected);
}

INSTANTIATE_TEST_SUITE_P(Speeds, PacedPlaybackTest, testing::Values(1, 2, 4, 10));

}  // namespace
}  // namespace kestrav::test
