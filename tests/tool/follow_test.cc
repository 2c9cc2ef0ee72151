#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "records.h"
#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {
namespace {

constexpr std::size_t kHeaderSize = 128;
constexpr std::size_t kLengthOffset = 16;

std::string AsText(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// A file that grows step by step, as a recorder's does.
class GrowingFile {
 public:
  GrowingFile(const Folder& folder, const std::string& content)
      : path_(folder.Write("grows.klog", content)),
        file_(open(path_.c_str(), O_WRONLY | O_CLOEXEC)) {
    EXPECT_GE(file_, 0);
  }
  ~GrowingFile() { close(file_); }
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;

  const std::string& Path() const { return path_; }

  void Append(const std::string& bytes) const {
    EXPECT_GE(lseek(file_, 0, SEEK_END), 0);
    EXPECT_EQ(write(file_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void WriteHeader(const std::string& header) const {
    EXPECT_EQ(pwrite(file_, header.data(), header.size(), 0), static_cast<ssize_t>(header.size()));
  }
  void Truncate(std::size_t size) const {
    EXPECT_EQ(ftruncate(file_, static_cast<off_t>(size)), 0);
  }

 private:
  const std::string path_;
  const int file_;
};

// `kestrav cat --follow`, with its output in a pipe and its errors in a file.
class Following {
 public:
  Following(const Folder& folder, const std::string& log, const Arguments& more = {})
      : err_path_(folder.Write("err", "")) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    out_ = ends[0];
    const int err = open(err_path_.c_str(), O_WRONLY | O_CLOEXEC);
    Arguments arguments = {"cat", "--follow", "--format", "raw", log};
    arguments.insert(arguments.end(), more.begin(), more.end());
    process_.emplace(arguments, Process::Streams{.out = ends[1], .err = err});
    close(ends[1]);
    close(err);
  }
  ~Following() { CloseOutput(); }
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

  // What comes up to the end of the line, or of the output.
  std::string ReadLine() {
    std::string line;
    char c = 0;
    while (IsReadable() && read(out_, &c, 1) == 1) {
      line += c;
      if (c == '\n') break;
    }
    return line;
  }

  void CloseOutput() {
    if (out_ >= 0) close(out_);
    out_ = -1;
  }
  void Signal(int signal) const { process_->Signal(signal); }
  int Wait() const { return process_->Wait(); }
  std::string Errors() const { return ReadFile(err_path_); }

 private:
  bool IsReadable() const {
    pollfd wait = {out_, POLLIN, 0};
    const bool readable = poll(&wait, 1, 60'000) == 1;
    EXPECT_TRUE(readable) << "nothing came within a minute";
    return readable;
  }

  const std::string err_path_;
  int out_ = -1;
  std::optional<Process> process_;
};

// A log of `count` records "r0", "r1", ... and what follows from it.
struct Log {
  explicit Log(std::size_t count, std::uint8_t key = 0) : builder(key, key) {
    builder.StartClock(1000).Dictionary({{"GPS", 21}}, 1000);
    for (std::size_t i = 0; i < count; ++i) {
      builder.Record(21, 1, 1000 + 10 * static_cast<std::uint32_t>(i), Payload(i));
    }
    finished = AsText(builder.Build());
    running = finished;
    running.replace(kLengthOffset, 4, 4, '\0');
  }

  static std::string Payload(std::size_t i) { return "r" + std::to_string(i); }
  static std::string Line(std::size_t i) { return Payload(i) + "\n"; }
  // Where record i begins; the dictionary is in front of the first.
  std::size_t Offset(std::size_t i) const { return builder.RecordOffset(i + 1); }

  LogBuilder builder;
  std::string finished;
  std::string running;  // with a stream header as it is before the end
};

class FollowOfALog : public ::testing::TestWithParam<std::uint8_t> {};

// Each step brings the rest of a record and the next one cut at another byte. That the line of the
// first is there says that the tool has met the cut.
TEST_P(FollowOfALog, WaitsForTheRestOfARecordCutAtAnyByte) {
  constexpr std::size_t kCuts = 21;  // within the shortest record
  const Log log(kCuts + 1, GetParam());
  const Folder folder;
  std::size_t written = log.Offset(0) + 1;
  const GrowingFile file(folder, log.running.substr(0, written));
  Following following(folder, file.Path(), {"--client", "GPS"});
  for (std::size_t i = 0; i < kCuts; ++i) {
    const std::size_t next = log.Offset(i + 1) + 1 + i;
    file.Append(log.running.substr(written, next - written));
    written = next;
    EXPECT_EQ(following.ReadLine(), Log::Line(i));
  }
  following.Signal(SIGINT);
  EXPECT_EQ(following.Wait(), 0);
  EXPECT_EQ(following.ReadLine(), "");
  EXPECT_EQ(following.Errors(), "");
}

TEST_P(FollowOfALog, ReadsWhatIsAppendedByteByByteAndEndsWithTheRecording) {
  const Log log(5, GetParam());
  const Folder folder;
  const GrowingFile file(folder, "");
  Following following(folder, file.Path(), {"--client", "GPS"});
  for (const char byte : log.running) file.Append(std::string(1, byte));
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(following.ReadLine(), Log::Line(i));
  file.WriteHeader(log.finished.substr(0, kHeaderSize));
  EXPECT_EQ(following.ReadLine(), "");
  EXPECT_EQ(following.Wait(), 0);
  EXPECT_EQ(following.Errors(), "");
}

// A damaged record is left out when a whole one behind it has come.
TEST_P(FollowOfALog, PassesOverDamageAndSaysSoInTheEnd) {
  Log log(600, GetParam());
  const std::size_t damaged = log.Offset(1) + 20;  // the payload
  log.running[damaged] = static_cast<char>(log.running[damaged] ^ 1);
  const Folder folder;
  const GrowingFile file(folder, log.running.substr(0, log.Offset(0)));
  Following following(folder, file.Path(), {"--client", "21"});
  file.Append(log.running.substr(log.Offset(0), log.Offset(2) - log.Offset(0)));
  EXPECT_EQ(following.ReadLine(), Log::Line(0));
  file.Append(log.running.substr(log.Offset(2)));
  for (std::size_t i = 2; i < 600; ++i) EXPECT_EQ(following.ReadLine(), Log::Line(i));
  following.Signal(SIGTERM);
  EXPECT_EQ(following.Wait(), 3);
  EXPECT_EQ(following.Errors(),
            "kestrav: cat: " + file.Path() + ": 22 bytes damaged in 1 place, 1 record missing\n");
}

INSTANTIATE_TEST_SUITE_P(Scrambling, FollowOfALog, ::testing::Values(0, 0x5A),
                         [](const auto& instance) {
                           return instance.param == 0 ? "Plain" : "Scrambled";
                         });

// Of a damaged header a scrambled log loses more: what is delivered in the end is what `cat`
// delivers of the whole log, however it came.
TEST(Follow, FindsItsWayBehindADamagedHeaderAsCatDoes) {
  Log log(1500, 0x21);
  const std::size_t damaged = log.Offset(3) + 4;
  log.running[damaged] = static_cast<char>(log.running[damaged] ^ 1);
  const Folder folder;
  const Result cat = RunTool(
      {"cat", "--format", "raw", "--client", "GPS", folder.Write("whole.klog", log.running)});
  const std::vector<std::string> lines = Lines(cat.out);
  ASSERT_GT(lines.size(), 100U);
  std::size_t written = log.Offset(4) + 7;
  const GrowingFile file(folder, log.running.substr(0, written));
  Following following(folder, file.Path(), {"--client", "GPS"});
  EXPECT_EQ(following.ReadLine(), lines[0] + "\n");
  for (; written < log.running.size(); written += 777) {
    file.Append(log.running.substr(written, 777));
  }
  for (std::size_t i = 1; i < lines.size(); ++i) EXPECT_EQ(following.ReadLine(), lines[i] + "\n");
  following.Signal(SIGINT);
  EXPECT_EQ(following.Wait(), 3);
}

TEST(Follow, ChoosesByTimeAndClientAndPrintsInTheFormatOfCat) {
  const Log log(4);
  const Folder folder;
  const std::string path = folder.Write("done.klog", log.finished);
  for (const Arguments& more : {Arguments{"--format", "jsonl"},
                                {"--client", "GPS", "--from", "0.01"},
                                {"--to", "0.02"},
                                {}}) {
    Arguments plain = {"cat", path};
    plain.insert(plain.end(), more.begin(), more.end());
    Arguments follow = plain;
    follow.emplace_back("--follow");
    const Result result = RunTool(follow);
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, RunTool(plain).out);
    EXPECT_NE(result.out, "");
  }
}

TEST(Follow, WaitsForTheDictionaryThatNamesTheClient) {
  const Log log(2);
  const Folder folder;
  const GrowingFile file(folder, log.running.substr(0, kHeaderSize));
  Following following(folder, file.Path(), {"--client", "GPS"});
  file.Append(log.running.substr(kHeaderSize));
  EXPECT_EQ(following.ReadLine(), Log::Line(0));
  EXPECT_EQ(following.ReadLine(), Log::Line(1));
  following.Signal(SIGINT);
  EXPECT_EQ(following.Wait(), 0);
}

TEST(Follow, OfAFinishedLogWithoutThatClientFails) {
  const Folder folder;
  const std::string path = folder.Write("done.klog", Log(1).finished);
  const Result result = RunTool({"cat", "--follow", "--client", "CAN", path});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "kestrav: cat: " + path + ": no client 'CAN' in its dictionary\n");
}

TEST(Follow, TellsByItsExitCodeThatTheRecordingEndedInDamage) {
  Log log(3);
  log.finished.back() = static_cast<char>(log.finished.back() ^ 1);
  const Folder folder;
  const std::string path = folder.Write("done.klog", log.finished);
  const Result result = RunTool({"cat", "--follow", "--client", "GPS", "--format", "raw", path});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.err, "kestrav: cat: " + path + ": 22 bytes behind the last whole record\n");
  EXPECT_EQ(result.out, Log::Line(0) + Log::Line(1));
}

TEST(Follow, SaysThatTheLogWasTruncated) {
  const Log log(3);
  const Folder folder;
  const GrowingFile file(folder, log.running);
  Following following(folder, file.Path(), {"--client", "GPS"});
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(following.ReadLine(), Log::Line(i));
  file.Truncate(log.Offset(1));
  EXPECT_EQ(following.Wait(), 3);
  EXPECT_EQ(following.Errors(),
            "kestrav: cat: " + file.Path() + ": was truncated while it was read\n");
}

// A recorder cuts off what a full disk left of a record.
TEST(Follow, DoesNotMindThatACutRecordGoesAgain) {
  const Log log(3);
  const Folder folder;
  const GrowingFile file(folder, log.running.substr(0, log.Offset(1) + 5));
  Following following(folder, file.Path(), {"--client", "GPS"});
  EXPECT_EQ(following.ReadLine(), Log::Line(0));
  file.Truncate(log.Offset(1));
  file.Append(log.running.substr(log.Offset(1)));
  EXPECT_EQ(following.ReadLine(), Log::Line(1));
  EXPECT_EQ(following.ReadLine(), Log::Line(2));
  following.Signal(SIGINT);
  EXPECT_EQ(following.Wait(), 0);
}

TEST(Follow, EndsWhenAnotherFileTakesTheName) {
  const Log log(1);
  const Folder folder;
  for (const bool removed : {false, true}) {
    const GrowingFile file(folder, log.running);
    Following following(folder, file.Path(), {"--client", "GPS"});
    EXPECT_EQ(following.ReadLine(), Log::Line(0));
    if (removed) {
      std::filesystem::remove(file.Path());
    } else {
      std::filesystem::rename(folder.Write("new", Log(2).running), file.Path());
    }
    EXPECT_EQ(following.Wait(), 0);
    EXPECT_EQ(following.Errors(),
              "kestrav: cat: " + file.Path() + ": is another file now, or none\n");
  }
}

TEST(Follow, EndsWhenItsReaderHasGoneWithoutWaitingForARecord) {
  const Log log(1);
  const Folder folder;
  const GrowingFile file(folder, log.running);
  Following following(folder, file.Path(), {"--client", "GPS"});
  EXPECT_EQ(following.ReadLine(), Log::Line(0));
  following.CloseOutput();
  EXPECT_EQ(following.Wait(), 0);
  EXPECT_EQ(following.Errors(), "");
}

TEST(Follow, RefusesWhatIsNoLog) {
  const Folder folder;
  for (const std::string content : {"x", "LOX:"}) {
    const std::string path = folder.Write("no.klog", content);
    const Result result = RunTool({"cat", "--follow", path});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "kestrav: cat: " + path + ": not a log\n");
  }
  EXPECT_EQ(RunTool({"cat", "--follow", folder.Path("none.klog")}).code, 1);
}

TEST(Follow, ReadsALogWhileItIsRecorded) {
  const Folder folder;
  const std::string log = folder.Write("live.klog", "");
  Following following(folder, log, {"--client", "Lines"});
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Process recording({"record", "-o", log, "Lines=lines:-"}, {.in = ends[0]});
  close(ends[0]);
  for (int i = 0; i < 50; ++i) {
    const std::string line = "line " + std::to_string(i) + "\n";
    ASSERT_EQ(write(ends[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    EXPECT_EQ(following.ReadLine(), line);
  }
  close(ends[1]);
  EXPECT_EQ(recording.Wait(), 0);
  EXPECT_EQ(following.ReadLine(), "");
  EXPECT_EQ(following.Wait(), 0);
  EXPECT_EQ(following.Errors(), "");
}

}  // namespace
}  // namespace kestrav::test
