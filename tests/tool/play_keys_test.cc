#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "play_log.h"
#include "pty.h"
#include "run.h"

namespace kestrav::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// The tool plays a log of ten minutes to a person at a terminal. Its records go to a file.
class PlayKeys : public ::testing::Test {
 protected:
  ~PlayKeys() override { close(out_); }

  Process Play(const Arguments& more = {}) {
    const Process tool(PlayArguments(log_, more),
                       {.in = pty_.Tool(), .out = out_, .err = pty_.Tool()});
    EXPECT_TRUE(pty_.ShowsNext("playing  1x")) << pty_.Screen();
    return tool;
  }

  void Press(char key, const std::string& shown) {
    pty_.Press(key);
    EXPECT_TRUE(pty_.ShowsNext(shown)) << key << " " << pty_.Screen();
  }

  std::string Output() const { return ReadFile(folder_.Path("out")); }

  // The names of the notifications without those that a timer sends.
  std::vector<std::string> Notifications() const {
    std::vector<std::string> names;
    for (const nlohmann::json& line : ParseLines(Output())) {
      if (IsDelivery(line) || line["notification"] == 11) continue;
      std::string name = line["name"];
      if (line["notification"] == 12) name += " " + line["speed"].dump();
      names.push_back(name);
    }
    return names;
  }

