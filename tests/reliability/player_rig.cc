#include "reliability/player_rig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>

#include "kestrav/host/io/memory_stream.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kStepMs = 100;

// The ids under which the clients were recorded.
constexpr std::uint16_t kRecordedBarometer = 30;
constexpr std::uint16_t kRecordedGyroscope = 33;

Memory::MemBlock Piece(const Bytes& bytes, std::size_t from, std::size_t to) {
  Memory::MemBlock piece;
  EXPECT_TRUE(piece.Assign(bytes.data() + from, static_cast<std::uint32_t>(to - from)));
  return piece;
}

}  // namespace

PlayedLog::PlayedLog(std::uint8_t header_key, std::uint8_t data_key, std::uint32_t start_clock,
                     std::uint32_t first_index) {
  LogBuilder builder(header_key, data_key);
  builder.StartClock(start_clock).Duration(kStepMs * kMessages).Selection(0x9000);
  builder.NextIndex(first_index);
  builder.Dictionary({{"Barometer", kRecordedBarometer},
                      {"Gyroscope", kRecordedGyroscope},
                      {"Info Client", kInfoClientId}},
                     start_clock);
  for (std::uint32_t n = 0; n < kMessages; ++n) {
    const Payload payload = PayloadOf(n);
    const std::string_view text(reinterpret_cast<const char*>(payload.bytes.data()), payload.size);
    builder.Record(n % 2 == 0 ? kRecordedBarometer : kRecordedGyroscope,
                   static_cast<std::uint16_t>(n), start_clock + (n + 1) * kStepMs, text);
  }
  bytes = builder.Build();
  pieces.push_back(Piece(bytes, 0, builder.RecordOffset(0)));
  for (std::size_t i = 0; i < kMessages; ++i) {
    pieces.push_back(Piece(bytes, builder.RecordOffset(i), builder.RecordOffset(i + 1)));
  }
  pieces.push_back(Piece(bytes, builder.RecordOffset(kMessages), bytes.size()));
}

PlayerRig::PlayerRig(Time::ManualSource& clock, PlaybackModeType mode, const PlayedLog& log)
    : clock_(clock), mode_(mode), log_(log) {
  const auto observe = [this](const NotificationInfo& info) { observer_(info); };
  EXPECT_NE(engine.notifier.Connect(observe), 0u);
}

bool PlayerRig::Prepare() {
  bool done = InTwoTries([&] { return engine.Init(&threads_, engine_name_); }) &&
              InTwoTries([&] { return engine.SetPlaybackMode(mode_); });
  for (QuietClient& client : clients_) {
    done = done && InTwoTries([&] { return engine.RegisterClient(&client); });
  }
  return done;
}

bool PlayerRig::Open() {
  if (mode_ == PlaybackModePassThrough) return true;
  const auto stream = Memory::MakeShared<Io::MemoryInputStream>(
      log_.bytes.data(), static_cast<std::uint32_t>(log_.bytes.size()));
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  bool done = stream && engine.SetPlaybackInputStream(stream) &&
              engine.GetPlaybackAttributes(length_ms, size, clients);
  for (const String& client : clients) done = done && engine.SelectForPlayback(client);
  return done;
}

// A start of normal playback may fail later, on its thread. One that only lacks its timer plays,
// one without a clock plays unpaced and is at the end at once.
bool PlayerRig::Start() {
  const bool started = engine.StartPlayback();
  if (mode_ != PlaybackModeNormal) return started;
  clock_.Settle();
  const PlaybackStatusType status = engine.GetPlaybackStatus();
  return status == PlaybackPlaying || status == PlaybackFinished;
}

bool PlayerRig::PlayToTheEnd() {
  switch (mode_) {
    case PlaybackModeNormal:
      clock_.Advance(kStepMs * (kMessages + 1));
      return engine.GetPlaybackStatus() == PlaybackFinished;
    case PlaybackModePolling:
      while (engine.PlaybackNextMessage()) {
        if (engine.GetPlaybackStatus() == PlaybackFinished) return true;
      }
      return false;
    default:
      for (const Memory::MemBlock& piece : log_.pieces) {
        if (!engine.PlaybackData(piece)) return false;
      }
      return true;
  }
}

// What was delivered before the rewind does not count.
void PlayerRig::CallMany() {
  clock_.Advance(3 * kStepMs);
  engine.PausePlayback();
  clock_.Advance(kStepMs);
  engine.ResumePlayback();
  clock_.Advance(kStepMs);
  for (int i = 0; i < 5; ++i) engine.FastForwardPlayback();
  clock_.Advance(kStepMs);
  tally.Clear();
  engine.RewindPlayback();
  clock_.Settle();
}

Played PlayerRig::Play(Calls calls) {
  Played played;
  played.prepared = Prepare();
  played.started = played.prepared && InTwoTries([&] { return Open() && Start(); });
  if (played.started && calls == Calls::kMany) CallMany();
  played.finished = played.started && PlayToTheEnd();
  engine.StopPlayback(true);
  clock_.Settle();
  return played;
}

void ExpectCompletePlayback(PlayerRig& rig) {
  rig.TakeNotifications();
  rig.tally.Clear();
  const Played played = rig.Play();
  EXPECT_TRUE(played.finished);
  EXPECT_EQ(rig.tally.delivered, kAllMessages);
  EXPECT_EQ(rig.tally.wrong, 0u);
  const std::vector<int> ids = rig.TakeNotifications();
  EXPECT_THAT(ids, testing::AnyOf(testing::ElementsAre(2, 8, 3), testing::ElementsAre(2, 3)));
}

}  // namespace kestrav::test
