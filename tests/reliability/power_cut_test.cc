#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/format/decoder.h"
#include "kestrav/format/header_repair.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/memory_stream.h"
#include "kestrav/rescue/recovery.h"
#include "reliability/file_history.h"
#include "reliability/log_path.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/parsed_log.h"
#include "support/recording_client.h"

namespace kestrav::test {
namespace {

using Records = std::vector<ParsedRecord>;

constexpr std::uint32_t kSessions = 100;  // each with its seed
constexpr std::uint32_t kCutsPerSession = 5;
constexpr std::uint32_t kCuts = kSessions * kCutsPerSession;
constexpr std::uint32_t kSyncIntervalMs = 1000;
constexpr int kMessages = 120;  // in about five seconds
constexpr std::size_t kStreamHeader = 128;
constexpr std::size_t kRecordHeader = 20;

unsigned long long Count(std::uint64_t count) { return count; }

// How many of a log's records are whole in its first `size` bytes.
std::size_t CountWithin(const Records& records, std::size_t size) {
  std::size_t count = 0;
  for (std::size_t at = kStreamHeader; count < records.size(); ++count) {
    at += kRecordHeader + records[count].payload.size();
    if (at > size) break;
  }
  return count;
}

// How many of a log's records from number `first` on stand undamaged in what is left of it.
std::size_t CountIntact(const Records& records, std::size_t first, const Bytes& log,
                        const Bytes& left) {
  std::size_t count = 0;
  std::size_t at = kStreamHeader;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::size_t end = at + kRecordHeader + records[i].payload.size();
    const auto from = static_cast<std::ptrdiff_t>(at);
    const auto to = static_cast<std::ptrdiff_t>(end);
    const bool intact = i >= first && end <= left.size() &&
                        std::equal(log.begin() + from, log.begin() + to, left.begin() + from);
    if (intact) ++count;
    at = end;
  }
  return count;
}

// All power cuts together.
struct Totals {
  std::uint64_t safe = 0;              // records of what was synced
  std::uint64_t beyond = 0;            // accepted later
  std::uint64_t intact_beyond = 0;     // of these: all bytes are on the disk
  std::uint64_t found_beyond = 0;      // by playback, of what was not synced
  std::uint64_t recovered_beyond = 0;  // by the recovery
  std::uint64_t wrong = 0;             // damaged, and played all the same
  std::uint64_t wrongly_recovered = 0;
  std::uint32_t oldest_lost_ms = 0;
};

class PowerCutTest : public ::testing::Test {
 protected:
  PowerCutTest() : name_(LogPath("power")), path_(Text::FromUtf8(name_)) {}
  ~PowerCutTest() override { std::remove(name_.c_str()); }

