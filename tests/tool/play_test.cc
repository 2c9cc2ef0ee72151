#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "play_log.h"
#include "run.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using std::string_view_literals::operator""sv;

// The arguments of each way to play a log at once.
const Arguments kWays[] = {
    {"--virtual"}, {"--unpaced"}, {"--mode", "polling"}, {"--mode", "pass-through"}};

LogBuilder SmallLog() {
  LogBuilder log;
  log.StartClock(1000).Duration(63000).Dictionary({{"CAN", 22}, {"Gyro", 40}, {"GPS", 21}}, 1000);
  const std::string_view frame("\x23\x01\x00\x80\x02\0\0\0\xAB\xCD\0\0\0\0\0\0", 16);
  log.Record(21, 1, 1000, "$GPRMC").Record(22, 2, 2500, frame).Record(40, 300, 64000, "\x01\xFF");
  return log;
}

Result Play(const std::string& log, const Arguments& more) {
  return RunTool(PlayArguments(log, more));
}

TEST(Play, PrintsTheRecordsAsTextAndNothingElse) {
  const Folder folder;
  const Result result = RunTool({"play", "--virtual", WriteLog(folder, SmallLog())});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "     0.000       0.000  GPS       1  $GPRMC\n"
            "     1.500       1.500  CAN       2  00000123#ABCD\n"
            "    63.000      63.000  Gyro    300  01ff\n");
}

TEST(Play, PrintsDeliveriesAndNotificationsAsJsonLinesInTheirOrder) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(1000).Duration(50).Dictionary({{"GPS", 21}}, 1000).Record(21, 7, 1050, "abc");
  const Result result = Play(WriteLog(folder, log), {"--virtual", "--speed", "2"});
  EXPECT_THAT(
      Lines(result.out),
      ElementsAre(R"({"wall_ms":0,"notification":12,"name":"NotifyPlaybackSpeed","value":0,)"
                  R"("speed":2,"clients":[]})",
                  R"({"wall_ms":0,"notification":2,"name":"NotifyPlaybackStarted","value":0,)"
                  R"("speed":255,"clients":[21]})",
                  R"({"wall_ms":0,"notification":12,"name":"NotifyPlaybackSpeed","value":0,)"
                  R"("speed":2,"clients":[]})",
                  R"({"wall_ms":25,"notification":12,"name":"NotifyPlaybackSpeed","value":0,)"
                  R"("speed":0,"clients":[]})",
                  R"({"wall_ms":25,"time_ms":1050,"client":"GPS","client_id":21,"data_id":7,)"
                  R"("size":3,"payload":"616263"})",
                  R"({"wall_ms":25,"notification":8,"name":"NotifyEndOfLog","value":0,)"
                  R"("speed":255,"clients":[21]})",
                  R"({"wall_ms":25,"notification":3,"name":"NotifyPlaybackStopped","value":0,)"
                  R"("speed":255,"clients":[21]})"));
}

TEST(Play, DeliversTheSameRecordsInEveryModeAsCatPrints) {
  const Folder folder;
  const std::string data = KESTRAV_SOURCE_DIR "/data/";
  const std::string log = folder.Path("drive.klog");
  ASSERT_EQ(
      RunTool({"import", "-o", log, "--limit", "4", "GPS=nmea:" + data + "gnss-mountainview.nmea",
               "CAN=candump:" + data + "can-falcon.log", "IMU=csv:" + data + "imu-dresden.csv"})
          .code,
      0);
  const std::vector<Told> records = ToldRecords(RunTool({"cat", "--format", "jsonl", log}).out);
  EXPECT_GT(records.size(), 1000U);
  for (const Arguments& way : kWays) {
    const Result result = Play(log, way);
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_TRUE(ToldRecords(result.out) == records) << ::testing::PrintToString(way);
  }
}

TEST(Play, DeliversToTheNamedClientsAlone) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  const auto clients_of = [&](Arguments more, const Arguments& way) {
    more.insert(more.end(), way.begin(), way.end());
    std::vector<std::string> clients;
    for (const Told& record : ToldRecords(Play(log, more).out)) {
      clients.push_back(std::get<0>(record));
    }
    return clients;
  };
  for (const Arguments& way : kWays) {
    EXPECT_THAT(clients_of({"--client", "CAN"}, way), ElementsAre("CAN"));
    EXPECT_THAT(clients_of({"--client", "Gyro", "--client", "GPS"}, way),
                ElementsAre("GPS", "Gyro"));
  }
}

