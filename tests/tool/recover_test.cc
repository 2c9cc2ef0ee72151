#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>

#include "cpu_time.h"
#include "pty.h"
#include "run.h"
#include "support/log_builder.h"
#include "support/parsed_log.h"

namespace kestrav::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

ParsedLog Parse(const std::string& path) {
  const std::string text = ReadFile(path);
  return ParseLog({text.begin(), text.end()});
}

LogBuilder SmallLog(std::uint8_t key = 0x2A) {
  LogBuilder log(key, key);
  log.StartClock(1000).Selection(0x9000).Dictionary({{"GPS", 21}, {"CAN", 3}}, 1000);
  for (std::uint32_t n = 1; n <= 20; ++n) {
    log.Record(n % 2 == 0 ? 21 : 3, 7, 1000 + n, "message " + std::to_string(n));
  }
  return log;
}

Bytes Finished(LogBuilder log) { return log.Duration(0).Build(); }

TEST(Recover, AHealthyLogComesOutAsItWas) {
  const Folder folder;
  const std::string content = Text(Finished(SmallLog()));
  const std::string log = folder.Write("a.klog", content);
  const std::string out = folder.Path("b.klog");
  const Result result = RunTool({"recover", log, "-o", out});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, out + ": 21 records, 628 bytes\n");
  EXPECT_EQ(ReadFile(out), content);
}

TEST(Recover, WritesWhatIsWholeAndTellsWhatIsLost) {
  const Folder folder;
  LogBuilder damaged = SmallLog();
  damaged.Flip(1).Flip(10).Flip(damaged.RecordOffset(4) + 8).Flip(damaged.RecordOffset(9) + 22);
  const std::string content = Text(damaged.Build());
  const std::string log = folder.Write("a.klog", content);
  const std::string out = folder.Path("b.klog");
  const Result result = RunTool({"recover", log, "-o", out});
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.out, HasSubstr(out + ": 19 records"));
  EXPECT_THAT(result.out, HasSubstr("the stream header is damaged; its keys follow"));
  EXPECT_THAT(result.out, HasSubstr(": record 4: header damaged, 29 bytes\n"));
  EXPECT_THAT(result.out, HasSubstr(": record 9: payload damaged, 29 bytes\n"));
  EXPECT_EQ(ReadFile(log), content) << "the input stays";
  const ParsedLog parsed = Parse(out);
  EXPECT_EQ(parsed.error, "");
  EXPECT_EQ(parsed.records.size(), 19U);
  EXPECT_EQ(parsed.header_key, 0x2A);
  EXPECT_EQ(RunTool({"check", out}).code, 0);
  EXPECT_EQ(Lines(RunTool({"cat", out}).out).size(), 19U);
}

TEST(Recover, TellsTheSameAsJson) {
  const Folder folder;
  LogBuilder damaged = SmallLog();
  damaged.Flip(damaged.RecordOffset(4) + 8);
  const std::string log = folder.Write("a.klog", Text(damaged.Build()));
  const Result result = RunTool({"recover", log, "-o", folder.Path("b.klog"), "--json"});
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.out, HasSubstr("\"records\": 20"));
  EXPECT_THAT(result.out, HasSubstr("\"what\": \"header\""));
  EXPECT_THAT(result.out, HasSubstr("\"whole\": false"));
}

TEST(Recover, RefusesToWriteOverItsInput) {
  const Folder folder;
  const std::string content = Text(Finished(SmallLog()));
  const std::string log = folder.Write("a.klog", content);
  std::filesystem::create_symlink(log, folder.Path("link.klog"));
  std::filesystem::create_hard_link(log, folder.Path("hard.klog"));
  for (const char* const out : {"a.klog", "link.klog", "hard.klog"}) {
    const Result result = RunTool({"recover", log, "-o", folder.Path(out)});
    EXPECT_EQ(result.code, 2) << out;
    EXPECT_THAT(result.err, HasSubstr("would be overwritten"));
    EXPECT_EQ(ReadFile(log), content);
  }
}