  // Records to a file from start to stop.
  void Record(bool scrambled, std::mt19937& random) {
    KestravImpl engine;
    RecordingClient client(L"Writer", kClientId);
    ASSERT_TRUE(engine.Init(&threads_, L"Recorder") && engine.EnableEncryption(scrambled));
    ASSERT_TRUE(engine.RegisterClient(&client) && engine.SelectForLogging(L"Writer"));
    const auto stream = std::make_shared<Io::BufferedFileOutputStream>(
        Io::FileOutputSettings{.sync_interval_ms = kSyncIntervalMs});
    ASSERT_TRUE(stream->Open(path_, Io::OpenMode::kCreate));
    ASSERT_TRUE(engine.SetLoggingOutputStream(stream) && engine.StartLogging());
    clock_->Settle();
    for (int n = 0; n < kMessages; ++n) {
      clock_->Advance(static_cast<std::uint32_t>(random() % 80));
      const auto size = 10 + random() % (n % 20 == 0 ? 30'000 : 500);
      std::string payload = std::to_string(n);
      auto filler = random();
      while (payload.size() < size) {
        filler = filler * 0x41C64E6D + 12345;
        payload += static_cast<char>(filler >> 16);
      }
      ASSERT_TRUE(engine.WriteData(MakeMessage(client.client_id, 1, payload)));
    }
    ASSERT_TRUE(engine.StopLogging());
    clock_->Settle();
    ASSERT_TRUE(stream->Close());
  }

  void CutPowerOften(std::uint32_t session) {
    std::mt19937 random(session);
    FileHistory history;
    ASSERT_NO_FATAL_FAILURE(Record(session % 2 == 0, random));
    history.Close();
    const Bytes bytes = history.At(history.Moments() - 1);
    const ParsedLog log = ParseLog(bytes);
    ASSERT_EQ(log.error, "");
    ASSERT_EQ(log.PayloadsOf(kClientId).size(), std::size_t{kMessages});
    for (std::uint32_t cut = 0; cut < kCutsPerSession; ++cut) {
      SCOPED_TRACE("cut " + std::to_string(cut));
      ASSERT_NO_FATAL_FAILURE(CutPower(history, bytes, log.records, random));
    }
  }

  void CutPower(const FileHistory& history, const Bytes& bytes, const Records& records,
                std::mt19937& random) {
    const std::size_t moment = 1 + random() % (history.Moments() - 1);
    const Bytes synced = history.At(history.SyncedAt(moment));
    const Bytes disk = history.AfterPowerCut(moment, random);
    const std::size_t safe = CountWithin(records, synced.size());
    const std::size_t accepted = CountWithin(records, history.At(moment).size());
    totals_.safe += safe;
    totals_.beyond += accepted - safe;
    ExpectLossWithinTheInterval(records, safe, accepted, history.TimeMs(moment));
    totals_.intact_beyond += CountIntact(records, safe, bytes, disk);
    ASSERT_NO_FATAL_FAILURE(Repair(disk, records, safe));
    ASSERT_NO_FATAL_FAILURE(Recover(disk, records, safe));
  }

  // Whatever is older than a sync interval when the power fails is safe.
  void ExpectLossWithinTheInterval(const Records& records, std::size_t safe, std::size_t accepted,
                                   std::uint32_t now_ms) {
    if (safe >= accepted) return;
    const std::uint32_t age_ms = now_ms - records[safe].time_ms;
    EXPECT_LE(age_ms, kSyncIntervalMs);
    totals_.oldest_lost_ms = std::max(totals_.oldest_lost_ms, age_ms);
  }

  // The damage is at the end, so playback finds everything in front of it.
  void Repair(const Bytes& disk, const Records& records, std::size_t safe) {
    std::ofstream(name_, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(disk.data()),
               static_cast<std::streamsize>(disk.size()));
    const bool repaired = RepairBinaryLogStreamHeader(path_.c_str());
    ASSERT_TRUE(repaired || safe == 0);
    if (!repaired) return;
    const auto file = std::make_shared<Io::BufferedFileInputStream>();
    ASSERT_TRUE(file->Open(path_));
    BinaryDecoder decoder(file);
    ASSERT_TRUE(decoder.Initialize());
    EXPECT_GE(decoder.StreamHeader().stream_length, kStreamHeader);
    Records found;
    LogMessage message;
    while (decoder.GetNextLogRecord(message) == kSuccess) found.push_back(Take(message));
    Compare(found, records, safe, totals_.found_beyond, totals_.wrong);
  }

  void Recover(const Bytes& disk, const Records& records, std::size_t safe) {
    BytesOutputStream out;
    RecoveryReport report;
    const RecoveryResult result = RecoverLog(disk, &out, report);
    if (result == RecoveryResult::kNothingFound) {
      EXPECT_EQ(safe, 0u);
      return;
    }
    ASSERT_TRUE(result == RecoveryResult::kWhole || result == RecoveryResult::kDamaged);
    const ParsedLog log = ParseLog(out.Content());
    ASSERT_EQ(log.error, "");
    Compare(log.records, records, safe, totals_.recovered_beyond, totals_.wrongly_recovered);
  }

  static ParsedRecord Take(const LogMessage& message) {
    return {message.GetClientID(), message.GetDataID(), message.time_stamp,
            std::string(reinterpret_cast<const char*>(message.GetDataPointer()),
                        message.GetDataSize())};
  }

  // All safe records first. Behind them each record is a later one that was written, or is counted
  // as wrong: damage passes the eight bits of a checksum once in 256 times.
  static void Compare(const Records& found, const Records& records, std::size_t safe,
                      std::uint64_t& beyond, std::uint64_t& wrong) {
    ASSERT_GE(found.size(), safe);
    for (std::size_t i = 0; i < safe; ++i) ASSERT_EQ(found[i], records[i]) << "record " << i;
    auto next = records.begin() + static_cast<std::ptrdiff_t>(safe);
    for (std::size_t i = safe; i < found.size(); ++i) {
      const auto at = std::find(next, records.end(), found[i]);
      ++(at != records.end() ? beyond : wrong);
      if (at != records.end()) next = at + 1;
    }
  }

  static constexpr std::uint16_t kClientId = 5;

  const std::string name_;
  const String path_;
  ManualClock clock_;
  Thread::ThreadModule threads_;
  Totals totals_;
};

TEST_F(PowerCutTest, LeavesWhatWasSyncedAndLosesNothingOlderThanTheSyncInterval) {
  for (std::uint32_t session = 0; session < kSessions; ++session) {
    SCOPED_TRACE("session " + std::to_string(session));
    ASSERT_NO_FATAL_FAILURE(CutPowerOften(session));
    ASSERT_FALSE(HasNonfatalFailure());
  }
  EXPECT_GT(totals_.safe, kCuts * kMessages / 4);
  EXPECT_GT(totals_.beyond, kCuts);
  EXPECT_GE(totals_.recovered_beyond * 100, totals_.intact_beyond * 99);
  EXPECT_LE(totals_.wrong, kCuts / 100);
  EXPECT_LE(totals_.wrongly_recovered, kCuts / 100);
  std::printf(
      "[figure] power cut: %u cuts, sync interval %u ms: all %llu synced records back, oldest loss "
      "%u ms; of %llu later records %llu are intact, playback finds %llu, the recovery %llu; "
      "damaged ones that pass "
      "their checksum: %llu played, %llu recovered\n",
      kCuts, kSyncIntervalMs, Count(totals_.safe), totals_.oldest_lost_ms, Count(totals_.beyond),
      Count(totals_.intact_beyond), Count(totals_.found_beyond), Count(totals_.recovered_beyond),
      Count(totals_.wrong), Count(totals_.wrongly_recovered));
}

}  // namespace
}  // namespace kestrav::test