TEST(Play, PlaysToFixedIdsWhenTheLogHasNoNames) {
  const Folder folder;
  LogBuilder log;
  log.Selection(1U << 5).Duration(20).StartClock(0);
  log.Record(5, 1, 0, "five").Record(5, 2, 10, "more").Record(21, 1, 20, "nobody");
  const std::string path = WriteLog(folder, log);
  for (const Arguments& way : kWays) {
    const Result result = Play(path, way);
    EXPECT_EQ(result.code, 0) << ::testing::PrintToString(way) << result.err;
    EXPECT_THAT(result.err, HasSubstr("its first record holds no names"));
    EXPECT_THAT(result.err, Not(HasSubstr("\x1b")));
    ASSERT_FALSE(ToldRecords(result.out).empty());
    for (const Told& record : ToldRecords(result.out)) EXPECT_EQ(std::get<0>(record), "Client 5");
  }
}

TEST(Play, ShowsOddNamesWithoutHarmToTheTerminal) {
  const Folder folder;
  LogBuilder log;
  log.StartClock(0).Duration(10).Record(12, 1200, 0,
                                        "\1\0\0\0Abc\x1b[2J\0"
                                        "21\0"sv);
  log.Record(21, 1, 10, "x");
  const std::string path = WriteLog(folder, log);
  for (const Arguments& way : kWays) {
    Arguments arguments = {"play", path};
    arguments.insert(arguments.end(), way.begin(), way.end());
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("Abc\\x1b[2J"));
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
  }
}

TEST(Play, EndsQuietlyWhenItsReaderHasGone) {
  const Folder folder;
  LogBuilder log = SmallLog();
  for (int i = 0; i < 200; ++i) log.Record(21, 1, 64000, std::string(1000, 'x'));
  const std::string path = WriteLog(folder, log);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  const int err = open(folder.Write("err", "").c_str(), O_WRONLY | O_CLOEXEC);
  for (const Arguments& way : kWays) {
    EXPECT_EQ(Process(PlayArguments(path, way), {.out = ends[1], .err = err}).Wait(), 0);
  }
  // In real time too: it does not go on for the minute that the log lasts.
  EXPECT_EQ(Process({"play", path}, {.out = ends[1], .err = err}).Wait(), 0);
  close(ends[1]);
  close(err);
  EXPECT_EQ(ReadFile(folder.Path("err")), "");
}

// Its reader takes no more, so the first interrupt finds it blocked.
TEST(Play, EndsAtTheSecondInterruptAtLast) {
  const Folder folder;
  LogBuilder log = SmallLog();
  for (int i = 0; i < 200; ++i) log.Record(21, 1, 64000, std::string(1000, 'x'));
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Process tool({"play", "--unpaced", WriteLog(folder, log)}, {.out = ends[1]});
  char first = 0;
  EXPECT_EQ(read(ends[0], &first, 1), 1);
  tool.Signal(SIGINT);
  tool.Signal(SIGTERM);
  EXPECT_GT(tool.Wait(), 128);
  close(ends[0]);
  close(ends[1]);
}

TEST(Play, FailsWhenItsOutputCannotBeWritten) {
  const Folder folder;
  const std::string path = WriteLog(folder, SmallLog());
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  for (const Arguments& way : kWays) {
    const int err = open(folder.Write("err", "").c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(Process(PlayArguments(path, way), {.out = full, .err = err}).Wait(), 1);
    close(err);
    EXPECT_EQ(ReadFile(folder.Path("err")),
              "kestrav: play: standard output: No space left on device\n");
  }
  close(full);
}

TEST(Play, SaysInOneLineWhyItCannotPlay) {
  const Folder folder;
  const std::string log = WriteLog(folder, SmallLog());
  const std::string text = folder.Write("text", std::string(5000, 'x'));
  const std::string zeros = folder.Write("zeros", std::string(5000, '\0'));
  const std::string none = folder.Path("none");
  for (const auto& [arguments, reason] : std::vector<std::pair<Arguments, std::string>>{
           {{none}, none + ": No such file or directory"},
           {{folder.Path("")}, folder.Path("") + ": Is a directory"},
           {{text}, text + ": not a log"},
           {{zeros, "--mode", "polling"}, zeros + ": not a log"},
           {{log, "--client", "IMU"}, log + ": there is no client 'IMU' in it"},
           {{log, "--from", "64"}, log + ": --from 64 is beyond its end at 63 s"}}) {
    const Result result = Play(arguments.front(), {arguments.begin() + 1, arguments.end()});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "kestrav: play: " + reason + "\n");
  }
}

