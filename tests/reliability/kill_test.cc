#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kestrav/format/decoder.h"
#include "kestrav/format/header_repair.h"
#include "kestrav/host/io/file_stream.h"
#include "reliability/doomed_recorder.h"
#include "reliability/log_path.h"
#include "support/parsed_log.h"

namespace kestrav::test {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

using Counts = VouchedPayload::Counts;

constexpr std::size_t kWriters = VouchedPayload::kWriters;
constexpr std::uint32_t kKills = 200;
// A message that waits for the next one gets it after ten seconds: the repeated dictionary.
constexpr seconds kPatience{5};
constexpr std::uint32_t kRecordHeader = 20;
constexpr std::size_t kStreamHeader = 128;

std::uint32_t Sum(const Counts& counts) {
  std::uint32_t sum = 0;
  for (const std::uint32_t count : counts) sum += count;
  return sum;
}

template <class Condition>
bool WaitUntil(Condition condition) {
  const auto end = steady_clock::now() + kPatience;
  while (!condition()) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(microseconds(100));
  }
  return true;
}

// A process that records, in its own process so that it can be killed.
class Victim {
 public:
  Victim(const String& path, std::uint32_t seed, bool scrambled) {
    process_ = ::fork();
    if (process_ == 0) RecordUntilKilled(path, seed, scrambled, *progress_);
  }
  ~Victim() { Kill(); }
  Victim(const Victim&) = delete;
  Victim& operator=(const Victim&) = delete;

  // false: it could not.
  bool WaitUntilRecording() {
    return process_ > 0 && WaitUntil([this] { return progress_->stage != Progress::kStarting; }) &&
           progress_->stage == Progress::kRecording;
  }

  // Lets the writers end. false: they do not.
  bool Rest() {
    progress_->rest_wanted = true;
    return WaitUntil([this] { return progress_->resting == kWriters; });
  }

  // Whether it lived until now.
  bool Kill() {
    if (process_ <= 0) return false;
    ::kill(process_, SIGKILL);
    int status = 0;
    const bool waited = ::waitpid(process_, &status, 0) == process_;
    process_ = 0;
    return waited && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL &&
           progress_->stage != Progress::kFailed;
  }

  Counts Begun() const { return Take(&Progress::Writer::begun); }
  Counts Accepted() const { return Take(&Progress::Writer::accepted); }
  Counts LetGo() const { return Take(&Progress::Writer::let_go); }
  Counts Written() const { return Take(&Progress::Writer::written); }

 private:
  Counts Take(std::atomic<std::uint32_t> Progress::Writer::*what) const {
    Counts counts = {};
    for (std::size_t i = 0; i < kWriters; ++i) counts[i] = progress_->writers[i].*what;
    return counts;
  }

  SharedProgress progress_;
  pid_t process_ = 0;
};

// All kills together.
struct Totals {
  std::uint64_t accepted = 0;
  std::uint64_t lost = 0;
  std::uint64_t lost_at_most = 0;  // in one kill
  std::uint64_t lost_quiet = 0;    // of the quiet writer
  std::uint64_t lost_at_rest = 0;
  int at_rest = 0;
  int cut = 0;    // a record was
  int empty = 0;  // the system had not got a byte yet
};

class KillTest : public ::testing::Test {
 protected:
  KillTest() : name_(LogPath("kill")), path_(Text::FromUtf8(name_)) {}
  ~KillTest() override { std::remove(name_.c_str()); }

