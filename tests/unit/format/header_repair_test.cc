#include "kestrav/format/header_repair.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "kestrav/format/stream_header.h"
#include "support/log_builder.h"
#include "support/short_memory.h"
#include "support/watchdog.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

constexpr std::size_t kHeader = 128;
constexpr std::uint8_t kKeys[] = {0, 0x35, 0xFF};

std::string AsText(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// What the repair may change, little-endian as it stands in the file.
struct Summary {
  std::uint32_t selection = 0;
  std::uint32_t duration = 0;
  std::uint32_t length = 0;
};

std::string Put(std::string log, const Summary& summary) {
  const auto put = [&](std::size_t at, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) log[at++] = static_cast<char>(value >> (8 * i));
  };
  put(8, summary.selection, 2);
  put(12, summary.duration, 4);
  put(16, summary.length, 4);
  return log;
}

// The header of a recording that still runs, with all bytes that are not its business set.
std::string Unfinished(const LogBuilder& builder) {
  std::string log = Put(AsText(builder.Build()), {0x4242, 0, 0});
  for (std::size_t i = 28; i < kHeader; ++i) log[i] = static_cast<char>(i);
  return log;
}

// Three records, 1000 to 3456 ms, on a start clock of 1000.
LogBuilder SmallLog(std::uint8_t header_key = 0, std::uint8_t data_key = 0) {
  LogBuilder log(header_key, data_key);
  log.StartClock(1000);
  return log.Record(0, 1, 1000, "a").Record(3, 1, 1500, "bb").Record(21, 1, 3456, "ccc");
}

class HeaderRepair : public testing::Test {
 protected:
  // Expects that nothing but these fields changes.
  void ExpectRepaired(const std::string& log, const Summary& summary) {
    WriteFile(path_, log);
    EXPECT_TRUE(RepairBinaryLogStreamHeader(Wide(path_).c_str()));
    EXPECT_EQ(FileContent(path_), Put(log, summary));
  }
  void ExpectRefused(const std::string& content) {
    WriteFile(path_, content);
    const auto written = std::filesystem::last_write_time(path_);
    EXPECT_FALSE(RepairBinaryLogStreamHeader(Wide(path_).c_str()));
    EXPECT_EQ(FileContent(path_), content);
    EXPECT_EQ(std::filesystem::last_write_time(path_), written);
  }

  const TempDir dir_;
  const std::filesystem::path path_ = dir_ / "a.klog";
};

TEST_F(HeaderRepair, WorksTheSummaryOutAndLeavesEveryOtherByte) {
  for (const std::uint8_t key : kKeys) {
    const LogBuilder log = SmallLog(key, static_cast<std::uint8_t>(key / 2));
    ExpectRepaired(Unfinished(log), {0x8009, 2456, static_cast<std::uint32_t>(log.Size())});
  }
}

TEST_F(HeaderRepair, MayBeRepeatedAndReplacesAnyWrongSummary) {
  const LogBuilder log = SmallLog();
  const Summary right{0x8009, 2456, static_cast<std::uint32_t>(log.Size())};
  ExpectRepaired(Put(Unfinished(log), {0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF}), right);
  ExpectRepaired(FileContent(path_), right);
}

TEST_F(HeaderRepair, OfALogWithoutRecordsGivesItsHeaderAlone) {
  const LogBuilder log = LogBuilder().StartClock(77);
  ExpectRepaired(Unfinished(log), {0, 0, 128});
  ExpectRepaired(Unfinished(log) + std::string(19, '\0'), {0, 0, 128});
  ExpectRepaired(Unfinished(log) + std::string(500, '\0'), {0, 0, 128});
}

TEST_F(HeaderRepair, EndsBehindTheLastWholeRecordWhereverTheLogIsCut) {
  for (const std::uint8_t key : kKeys) {
    const LogBuilder log = SmallLog(key, key);
    const std::string whole = Unfinished(log);
    const auto offset = [&](std::size_t n) {
      return static_cast<std::uint32_t>(log.RecordOffset(n));
    };
    for (std::size_t size = kHeader; size < whole.size(); ++size) {
      const Summary summary = size < offset(1)   ? Summary{0, 0, 128}
                              : size < offset(2) ? Summary{1, 0, offset(1)}
                                                 : Summary{9, 500, offset(2)};
      ExpectRepaired(whole.substr(0, size), summary);
    }
  }
}

TEST_F(HeaderRepair, RefusesALogThatIsCutWithinItsHeader) {
  const std::string whole = Unfinished(SmallLog());
  for (std::size_t size = 0; size < kHeader; ++size) ExpectRefused(whole.substr(0, size));
}

TEST_F(HeaderRepair, RefusesWhatIsNoLog) {
  ExpectRefused("log:" + Unfinished(SmallLog()).substr(4));
  ExpectRefused(std::string(5000, 'x'));
  ExpectRefused(std::string(5000, '\0'));
}

