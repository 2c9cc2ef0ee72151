#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/io/file_stream.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/notification_log.h"
#include "support/recording_client.h"

namespace kestrav::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

constexpr int kMessages = 200;

// The n-th payload of a client: all byte values, sizes from 1 byte to more than a stream's buffer.
std::string Payload(char client, int n) {
  const std::size_t size = n == 100 ? 100'000 : static_cast<std::size_t>(1 + n * 7 % 300);
  std::string payload(size, client);
  for (std::size_t i = 1; i < size; ++i) payload[i] = static_cast<char>(i * 31 + std::size_t(n));
  return payload;
}

// A log in a file, recorded by four clients of which one is not selected, and played back to three
// clients that meanwhile have other ids.
class RecordAndPullTest : public ::testing::TestWithParam<bool> {
 protected:
  RecordAndPullTest() {
    const std::string name = "kestrav-" + std::to_string(getpid()) + ".klog";
    path_ = Text::FromUtf8(::testing::TempDir() + name);
  }
  ~RecordAndPullTest() override { std::remove(Text::ToUtf8(path_).c_str()); }

  void Record() {
    KestravImpl engine;
    RecordingClient radar(L"Radar");
    RecordingClient gps(L"GPS");
    RecordingClient can(L"CAN bus");
    RecordingClient silent(L"Silent");
    ASSERT_TRUE(engine.Init(&threads_, L"Recorder"));
    for (IClient* client : {&radar, &gps, &can, &silent}) {
      ASSERT_TRUE(engine.RegisterClient(client));
    }
    ASSERT_TRUE(engine.EnableEncryption(GetParam()));
    for (const wchar_t* name : {L"Radar", L"GPS", L"CAN bus"}) {
      ASSERT_TRUE(engine.SelectForLogging(name));
    }
    const auto stream = std::make_shared<Io::BufferedFileOutputStream>();
    ASSERT_TRUE(stream->Open(path_, Io::OpenMode::kCreate));
    ASSERT_TRUE(engine.SetLoggingOutputStream(stream));
    ASSERT_TRUE(engine.StartLogging());
    for (int n = 0; n < kMessages; ++n) {
      clock_->Advance(100);
      const auto data_id = static_cast<std::uint16_t>(n);
      EXPECT_TRUE(engine.WriteData(MakeMessage(gps.client_id, data_id, Payload('g', n))));
      EXPECT_TRUE(engine.WriteData(MakeMessage(can.client_id, data_id, Payload('c', n))));
      EXPECT_TRUE(engine.WriteData(MakeMessage(radar.client_id, data_id, Payload('r', n))));
      EXPECT_FALSE(engine.WriteData(MakeMessage(silent.client_id, data_id, "unheard")));
    }
    ASSERT_TRUE(engine.StopLogging());
    clock_->Settle();
    ASSERT_TRUE(stream->Close());
  }

  static void ExpectAllOf(const RecordingClient& client, char mark, std::uint16_t recorded_id) {
    const std::vector<Delivery> deliveries = client.Deliveries();
    ASSERT_EQ(deliveries.size(), std::size_t{kMessages}) << mark;
    for (int n = 0; n < kMessages; ++n) {
      const Delivery expected{recorded_id, static_cast<std::uint16_t>(n), Payload(mark, n)};
      EXPECT_EQ(deliveries[static_cast<std::size_t>(n)], expected) << mark << n;
    }
  }

  ManualClock clock_;
  Thread::ThreadModule threads_;
  String path_;
};

TEST_P(RecordAndPullTest, GivesEveryPayloadBackToTheClientsOfTheSameNames) {
  ASSERT_NO_FATAL_FAILURE(Record());

  KestravImpl engine;
  RecordingClient other(L"Other");
  RecordingClient can(L"CAN bus");
  RecordingClient gps(L"GPS");
  RecordingClient second_gps(L"GPS");
  RecordingClient silent(L"Silent");
  NotificationLog notifications;
  ASSERT_TRUE(engine.Init(&threads_, L"Player"));
  for (IClient* client : {&other, &can, &gps, &second_gps, &silent}) {
    ASSERT_TRUE(engine.RegisterClient(client));
  }
  const auto observer = [&](const NotificationInfo& info) { notifications.SendNotification(info); };
  ASSERT_NE(engine.notifier.Connect(observer), 0u);
  const auto stream = std::make_shared<Io::BufferedFileInputStream>();
  ASSERT_TRUE(stream->Open(path_));
  ASSERT_TRUE(engine.SetPlaybackMode(PlaybackModePolling));
  ASSERT_TRUE(engine.SetPlaybackInputStream(stream));
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  ASSERT_TRUE(engine.GetPlaybackAttributes(length_ms, size, clients));
  EXPECT_EQ(length_ms, kMessages * 100u);
  EXPECT_EQ(size, stream->Position() + stream->Remaining());
  EXPECT_THAT(clients, UnorderedElementsAre(L"CAN bus", L"GPS"));
  for (const String& client : clients) ASSERT_TRUE(engine.SelectForPlayback(client));

  ASSERT_TRUE(engine.StartPlayback());
  int calls = 0;
  while (engine.PlaybackNextMessage()) ++calls;
  EXPECT_EQ(calls, 2 * kMessages + 1);  // the last one tells that the log has ended
  EXPECT_THAT(notifications.TakeIds(), ElementsAre(2, 8, 3));
  EXPECT_EQ(gps.client_id, 23);  // 22 when it was recorded
  ExpectAllOf(gps, 'g', 22);
  ExpectAllOf(second_gps, 'g', 22);
  ExpectAllOf(can, 'c', 23);
  EXPECT_TRUE(silent.Deliveries().empty());
  EXPECT_TRUE(other.Deliveries().empty());
}

INSTANTIATE_TEST_SUITE_P(Log, RecordAndPullTest, ::testing::Bool(),
                         [](const auto& log) { return log.param ? "Scrambled" : "Plain"; });

}  // namespace
}  // namespace kestrav::test