  Bytes ReadFile() const {
    std::ifstream file(name_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  // Records and kills once, and looks at what is left.
  void KillOnce(std::uint32_t seed) {
    std::remove(name_.c_str());
    std::mt19937 random(seed);
    const bool at_rest = seed % 4 == 3;
    Victim victim(path_, seed, seed % 2 == 0);
    // Now and then before the log runs.
    const bool early = seed % 8 == 0;
    ASSERT_TRUE(early || victim.WaitUntilRecording());
    std::this_thread::sleep_for(microseconds(random() % (early ? 5'000 : 30'000)));
    if (at_rest) WaitUntilAllIsOnFile(victim);
    if (HasFatalFailure()) return;
    ASSERT_TRUE(victim.Kill());

    Counts found = {};
    const Bytes left = ReadFile();
    if (left.size() < kStreamHeader) {
      ++totals_.empty;
      EXPECT_FALSE(RepairBinaryLogStreamHeader(path_.c_str()));
      EXPECT_EQ(ReadFile(), left);
    } else {
      ASSERT_NO_FATAL_FAILURE(RepairAndRead(left, found));
    }
    ExpectFoundWhatItMust(victim, found);
    Count(victim, found, at_rest);
  }

  // With nobody writing any more, all that was accepted gets to the system.
  void WaitUntilAllIsOnFile(Victim& victim) {
    ASSERT_TRUE(victim.Rest());
    const auto all_is_on_file = [&] {
      Counts found = {};
      ReadMessages(ParseLog(ReadFile()), found);
      return found == victim.Accepted();
    };
    ASSERT_TRUE(WaitUntil(all_is_on_file)) << "a message waits for the next one";
  }

  // The repaired log, read by the library and independently of it.
  void RepairAndRead(const Bytes& left, Counts& found) {
    ASSERT_TRUE(RepairBinaryLogStreamHeader(path_.c_str()));
    const Bytes repaired = ReadFile();
    ASSERT_EQ(repaired.size(), left.size());
    EXPECT_TRUE(
        std::equal(left.begin() + kStreamHeader, left.end(), repaired.begin() + kStreamHeader));
    const ParsedLog log = ParseLog(repaired);
    if (!log.error.empty()) {
      ++totals_.cut;
      ASSERT_NE(log.error.find(": cut "), std::string::npos) << log.error;
    }
    std::size_t whole = kStreamHeader;
    for (const ParsedRecord& record : log.records) whole += kRecordHeader + record.payload.size();
    EXPECT_EQ(log.stream_length, whole);
    EXPECT_EQ(CountByDecoder(), log.records.size());
    ASSERT_NO_FATAL_FAILURE(ReadMessages(log, found));
  }

  std::size_t CountByDecoder() const {
    const auto file = std::make_shared<Io::BufferedFileInputStream>();
    EXPECT_TRUE(file->Open(path_));
    BinaryDecoder decoder(file);
    EXPECT_TRUE(decoder.Initialize());
    LogMessage message;
    std::size_t records = 0;
    while (decoder.GetNextLogRecord(message) == kSuccess) ++records;
    return records;
  }

  // Every message as it was written, each writer's without a gap, and each behind all those that
  // had been accepted before it was handed over.
  static void ReadMessages(const ParsedLog& log, Counts& found) {
    for (const ParsedRecord& record : log.records) {
      if (record.client_id == kInfoClient) continue;
      const auto payload = VouchedPayload::Decode(record.payload);
      ASSERT_TRUE(payload) << "a message that nobody has written";
      ASSERT_EQ(payload->number, found[payload->writer]) << "of writer " << payload->writer;
      for (std::size_t i = 0; i < kWriters; ++i) {
        ASSERT_LE(payload->seen[i], found[i]) << "of writer " << i << " at the time of message "
                                              << payload->number << " of " << payload->writer;
      }
      ++found[payload->writer];
    }
  }

  // What the system has taken is there. Of what the recorder had made records of no more is lost
  // than a stream buffers while the queue does not run dry. The rest was queued.
  static void ExpectFoundWhatItMust(const Victim& victim, const Counts& found) {
    std::size_t lost_from_buffer = 0;
    for (std::uint32_t i = 0; i < kWriters; ++i) {
      EXPECT_GE(found[i], victim.Written()[i]) << "writer " << i;
      EXPECT_LE(found[i], victim.Begun()[i]) << "writer " << i;
      for (std::uint32_t number = found[i]; number < victim.LetGo()[i]; ++number) {
        lost_from_buffer += kRecordHeader + VouchedPayload::Size(i, number);
      }
    }
    EXPECT_LE(lost_from_buffer, Io::kFileBufferBytes);
  }

  void Count(const Victim& victim, const Counts& found, bool at_rest) {
    const Counts accepted = victim.Accepted();
    Counts lost = {};
    for (std::size_t i = 0; i < kWriters; ++i)
      lost[i] = accepted[i] - std::min(accepted[i], found[i]);
    totals_.accepted += Sum(accepted);
    totals_.lost += Sum(lost);
    totals_.lost_at_most = std::max<std::uint64_t>(totals_.lost_at_most, Sum(lost));
    totals_.lost_quiet += lost[0];
    if (!at_rest) return;
    ++totals_.at_rest;
    totals_.lost_at_rest += Sum(lost);
  }

  static constexpr int kInfoClient = 12;

  const std::string name_;
  const String path_;
  Totals totals_;
};

TEST_F(KillTest, LeavesAPrefixOfWhatWasAcceptedAndLosesOnlyWhatWasQueued) {
  const auto start = steady_clock::now();
  for (std::uint32_t seed = 0; seed < kKills; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ASSERT_NO_FATAL_FAILURE(KillOnce(seed));
    ASSERT_FALSE(HasNonfatalFailure());
  }
  EXPECT_EQ(totals_.lost_at_rest, 0u);
  EXPECT_GT(totals_.accepted, 1000u * kKills / 10);
  const auto took = std::chrono::duration_cast<seconds>(steady_clock::now() - start);
  std::printf(
      "[figure] kill -9: %u kills in %lld s (%d at rest, %d before the first write), accepted "
      "%llu, "
      "lost %llu (most in one kill %llu, of the quiet writer %llu, at rest %llu), cut records %d\n",
      kKills, static_cast<long long>(took.count()), totals_.at_rest, totals_.empty,
      static_cast<unsigned long long>(totals_.accepted),
      static_cast<unsigned long long>(totals_.lost),
      static_cast<unsigned long long>(totals_.lost_at_most),
      static_cast<unsigned long long>(totals_.lost_quiet),
      static_cast<unsigned long long>(totals_.lost_at_rest), totals_.cut);
}

}  // namespace
}  // namespace kestrav::test