TEST(Recover, LeavesNoOutputWhenItFails) {
  const Folder folder;
  const std::string none = folder.Write("none.klog", std::string(5000, '\0'));
  const std::string log = folder.Write("a.klog", Text(Finished(SmallLog())) + std::string(9, 'x'));
  const std::string out = folder.Path("b.klog");
  const Result nothing = RunTool({"recover", none, "-o", out});
  EXPECT_EQ(nothing.code, 1);
  EXPECT_THAT(nothing.err, HasSubstr("no record found"));
  const Result missing = RunTool({"recover", folder.Path("missing.klog"), "-o", out});
  EXPECT_EQ(missing.code, 1);
  const Result full = RunWithFileLimit(1, {"recover", log, "-o", out});
  EXPECT_EQ(full.code, 1);
  EXPECT_THAT(full.err, HasSubstr("b.klog: "));
  EXPECT_EQ(Lines(full.err).size(), 1U);
  const std::filesystem::directory_iterator files(std::filesystem::path(out).parent_path());
  EXPECT_EQ(std::distance(begin(files), end(files)), 2) << "the two inputs alone";
}

TEST(Recover, TakesWhatTheOutputWasUntilItIsWhole) {
  const Folder folder;
  const std::string none = folder.Write("none.klog", std::string(5000, '\0'));
  const std::string out = folder.Write("b.klog", "precious");
  EXPECT_EQ(RunTool({"recover", none, "-o", out}).code, 1);
  EXPECT_EQ(ReadFile(out), "precious");
}

// On a file system in memory; by the processor's time, so that other work does not count.
TEST(Recover, TakesALongHealthyLogAtSpeed) {
#ifdef NDEBUG
  constexpr double kMegabytes = 200.0;
#else
  constexpr double kMegabytes = 20.0;
#endif
  const std::string memory = "/dev/shm";
  if (access(memory.c_str(), W_OK) != 0) GTEST_SKIP() << "no file system in memory";
  const std::string log = memory + "/kestrav-speed-" + std::to_string(getpid()) + ".klog";
  const std::string out = log + ".out";
  {
    const int file = open(log.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    LogBuilder builder = SmallLog();
    const std::string payload(180, 'p');
    while (static_cast<double>(builder.Size()) < kMegabytes * 1e6)
      builder.Record(3, 7, 2000, payload);
    const Bytes bytes = builder.Build();
    EXPECT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(file);
  }
  const double before = CpuScndsOfChildren();
  const auto start = std::chrono::steady_clock::now();
  const Result result = RunTool({"recover", log, "-o", out});
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  const double cpu = CpuScndsOfChildren() - before;
  std::filesystem::remove(log);
  std::filesystem::remove(out);
  EXPECT_EQ(result.code, 0) << result.err;
  std::cout << "[figure] recover, healthy log of " << kMegabytes
            << " MB in memory: " << kMegabytes / cpu << " MB a second of processor time, "
            << kMegabytes / wall.count() << " MB a second of the clock\n";
#ifdef NDEBUG
  const bool is_measured = std::string(KESTRAV_SANITIZE).empty();
  EXPECT_TRUE(!is_measured || kMegabytes / cpu >= 500);
#endif
}

// A sparse log, so that the search has time to be interrupted in.
TEST(Recover, EndsWithALineWhenItsInputIsCutOffUnderIt) {
  const Folder folder;
  const std::string log = folder.Write("a.klog", Text(Finished(SmallLog())));
  std::filesystem::resize_file(log, 3'000'000'000);
  const std::string err = folder.Write("err", "");
  const int file = open(err.c_str(), O_WRONLY | O_CLOEXEC);
  const Process process({"recover", log, "-o", folder.Path("b.klog")}, {-1, -1, file});
  while (true) {  // until it has its output, so has mapped its input
    bool started = false;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(log).parent_path())) {
      started |= entry.path().extension() == ".part";
    }
    if (started) break;
    usleep(100);
  }
  std::filesystem::resize_file(log, 4096);
  EXPECT_EQ(process.Wait(), 1);
  close(file);
  EXPECT_EQ(ReadFile(err), "kestrav: " + log + ": can no longer be read\n");
  EXPECT_FALSE(Exists(folder.Path("b.klog")));
}

TEST(Check, SaysThatAHealthyLogIs) {
  const Folder folder;
  const std::string log = folder.Write("a.klog", Text(Finished(SmallLog())));
  const Result result = RunTool({"check", log});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, log + ": healthy, 21 records\n");
}

