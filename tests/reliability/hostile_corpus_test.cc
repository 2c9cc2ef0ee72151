#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/clients/dictionary_record.h"
#include "kestrav/format/decoder.h"
#include "kestrav/format/header_repair.h"
#include "kestrav/host/io/memory_stream.h"
#include "kestrav/playback/normal_playback.h"
#include "kestrav/playback/pass_through_playback.h"
#include "kestrav/playback/polling_playback.h"
#include "kestrav/rescue/recovery.h"
#include "reliability/hostile_logs.h"
#include "support/manual_clock.h"
#include "support/notification_log.h"
#include "support/parsed_log.h"
#include "support/recording_client.h"
#include "support/short_memory.h"
#include "support/watchdog.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

constexpr double kMostReads = 75;  // of each byte of the log
constexpr std::chrono::seconds kHang{60};
constexpr std::size_t kStreamHeader = 128;

// What all walks over one log cost at most.
struct Cost {
  double buffer = 0;  // the largest, as a part of what was left of the log
  double reads = 0;   // of a byte of the log

  void Add(const Cost& other) {
    buffer = std::max(buffer, other.buffer);
    reads = std::max(reads, other.reads);
  }
};

// Takes steps until one is no success.
template <class Step>
Cost Walk(const SmartPtr::Ptr<Io::IInputStream>& stream, const Step& step) {
  BinaryDecoder decoder(stream);
  decoder.SetPlaybackSelection(ClientIdSet(0x5555'5555'5555'5555 | 0x1028));
  static_cast<void>(decoder.Initialize());
  Cost cost;
  for (ResultCode result = kSuccess; result == kSuccess;) {
    const std::uint32_t remaining = decoder.GetRemainingBytes();
    const LargestAllocation largest;
    result = step(decoder);
    const auto bytes = static_cast<double>(largest.Bytes());
    if (bytes > 0) cost.buffer = std::max(cost.buffer, remaining > 0 ? bytes / remaining : bytes);
  }
  return cost;
}

// The same walk by reading and by looking into memory.
template <class Step>
Cost WalkBothWays(const Bytes& log, const Step& step) {
  const auto read = std::make_shared<BytesInputStream>(log);
  Cost cost = Walk(read, step);
  if (!log.empty()) {
    cost.reads = static_cast<double>(read->bytes_read) / static_cast<double>(log.size());
  }
  const auto size = static_cast<std::uint32_t>(log.size());
  cost.Add(Walk(std::make_shared<Io::MemoryInputStream>(log.data(), size), step));
  return cost;
}

Cost WalkEveryWay(const Bytes& log) {
  LogMessage message;
  BinaryLogRecordHeader header;
  Cost cost =
      WalkBothWays(log, [&](BinaryDecoder& decoder) { return decoder.GetNextLogRecord(message); });
  cost.Add(WalkBothWays(
      log, [&](BinaryDecoder& decoder) { return decoder.GetNextPlaybackMessage(message); }));
  cost.Add(WalkBothWays(
      log, [&](BinaryDecoder& decoder) { return decoder.GetNextLogRecordHeader(header); }));
  return cost;
}

class HostileCorpus : public testing::TestWithParam<HostileLog> {
 public:
  static void TearDownTestSuite() {
    if (logs_ == 0) return;  // another test alone was asked for
    std::printf(
        "[figure] hostile corpus: %d logs, largest decode buffer %.3f of the remaining bytes, "
        "at most %.1f bytes read per byte of the file\n",
        logs_, whole_.buffer, whole_.reads);
  }

 protected:
  const Bytes& Log() const { return GetParam().bytes; }

  inline static Cost whole_;
  inline static int logs_ = 0;

 private:
  const Watchdog watchdog_{kHang, GetParam().name};
};

INSTANTIATE_TEST_SUITE_P(Logs, HostileCorpus, testing::ValuesIn(HostileLogs()),
                         [](const auto& test) { return test.param.name; });

TEST_P(HostileCorpus, IsDecodedInBoundedMemoryAndReads) {
  const Cost cost = WalkEveryWay(Log());
  whole_.Add(cost);
  ++logs_;
  EXPECT_LE(cost.buffer, 1.0);
  EXPECT_LE(cost.reads, kMostReads);
}

// Clients of which a log may know some, and a playback of it.
template <class Playback>
struct Player {
  Player() {
    for (RecordingClient* client : {&gps, &can, &radio, &last}) {
      EXPECT_TRUE(manager.RegisterClient(client));
    }
  }

  // Selects what the log offers, as its first record and its stream header tell.
  void Select(const Bytes& log) {
    ASSERT_TRUE(playback.SetInputStream(std::make_shared<BytesInputStream>(log)));
    std::uint32_t length_ms = 0;
    std::uint32_t size = 0;
    std::uint16_t mask = 0;
    Memory::MemBlock payload;
    Dictionary dictionary;
    if (!playback.GetPlaybackAttributes(length_ms, size, mask, payload, kInfoClientId) ||
        !InfoClientUtility::ReadDictionaryData(dictionary, payload)) {
      dictionary = {{L"GPS", 3}, {L"CAN", 5}};
    }
    std::vector<String> offered;
    static_cast<void>(manager.UpdatePlaybackClientList(offered, dictionary, mask));
    for (const String& name : offered) EXPECT_TRUE(manager.SelectForPlayback(name));
  }
  bool Start() { return playback.StartPlayback(&manager, &notifications, owner, L"Playback"); }

  // The ids under which the selected clients were recorded.
  ClientIdSet Selection() const {
    ClientIdSet ids;
    for (std::uint16_t id = 0; id < kClientIdLimit; ++id) {
      if (manager.IsDictionaryIdSelectedForPlayback(id)) ids.Add(id);
    }
    return ids;
  }

  std::vector<Delivery> Deliveries() const {
    std::vector<Delivery> all;
    for (const RecordingClient* client : {&gps, &can, &radio, &last}) {
      const std::vector<Delivery> some = client->Deliveries();
      all.insert(all.end(), some.begin(), some.end());
    }
    return all;
  }

  RecordingClient gps{L"GPS", 3};
  RecordingClient can{L"CAN", 5};
  RecordingClient radio{L"Radio"};
  RecordingClient last{L"Last"};
  ClientManager manager;
  NotificationLog notifications;
  Thread::ThreadModule owner;
  Playback playback;
};

// How many records the normal mode delivers: it reads one ahead, and one that cannot be read or is
// older than the one before ends it at once.
std::size_t RecordsInNormalMode(const Bytes& log, const ClientIdSet& selection) {
  BinaryDecoder decoder(std::make_shared<BytesInputStream>(log));
  if (!decoder.Initialize()) return 0;
  decoder.SetPlaybackSelection(selection);
  LogMessage message;
  std::uint32_t last = decoder.StreamHeader().start_clock;
  ResultCode result = kSuccess;
  std::size_t records = 0;
  while ((result = decoder.GetNextPlaybackMessage(message)) == kSuccess) {
    if (static_cast<std::int32_t>(message.time_stamp - last) < 0) break;
    last = message.time_stamp;
    ++records;
  }
  return result == kNotEnoughData || records == 0 ? records : records - 1;
}

TEST_P(HostileCorpus, IsPlayedToAnEndInPollingAndNormalMode) {
  ManualClock clock;
  Player<BinaryPlaybackNormalImpl> normal;
  normal.Select(Log());
  EXPECT_TRUE(normal.Start());
  clock->Settle();
  while (normal.playback.GetPlaybackStatus() == PlaybackPlaying && clock->AdvanceToNextDue()) {
  }
  const PlaybackStatusType status = normal.playback.GetPlaybackStatus();
  EXPECT_THAT(status, testing::AnyOf(PlaybackOff, PlaybackFinished));
  normal.playback.StopPlayback(true);

  Player<BinaryPlaybackPollingImpl> polling;
  polling.Select(Log());
  const bool started = polling.Start();
  std::size_t records = started ? RecordsInNormalMode(Log(), polling.Selection()) : 0;
  for (; records > 0; --records) {
    EXPECT_TRUE(polling.playback.PlaybackNextMessage());
  }
  EXPECT_EQ(normal.Deliveries(), polling.Deliveries());
  while (polling.playback.GetPlaybackStatus() == PlaybackPlaying) {
    static_cast<void>(polling.playback.PlaybackNextMessage());
  }
  EXPECT_THAT(polling.playback.GetPlaybackStatus(),
              testing::AnyOf(PlaybackOff, started ? PlaybackFinished : PlaybackOff));
}

TEST_P(HostileCorpus, IsTakenPieceByPiece) {
  Player<BinaryPlaybackPassThroughImpl> player;
  ASSERT_TRUE(player.Start());
  BinaryDecoder decoder(std::make_shared<BytesInputStream>(Log()));
  static_cast<void>(decoder.Initialize());
  std::size_t from = 0;
  std::size_t to = std::min(Log().size(), kStreamHeader);
  BinaryLogRecordHeader header;
  for (bool taken = true; taken;) {
    Memory::MemBlock piece;
    ASSERT_TRUE(piece.Assign(Log().data() + from, static_cast<std::uint32_t>(to - from)));
    taken = player.playback.PlaybackData(piece);
    if (from == 0) {
      EXPECT_EQ(taken, decoder.StreamHeader().magic == kStreamMagic && to == kStreamHeader);
    }
    from = to;
    if (from == Log().size()) break;
    const ResultCode result = decoder.GetNextLogRecordHeader(header);
    to = result == kSuccess ? decoder.Getoffset() : Log().size();
  }
  player.playback.StopPlayback(true);
  EXPECT_TRUE(player.playback.IsPlaybackOff());
  EXPECT_LE(player.Deliveries().size(), Log().size() / 21 * 4);
}

TEST_P(HostileCorpus, IsRepairedInItsSummaryAloneOrNotAtAll) {
  const TempDir folder;
  const std::filesystem::path path = folder / "log.klog";
  std::string expected(Log().begin(), Log().end());
  WriteFile(path, expected);
  const bool repaired = RepairBinaryLogStreamHeader(Wide(path).c_str());
  std::string content = FileContent(path);
  ASSERT_EQ(content.size(), expected.size());
  if (repaired) {
    ASSERT_GE(content.size(), kStreamHeader);
    // Selection, duration and length.
    for (const auto& [at, size] : {std::pair(8u, 2u), std::pair(12u, 8u)}) {
      content.replace(at, size, size, '\0');
      expected.replace(at, size, size, '\0');
    }
  }
  EXPECT_EQ(content, expected);
}

TEST_P(HostileCorpus, IsRecoveredToALogThatIsReadToItsEnd) {
  BytesOutputStream out;
  RecoveryReport report;
  const RecoveryResult result = RecoverLog(Log(), &out, report);
  const Bytes recovered = out.Content();
  if (result == RecoveryResult::kNothingFound) {
    EXPECT_TRUE(recovered.empty());
    EXPECT_EQ(report.records, 0u);
    return;
  }
  EXPECT_THAT(result, testing::AnyOf(RecoveryResult::kWhole, RecoveryResult::kDamaged));
  // The strictest reading there is: no byte that belongs to no record, no gap, every checksum
  // right.
  const ParsedLog parsed = ParseLog(recovered);
  EXPECT_EQ(parsed.error, "");
  EXPECT_EQ(parsed.stream_length, recovered.size());
  EXPECT_EQ(parsed.records.size(), report.records + (report.dictionary_moved ? 1u : 0u));
}

}  // namespace
}  // namespace kestrav::test