TEST(Play, SaysThatARecordingWasNotFinished) {
  const Folder folder;
  LogBuilder log = SmallLog();
  log.Zero(12, 8);  // duration and length
  const std::string path = WriteLog(folder, log);
  for (const Arguments& way : {Arguments{}, {"--mode", "polling"}}) {
    const Result result = Play(path, way);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "kestrav: play: " + path +
                              ": the recording was not finished, its header lacks length and "
                              "duration; kestrav repair works them out\n");
  }
}

TEST(Play, RefusesWrongUsage) {
  for (const Arguments& arguments : {Arguments{},
                                     {"x", "y"},
                                     {"x", "--speed", "3"},
                                     {"x", "--speed", "0"},
                                     {"x", "--format", "raw"},
                                     {"x", "--format", "1"},
                                     {"x", "--mode", "fast"},
                                     {"x", "--mode", "1"},
                                     {"x", "--from", "-1"},
                                     {"x", "--from", "1.5"},
                                     {"x", "--rewind", "0"},
                                     {"x", "--client"},
                                     {"x", "--unpaced", "--speed", "2"},
                                     {"x", "--unpaced", "--from", "2"},
                                     {"x", "--mode", "polling", "--speed", "2"},
                                     {"x", "--mode", "polling", "--virtual"},
                                     {"x", "--mode", "pass-through", "--from", "1"},
                                     {"x", "--mode", "pass-through", "--history"},
                                     {"x", "--mode", "polling", "--rewind", "1"}}) {
    Arguments command = {"play"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Result result = RunTool(command);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(arguments);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
}

TEST(Play, Helps) {
  const Result result = RunTool({"play", "--help"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, HasSubstr("Usage: kestrav play"));
  EXPECT_THAT(RunTool({"--help"}).out, HasSubstr("\n  play"));
}

class PlayOfDamage : public ::testing::TestWithParam<Arguments> {
 protected:
  // Exit code 0: everything that `cat` finds was delivered; 3: what comes before the damage; 1: the
  // log cannot be played at all.
  static void Check(const Bytes& log, const std::string& what) {
    const Folder folder;
    const std::string path = WriteLog(folder, log);
    const auto records = ToldRecords(RunTool({"cat", "--format", "jsonl", path}).out);
    const Result result = Play(path, GetParam());
    const auto told = ToldRecords(result.out);
    if (result.code == 0) {
      EXPECT_EQ(told, records) << what;
      EXPECT_EQ(result.err, "") << what;
      return;
    }
    EXPECT_TRUE(result.code == 3 || (result.code == 1 && result.out.empty())) << what;
    EXPECT_LE(told.size(), records.size()) << what;
    EXPECT_TRUE(std::equal(told.begin(), told.end(), records.begin())) << what;
    EXPECT_THAT(result.err, HasSubstr("kestrav: play: " + path + ": ")) << what;
  }
};

TEST_P(PlayOfDamage, EndsWithAClearResultWhereverABitIsFlipped) {
  const Bytes whole = SmallLog().Build();
  for (std::size_t at = 0; at < whole.size(); at += 3 * kEvery) {
    Bytes damaged = whole;
    damaged[at] ^= 0x10;
    Check(damaged, "flipped at " + std::to_string(at));
  }
}

TEST_P(PlayOfDamage, EndsWithAClearResultWhereverTheLogIsCut) {
  Bytes log = SmallLog().Build();
  for (; log.size() > 120; log.resize(log.size() - 3 * kEvery)) {
    Check(log, "cut at " + std::to_string(log.size()));
  }
}

TEST_P(PlayOfDamage, LeavesADamagedPayloadOut) {
  const Folder folder;
  const LogBuilder log = SmallLog();
  Bytes damaged = log.Build();
  damaged[log.RecordOffset(2) + 20] ^= 1;
  const Result result = Play(WriteLog(folder, damaged), GetParam());
  EXPECT_EQ(result.code, 0) << result.err;
  const auto told = ToldRecords(result.out);
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(std::get<0>(told[0]), "GPS");
  EXPECT_EQ(std::get<0>(told[1]), "Gyro");
}

TEST_P(PlayOfDamage, TellsByItsExitCodeThatTheLogEndsInDamage) {
  const Folder folder;
  const LogBuilder log = SmallLog();
  Bytes damaged = log.Build();
  damaged[log.RecordOffset(3) + 20] ^= 1;
  const std::string path = WriteLog(folder, damaged);
  const Result result = Play(path, GetParam());
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.err, "kestrav: play: " + path +
                            ": the playback stopped before the end of the log, which is damaged\n");
}

INSTANTIATE_TEST_SUITE_P(Ways, PlayOfDamage, ::testing::ValuesIn(kWays), [](const auto& instance) {
  std::string name = instance.param.back();
  std::erase(name, '-');
  return name;
});

}  // namespace
}  // namespace kestrav::test
