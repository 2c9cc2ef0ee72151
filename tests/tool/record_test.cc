#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "records.h"
#include "run.h"

namespace kestrav::test {
namespace {

using std::string_view_literals::operator""sv;

// The test's end and the tool's end of a pseudo terminal.
class Terminal {
 public:
  Terminal() {
    EXPECT_EQ(grantpt(here_), 0);
    EXPECT_EQ(unlockpt(here_), 0);
    there_ = open(ptsname(here_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(there_, 0);
  }
  ~Terminal() {
    close(here_);
    close(there_);
  }

  int Tool() const { return there_; }

  // What has been written so far.
  std::string Read() const {
    char buffer[4096];
    const ssize_t got = read(here_, buffer, sizeof(buffer));
    return got > 0 ? std::string(buffer, static_cast<std::size_t>(got)) : std::string();
  }

 private:
  int here_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  int there_ = -1;
};

std::string RecordedLines(const std::string& log) {
  const Result result = RunTool({"cat", "--format", "raw", "--client", "Lines", log});
  EXPECT_EQ(result.code, 0) << result.err;
  return result.out;
}

Arguments RecordTo(const std::string& log) { return {"record", "-o", log, "Lines=lines:-"}; }

class RecordUntilTheEnd : public ::testing::TestWithParam<bool> {};

TEST_P(RecordUntilTheEnd, KeepsEveryLineOfStandardInput) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  Arguments arguments = RecordTo(log);
  if (GetParam()) arguments.emplace_back("--plain");
  std::string input = "first\r\n\nsecond ";
  input += '\0';
  input += "\xFF\n \nlast";
  const Result result = RunTool(arguments, input);
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(RecordedLines(log), "first\nsecond \0\xFF\n \nlast\n"sv);
  EXPECT_EQ(RecordsOf(log, "Lines").front().data_id, 1U);
  const Result info = RunTool({"info", "--scan", "--json", log});
  EXPECT_EQ(info.code, 0);
  const auto json = nlohmann::json::parse(info.out);
  EXPECT_EQ(json["data_key"] == 0, GetParam());
  EXPECT_EQ(json["stream_length"], json["file_size"]);
  EXPECT_EQ(json["dictionary"]["Lines"], 21);
}

INSTANTIATE_TEST_SUITE_P(Scrambling, RecordUntilTheEnd, ::testing::Bool(),
                         [](const auto& instance) {
                           return instance.param ? "Plain" : "Scrambled";
                         });

class RecordUntilASignal : public ::testing::TestWithParam<int> {};

TEST_P(RecordUntilASignal, FinishesTheLog) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Process process(RecordTo(log), {.in = ends[0]});
  // More than the pipe holds: once all of it is written, the tool records.
  std::string input;
  for (int i = 0; i < 2000; ++i) input += std::to_string(i) + std::string(100, '.') + "\n";
  ASSERT_EQ(write(ends[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
  process.Signal(GetParam());
  EXPECT_EQ(process.Wait(), 0);
  close(ends[0]);
  close(ends[1]);

  EXPECT_EQ(RunTool({"info", "--scan", log}).code, 0);
  std::string recorded = RecordedLines(log);
  recorded.pop_back();  // the signal may have come within a line
  EXPECT_GT(recorded.size(), input.size() / 2);
  EXPECT_TRUE(input.starts_with(recorded));
}

INSTANTIATE_TEST_SUITE_P(Signals, RecordUntilASignal, ::testing::Values(SIGINT, SIGTERM),
                         [](const auto& instance) {
                           return instance.param == SIGINT ? "Int" : "Term";
                         });

TEST(Record, ShowsItsStatusOnATerminal) {
  const Folder folder;
  const Terminal terminal;
  EXPECT_EQ(Process(RecordTo(folder.Path("o.klog")), {.err = terminal.Tool()}).Wait(), 0);
  EXPECT_THAT(terminal.Read(), ::testing::HasSubstr("recording 0:00  0 records  0 bytes"));
}

TEST(Record, SaysThatNotEverythingCouldBeWritten) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  const Result result = RunWithFileLimit(1, RecordTo(log), std::string(1000, 'x'));
  EXPECT_EQ(result.code, 1);
  // How many depends on what was flushed with what.
  EXPECT_THAT(result.err, ::testing::MatchesRegex("kestrav: record: " + log +
                                                  ": File too large; (1 record is|3 records are) "
                                                  "missing\n"));
}

TEST(Record, RefusesWrongUsage) {
  const Folder folder;
  const std::string log = folder.Path("o.klog");
  for (const Arguments& arguments : {Arguments{"record"},
                                     {"record", "-o", log},
                                     {"record", "Abc=lines:-"},
                                     {"record", "-o", log, "lines:-"},
                                     {"record", "-o", log, "Abc=lines:file"},
                                     {"record", "-o", log, "Ab=lines:-"},
                                     {"record", "-o", log, "Abc=nmea:-"},
                                     {"record", "-o", log, "Abc=lines:-", "Abd=lines:-"}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(arguments);
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
    EXPECT_FALSE(Exists(log));
  }
}

TEST(Record, NamesALogThatCannotBeCreated) {
  const Result missing = RunTool(RecordTo("/nowhere/o.klog"));
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.err, "kestrav: record: /nowhere/o.klog: No such file or directory\n");
  EXPECT_EQ(RunTool(RecordTo("/dev/full")).err, "kestrav: record: /dev/full: not a regular file\n");
}

TEST(Progress, IsShownOnATerminalAlone) {
  const Folder folder;
  const std::string source = "candump:" KESTRAV_SOURCE_DIR "/data/can-falcon.log";
  const Arguments arguments = {"import", "-o", folder.Path("o.klog"), source};
  const Terminal terminal;
  EXPECT_EQ(Process(arguments, {.err = terminal.Tool()}).Wait(), 0);
  EXPECT_THAT(terminal.Read(), ::testing::HasSubstr("8,192 records"));
  EXPECT_EQ(RunTool(arguments).err, "");
}

}  // namespace
}  // namespace kestrav::test