TEST(Check, SaysWhatIsDamagedWhere) {
  const Folder folder;
  LogBuilder damaged = SmallLog(0);
  const std::size_t header = damaged.RecordOffset(4);
  const std::size_t payload = damaged.RecordOffset(9);
  const std::size_t gap = damaged.RecordOffset(15);
  damaged.Flip(header + 8).Flip(payload + 22).Zero(gap + 1, damaged.RecordOffset(17) - gap);
  damaged.Raw({0, 0, 0});
  const std::string log = folder.Write("a.klog", Text(damaged.Build()));
  const Result result = RunTool({"check", log});
  EXPECT_EQ(result.code, 3);
  const std::string place = "offset ";
  EXPECT_THAT(result.out, HasSubstr(log + ": damaged\n"));
  EXPECT_THAT(result.out, HasSubstr("not finished, the recording was cut off"));
  EXPECT_THAT(result.out, HasSubstr(place + std::to_string(header) + ": record 4: header damaged"));
  EXPECT_THAT(result.out,
              HasSubstr(place + std::to_string(payload) + ": record 9: payload damaged"));
  EXPECT_THAT(result.out,
              HasSubstr(place + std::to_string(gap) + ": 3 records missing, from index 15 on"));
  EXPECT_THAT(result.out, HasSubstr("3 bytes behind the last record"));
  EXPECT_THAT(result.out, HasSubstr("playback delivers 16 records: CAN "));
  EXPECT_THAT(result.out, HasSubstr("kestrav recover would bring back 16 records"));
}

TEST(Check, TellsWhatPlaybackMissesOfAScrambledLog) {
  const Folder folder;
  LogBuilder damaged = SmallLog();
  damaged.Flip(damaged.RecordOffset(4) + 8);
  const std::string log = folder.Write("a.klog", Text(damaged.Build()));
  const Result result = RunTool({"check", log});
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.out, HasSubstr("playback delivers 4 records"));
  EXPECT_THAT(result.out, HasSubstr("would bring back 20 records"));
}

TEST(Check, TellsOfEachLogEvenIfOneCannotBeRead) {
  const Folder folder;
  const std::string log = folder.Write("a.klog", Text(Finished(SmallLog())));
  const std::string junk = folder.Write("junk", "no log");
  const Result result = RunTool({"check", folder.Path("missing"), junk, log});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("missing: "));
  EXPECT_THAT(result.out, HasSubstr(junk + ": damaged\n  stream header: cut off\n"));
  EXPECT_THAT(result.out, HasSubstr(log + ": healthy"));
  EXPECT_EQ(RunTool({"check", junk}).code, 3);
}

TEST(Check, TellsOfTimeThatGoesBackAndOfAWrongLength) {
  const Folder folder;
  LogBuilder older = SmallLog();
  older.Record(3, 7, 900, "older");
  const std::string back = folder.Write("back.klog", Text(Finished(older)));
  EXPECT_THAT(RunTool({"check", back}).out,
              HasSubstr("record 21: 120 ms older than the record before it"));
  EXPECT_EQ(RunTool({"check", back}).code, 3);
  std::string wrong = Text(Finished(SmallLog()));
  wrong[16] = static_cast<char>(wrong[16] - 1);
  const std::string length = folder.Write("length.klog", wrong);
  EXPECT_THAT(RunTool({"check", length}).out,
              HasSubstr("states a length of 755 bytes, the records end at 756"));
}

TEST(Check, TellsTheSameAsJson) {
  const Folder folder;
  LogBuilder damaged = SmallLog();
  damaged.Flip(damaged.RecordOffset(4) + 8);
  const std::string log = folder.Write("a.klog", Text(damaged.Build()));
  const Result result = RunTool({"check", log, "--json"});
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.out, HasSubstr("\"healthy\": false"));
  EXPECT_THAT(result.out, HasSubstr("\"what\": \"header\""));
  EXPECT_THAT(result.out, Not(IsEmpty()));
}

// Progress is shown there, also of nothing.
TEST(CheckAndRecover, SayOnATerminalThatAnEmptyFileIsNoLog) {
  const Folder folder;
  const std::string log = folder.Write("empty.klog", "");
  for (const Arguments& arguments :
       {Arguments{"check", log}, Arguments{"recover", log, "-o", folder.Path("o.klog")}}) {
    const Pty terminal;
    const int code = Process(arguments, {.err = terminal.Tool()}).Wait();
    EXPECT_EQ(code, arguments[0] == "check" ? 3 : 1) << arguments[0];
  }
  EXPECT_FALSE(std::filesystem::exists(folder.Path("o.klog")));
}

}  // namespace
}  // namespace kestrav::test