TEST_F(HeaderRepair, CountsARecordWithADamagedPayloadAsGood) {
  for (const std::uint8_t key : kKeys) {
    LogBuilder log = SmallLog(key, key);
    log.Flip(log.Size() - 1).Flip(log.RecordOffset(1) + 20);
    ExpectRepaired(Unfinished(log), {0x8009, 2456, static_cast<std::uint32_t>(log.Size())});
  }
}

TEST_F(HeaderRepair, FindsItsWayAcrossDamagedHeadersOfAPlainLog) {
  LogBuilder log = SmallLog();
  log.Flip(log.RecordOffset(1) + 8);
  ExpectRepaired(Unfinished(log), {0x8001, 2456, static_cast<std::uint32_t>(log.Size())});
  log.Flip(log.RecordOffset(2));
  ExpectRepaired(Unfinished(log), {1, 0, static_cast<std::uint32_t>(log.RecordOffset(1))});
}

TEST_F(HeaderRepair, RefusesALogWhoseLastRecordIsOlderThanItsStart) {
  ExpectRefused(Unfinished(SmallLog().Record(1, 1, 999, "late")));
  const LogBuilder back_again = SmallLog().Record(1, 1, 999, "late").Record(1, 1, 1000, "end");
  ExpectRepaired(Unfinished(back_again),
                 {0x800B, 0, static_cast<std::uint32_t>(back_again.Size())});
}

TEST_F(HeaderRepair, ReachesTheEndsOfTheClock) {
  LogBuilder log;
  log.StartClock(0).Record(1, 1, 0xFFFFFFFF, "x");
  ExpectRepaired(Unfinished(log), {2, 0xFFFFFFFF, static_cast<std::uint32_t>(log.Size())});
  log.StartClock(0xFFFFFFFF);
  ExpectRepaired(Unfinished(log), {2, 0, static_cast<std::uint32_t>(log.Size())});
}

TEST_F(HeaderRepair, RefusesAStartTimeOf0) {
  std::string log = Unfinished(SmallLog());
  log.replace(4, 4, 4, '\0');
  ExpectRefused(log);
  log[7] = '\x80';  // the last second of 32 bits is far away, but a time
  ExpectRepaired(log, {0x8009, 2456, static_cast<std::uint32_t>(log.size())});
}