  const Folder folder_;
  const std::string log_ = WriteLog(folder_, LongLog(600));
  const int out_ = open(folder_.Path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  Pty pty_;
  const std::string settings_ = pty_.Settings();
};

TEST_F(PlayKeys, DriveThePlayback) {
  const Process tool = Play({"--from", "300", "--rewind", "100"});
  EXPECT_TRUE(pty_.ShowsNext("5:00 / 10:00  [###############---------------]  ? help"));
  Press(' ', "paused  0x");
  Press(' ', "playing  1x");
  Press('f', "playing  2x");
  Press('f', "playing  4x");
  Press('f', "playing  10x");
  Press('f', "playing  1x");
  Press('r', "playing  1x  3:2");
  Press('x', "playing");
  Press('?', "space pause or resume, f faster (1, 2, 4, 10, 1, ...), r back, q stop, ? this help");
  pty_.Press('q');
  EXPECT_EQ(tool.Wait(), 0);
  const std::vector<std::string> expected = {
      "NotifyPlaybackSpeed 1",  "NotifyPlaybackStarted", "NotifyPlaybackSpeed 1",
      "NotifyPlaybackSpeed 0",  "NotifyPlaybackPaused",  "NotifyPlaybackResumed",
      "NotifyPlaybackSpeed 1",  "NotifyPlaybackSpeed 2", "NotifyPlaybackSpeed 4",
      "NotifyPlaybackSpeed 10", "NotifyPlaybackSpeed 1", "NotifyPlaybackSpeed 0",
      "NotifyRewindStarted",    "NotifyPlaybackSpeed 1", "NotifyRewindFinished",
      "NotifyPlaybackStopped"};
  EXPECT_EQ(Notifications(), expected);
}

TEST_F(PlayKeys, TakeTheTerminalAndGiveItBackAfterQ) {
  const Process tool = Play();
  EXPECT_FALSE(pty_.EchoesAndWaitsForLines());
  pty_.Press('q');
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_EQ(pty_.Settings(), settings_);
  EXPECT_TRUE(pty_.Screen().ends_with("\r\x1b[K")) << "the status line stayed";
}

TEST_F(PlayKeys, GiveTheTerminalBackWhenTheLogEnds) {
  const Process tool = Play({"--from", "599"});
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_EQ(pty_.Settings(), settings_);
  EXPECT_THAT(Notifications(), ::testing::Contains("NotifyEndOfLog"));
}

TEST_F(PlayKeys, GiveTheTerminalBackWhenThePlaybackFails) {
  const Process tool(PlayArguments(log_, {"--client", "CAN"}),
                     {.in = pty_.Tool(), .out = out_, .err = pty_.Tool()});
  EXPECT_EQ(tool.Wait(), 1);
  EXPECT_EQ(pty_.Settings(), settings_);
  EXPECT_EQ(pty_.Screen(), "kestrav: play: " + log_ + ": there is no client 'CAN' in it\r\n");
}

TEST_F(PlayKeys, GiveTheTerminalBackWhileTheProgramIsStopped) {
  const Process tool = Play();
  tool.Signal(SIGTSTP);
  int status = 0;
  ASSERT_GT(waitpid(-1, &status, WUNTRACED), 0);
  ASSERT_TRUE(WIFSTOPPED(status));
  EXPECT_EQ(pty_.Settings(), settings_);
  static_cast<void>(pty_.Screen());
  tool.Signal(SIGCONT);
  Press('f', "playing  2x");
  EXPECT_FALSE(pty_.EchoesAndWaitsForLines());
  pty_.Press('q');
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_EQ(pty_.Settings(), settings_);
}

struct Ending {
  int signal;
  int code;
};

class PlayKeysAndASignal : public PlayKeys, public ::testing::WithParamInterface<Ending> {};

TEST_P(PlayKeysAndASignal, GiveTheTerminalBack) {
  const Process tool = Play();
  EXPECT_FALSE(pty_.EchoesAndWaitsForLines());
  tool.Signal(GetParam().signal);
  EXPECT_EQ(tool.Wait(), GetParam().code);
  EXPECT_EQ(pty_.Settings(), settings_);
  EXPECT_TRUE(pty_.Screen().ends_with("\r\x1b[K")) << "the status line stayed";
  if (GetParam().code == 0) {
    EXPECT_EQ(Notifications().back(), "NotifyPlaybackStopped");
  }
}

INSTANTIATE_TEST_SUITE_P(Signals, PlayKeysAndASignal,
                         ::testing::Values(Ending{SIGINT, 0}, Ending{SIGTERM, 0}, Ending{SIGHUP, 0},
                                           Ending{SIGABRT, 128 + SIGABRT},
                                           Ending{SIGQUIT, 128 + SIGQUIT}),
                         [](const auto& instance) {
                           return std::string(sigabbrev_np(instance.param.signal));
                         });

class PlayStatusLine : public ::testing::TestWithParam<unsigned short> {};

TEST_P(PlayStatusLine, IsShorterThanTheTerminalIsWide) {
  const Folder folder;
  Pty pty(GetParam());
  const Process tool({"play", WriteLog(folder, LongLog(600))},
                     {.in = pty.Tool(), .err = pty.Tool()});
  EXPECT_TRUE(pty.ShowsNext("play"));
  EXPECT_TRUE(pty.ShowsNext("play"));
  pty.Press('q');
  EXPECT_EQ(tool.Wait(), 0);
  std::string screen = pty.Screen();
  for (std::size_t at; (at = screen.find("\x1b[K")) != std::string::npos;) screen.erase(at, 3);
  std::istringstream updates(screen);
  std::size_t count = 0;
  for (std::string update; std::getline(updates, update, '\r'); ++count) {
    EXPECT_LT(update.size(), GetParam()) << update;
  }
  EXPECT_GT(count, 2U);
}

INSTANTIATE_TEST_SUITE_P(Columns, PlayStatusLine, ::testing::Values(8, 12, 30, 40, 47, 80),
                         ::testing::PrintToStringParamName());

TEST(PlayToATerminal, KeepsTheStatusLineBelowTheRecords) {
  const Folder folder;
  Pty pty;
  const Process tool({"play", WriteLog(folder, LongLog(600))},
                     {.in = pty.Tool(), .out = pty.Tool(), .err = pty.Tool()});
  EXPECT_TRUE(pty.ShowsNext("\r\x1b[K     "));
  EXPECT_TRUE(pty.ShowsNext("1.000  GPS      2  fix\r\nplaying  1x  0:0"));
  pty.Press('q');
  EXPECT_EQ(tool.Wait(), 0);
}

TEST(PlayToAPipe, LeavesTheTerminalAlone) {
  const Folder folder;
  Pty pty;
  const std::string settings = pty.Settings();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Process tool({"play", WriteLog(folder, TimedLog({0, 60}, 60))},
                     {.in = pty.Tool(), .out = ends[1], .err = pty.Tool()});
  EXPECT_EQ(tool.Wait(), 0);
  close(ends[1]);
  char buffer[4096];
  const ssize_t got = read(ends[0], buffer, sizeof(buffer));
  close(ends[0]);
  ASSERT_GT(got, 0);
  const std::string out(buffer, static_cast<std::size_t>(got));
  EXPECT_EQ(Lines(out).size(), 2U) << out;
  EXPECT_THAT(out, Not(HasSubstr("\x1b")));
  EXPECT_EQ(pty.Screen(), "");
  EXPECT_EQ(pty.Settings(), settings);
}

}  // namespace
}  // namespace kestrav::test