TEST_F(HeaderRepair, WalksLogsAndPayloadsThatAreLongerThanItsBuffer) {
  LogBuilder log(7, 9);
  log.StartClock(5);
  for (std::uint32_t i = 0; i < 500; ++i)
    log.Record(2, 1, 5 + i, std::string(1 + i * 7 % 300, 'p'));
  log.Record(2, 1, 1000, std::string(20'000, 'L')).Record(2, 1, 1005, "end");
  ExpectRepaired(Unfinished(log), {4, 1000, static_cast<std::uint32_t>(log.Size())});
}

TEST_F(HeaderRepair, TouchesNothingWithoutAPath) {
  EXPECT_FALSE(RepairBinaryLogStreamHeader(nullptr));
  EXPECT_FALSE(RepairBinaryLogStreamHeader(L""));
}

TEST_F(HeaderRepair, NeedsARegularFileThatIsThereAndMakesNone) {
  const Watchdog watchdog(std::chrono::seconds(30), "a pipe without a writer");
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string dangling = dir_ / "dangling";
  std::filesystem::create_symlink(dir_ / "nowhere", dangling);
  for (const std::string& path : {std::string(dir_ / "missing"), dir_.Path().string(), fifo,
                                  dangling, std::string("/dev/null"), std::string("/dev/zero")}) {
    EXPECT_FALSE(RepairBinaryLogStreamHeader(Wide(path).c_str())) << path;
  }
  EXPECT_FALSE(std::filesystem::exists(dir_ / "missing"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "nowhere"));
}

TEST_F(HeaderRepair, FollowsASymbolicLinkAndKeepsTheFileWhatItIs) {
  const std::string log = Unfinished(SmallLog());
  WriteFile(path_, log);
  std::filesystem::permissions(path_, std::filesystem::perms(0604));
  struct stat before {};
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  std::filesystem::create_symlink(path_, dir_ / "link");
  EXPECT_TRUE(RepairBinaryLogStreamHeader(Wide(dir_ / "link").c_str()));
  struct stat after {};
  ASSERT_EQ(lstat(path_.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_size, before.st_size);
  EXPECT_NE(FileContent(path_), log);
}

TEST_F(HeaderRepair, TakesNamesInAnyScript) {
  const std::filesystem::path path = dir_ / "L\xC3\xB6g \xF0\x9F\x9A\x97.klog";
  WriteFile(path, Unfinished(SmallLog()));
  EXPECT_TRUE(
      RepairBinaryLogStreamHeader((Wide(dir_.Path()) + L"/L\u00F6g \U0001F697.klog").c_str()));
}

// As somebody to whom the file's permissions apply.
class AsOrdinaryUser {
 public:
  AsOrdinaryUser() { EXPECT_EQ(seteuid(before_ == 0 ? 65534 : before_), 0); }
  ~AsOrdinaryUser() { EXPECT_EQ(seteuid(before_), 0); }
  AsOrdinaryUser(const AsOrdinaryUser&) = delete;
  AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;

 private:
  const uid_t before_ = geteuid();
};

TEST_F(HeaderRepair, RefusesAFileThatMayNotBeWrittenOrRead) {
  const std::string log = Unfinished(SmallLog());
  std::filesystem::permissions(dir_.Path(), std::filesystem::perms(0755));
  for (const auto permissions : {std::filesystem::perms(0444), std::filesystem::perms(0222)}) {
    std::filesystem::remove(path_);
    WriteFile(path_, log);
    std::filesystem::permissions(path_, permissions);
    bool repaired = true;
    {
      const AsOrdinaryUser user;
      repaired = RepairBinaryLogStreamHeader(Wide(path_).c_str());
    }
    EXPECT_FALSE(repaired);
    std::filesystem::permissions(path_, std::filesystem::perms(0644));
    EXPECT_EQ(FileContent(path_), log);
  }
}

// A file in memory that lets itself be opened for writing and refuses each write.
TEST_F(HeaderRepair, TellsWhenTheWriteFails) {
  const std::string log = Unfinished(SmallLog());
  const int file = memfd_create("log", MFD_ALLOW_SEALING | MFD_CLOEXEC);
  ASSERT_GE(file, 0);
  ASSERT_EQ(write(file, log.data(), log.size()), static_cast<ssize_t>(log.size()));
  const std::string path = "/proc/self/fd/" + std::to_string(file);
  ASSERT_EQ(fcntl(file, F_ADD_SEALS, F_SEAL_WRITE), 0);
  EXPECT_FALSE(RepairBinaryLogStreamHeader(Wide(path).c_str()));
  EXPECT_EQ(FileContent(path), log);
  close(file);
}

TEST_F(HeaderRepair, ShortOfMemoryLeavesTheFileOrRepairsIt) {
  const std::string log = Unfinished(SmallLog());
  const std::string repaired = Put(log, {0x8009, 2456, static_cast<std::uint32_t>(log.size())});
  const String path = Wide(path_);
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    WriteFile(path_, log);
    bool done = false;
    was_short = RanShort(grants, [&] { done = RepairBinaryLogStreamHeader(path.c_str()); });
    // Without memory for a thread that syncs, the file is synced where it is closed.
    EXPECT_TRUE(done || was_short) << grants;
    EXPECT_EQ(FileContent(path_), done ? repaired : log) << grants;
  }
  EXPECT_GT(grants, 4u);
}

// The system's count of this process's calls that write. Empty: the system does not count.
std::string WriteCalls() {
  std::ifstream file("/proc/self/io");
  for (std::string word; file >> word;) {
    if (word == "syscw:" && file >> word) return word;
  }
  return {};
}

TEST_F(HeaderRepair, WritesOnce) {
  // Whether an object is what it seems to be, that sanitizer finds out by writing to a pipe.
  if (std::string_view(KESTRAV_SANITIZE).find("undefined") != std::string_view::npos) {
    GTEST_SKIP() << "the calls of the undefined-behaviour sanitizer would be counted too";
  }
  WriteFile(path_, Unfinished(SmallLog()));
  const String path = Wide(path_);
  const std::string before = WriteCalls();
  if (before.empty()) GTEST_SKIP() << "this system does not count the calls that write";
  ASSERT_TRUE(RepairBinaryLogStreamHeader(path.c_str()));
  EXPECT_EQ(std::stoull(WriteCalls()), std::stoull(before) + 1);
}

// Breaks the log's header and repairs it until it is killed.
[[noreturn]] void RepairForEver(const String& path, const std::string& broken, int ready) {
  const std::string name = Text::ToUtf8(path);
  bool told = false;
  for (;;) {
    const int file = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    const bool put = pwrite(file, broken.data(), kHeader, 0) == ssize_t{kHeader};
    close(file);
    if (!put || !RepairBinaryLogStreamHeader(path.c_str())) _exit(1);
    if (!told && write(ready, "", 1) != 1) _exit(1);
    told = true;
  }
}

TEST_F(HeaderRepair, KilledAtAnyMomentLeavesTheOldHeaderOrTheNew) {
  const std::string broken = Unfinished(SmallLog());
  const std::string repaired =
      Put(broken, {0x8009, 2456, static_cast<std::uint32_t>(broken.size())});
  WriteFile(path_, broken);
  const String path = Wide(path_);
  std::mt19937 random(20010909);
  int left_repaired = 0;
  constexpr int kKills = 60;
  for (int i = 0; i < kKills; ++i) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) RepairForEver(path, broken, ready[1]);
    ASSERT_GT(child, 0);
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    const timespec moment{0, static_cast<long>(random() % 1'000'000)};
    nanosleep(&moment, nullptr);
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the repair failed";
    const std::string left = FileContent(path_);
    left_repaired += left == repaired ? 1 : 0;
    ASSERT_TRUE(left == broken || left == repaired) << i;
  }
  RecordProperty("left_repaired", left_repaired);
}

}  // namespace
}  // namespace kestrav::test
