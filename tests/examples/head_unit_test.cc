#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <random>
#include <string>

#include "kestrav/host/config/text_file_store.h"
#include "unit/host/temp_dir.h"

// The example program as an integrator runs it: what it leaves in its folder and finds there again.

namespace kestrav::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kProgram = KESTRAV_BIN_DIR "/head_unit";

pid_t Launch(const std::filesystem::path& folder, const std::string& seconds) {
  const std::string output = (folder / "output").string();
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (std::freopen(output.c_str(), "w", stdout) == nullptr) _exit(126);
  execl(kProgram, kProgram, folder.c_str(), seconds.c_str(), nullptr);
  _exit(127);
}

// The exit code; 128 + n: killed by signal n.
int WaitFor(pid_t pid) {
  int status = -1;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int RunHeadUnit(const std::filesystem::path& folder, const std::string& seconds) {
  return WaitFor(Launch(folder, seconds));
}

// How many messages of a client a run recorded and played back, as it printed them.
std::array<unsigned int, 2> Counts(const std::filesystem::path& folder, const std::string& client) {
  const std::string output = FileContent(folder / "output");
  const std::size_t line = output.find(client);
  std::array<unsigned int, 2> counts = {};
  if (line == std::string::npos ||
      std::sscanf(output.c_str() + output.find("recorded", line), "recorded %u, played back %u",
                  &counts[0], &counts[1]) != 2) {
    ADD_FAILURE() << client << " does not stand in: " << output;
  }
  return counts;
}

void Replace(const std::filesystem::path& file, const std::string& from, const std::string& to) {
  std::string content = FileContent(file);
  const std::size_t at = content.find(from);
  ASSERT_NE(at, std::string::npos) << from << " does not stand in: " << content;
  WriteFile(file, content.replace(at, from.size(), to));
}

bool Holds(const std::filesystem::path& file, const std::string& line) {
  return ("\n" + FileContent(file)).find("\n" + line + "\n") != std::string::npos;
}

TEST(HeadUnit, RecordsAllOfItsClientsAtFirstAndPlaysTheLogBack) {
  const TempDir folder;
  ASSERT_EQ(RunHeadUnit(folder.Path(), "1"), 0);
  for (const char* const client : {"Vehicle Bus", "Climate", "GPS"}) {
    const auto [recorded, played] = Counts(folder.Path(), client);
    EXPECT_GT(recorded, 0U) << client;
    EXPECT_LE(played, recorded) << client;
  }
  // Only the client that accepts offset data is played what stands before the start offset.
  EXPECT_EQ(Counts(folder.Path(), "GPS")[0], Counts(folder.Path(), "GPS")[1]);
}

TEST(HeadUnit, SelectionAndControlStringsSurviveARestart) {
  const TempDir folder;
  const std::filesystem::path configuration = folder / "kestrav.conf";
  ASSERT_EQ(RunHeadUnit(folder.Path(), "0"), 0);
  Replace(configuration, "Climate = 1", "Climate = 1,interval=250");
  Replace(configuration, "GPS = 1", "# not now\nGPS = 0");
  for (int start = 0; start < 2; ++start) {
    ASSERT_EQ(RunHeadUnit(folder.Path(), "1"), 0);
    EXPECT_TRUE(Holds(configuration, "Climate = 1,interval=250"));
    EXPECT_TRUE(Holds(configuration, "# not now"));
    EXPECT_TRUE(Holds(configuration, "GPS = 0"));
    EXPECT_EQ(Counts(folder.Path(), "GPS")[0], 0U);
    const unsigned int samples = Counts(folder.Path(), "Climate")[0];
    EXPECT_GE(samples, 1U);
    EXPECT_LE(samples, 4U);  // each 250 ms of a second, where its own interval is 50 ms
  }
}

TEST(HeadUnit, TheSettingsFileSelectsBeforeTheConfiguration) {
  const TempDir folder;
  ASSERT_EQ(RunHeadUnit(folder.Path(), "0"), 0);
  WriteFile(folder / "settings.txt", "# which clients to record\r\nbinary:Vehicle Bus,Nobody\r\n");
  ASSERT_EQ(RunHeadUnit(folder.Path(), "1"), 0);
  EXPECT_GT(Counts(folder.Path(), "Vehicle Bus")[0], 0U);
  EXPECT_EQ(Counts(folder.Path(), "Climate")[0], 0U);
  EXPECT_TRUE(Holds(folder / "kestrav.conf", "Vehicle Bus = 1"));
  EXPECT_TRUE(Holds(folder / "kestrav.conf", "GPS = 0"));
}

TEST(HeadUnit, RecordsNothingWhenLoggingIsSwitchedOff) {
  const TempDir folder;
  ASSERT_EQ(RunHeadUnit(folder.Path(), "1"), 0);
  Replace(folder / "kestrav.conf", "Logging = true", "Logging = false");
  ASSERT_EQ(RunHeadUnit(folder.Path(), "1"), 0);
  EXPECT_EQ(Counts(folder.Path(), "GPS")[0], 0U);
  EXPECT_GT(Counts(folder.Path(), "GPS")[1], 0U);  // the log of the run before
}

TEST(HeadUnit, GoesOnWithoutALogWhenNothingIsToBeRecorded) {
  const TempDir folder;
  WriteFile(folder / "kestrav.conf", "");
  ASSERT_EQ(RunHeadUnit(folder.Path(), "1"), 0);
  EXPECT_FALSE(std::filesystem::exists(folder / "head_unit.klog"));
  EXPECT_TRUE(Holds(folder / "kestrav.conf", "Logging = false"));
  EXPECT_TRUE(Holds(folder / "kestrav.conf", "GPS = 0"));
}

TEST(HeadUnit, LeavesAConfigurationThatItCannotReadWholeToAPerson) {
  const TempDir folder;
  const std::string configuration =
      "[Kestrav-Settings]\nLogging = true\nVehicle Bus = nonsense\nClimate = 1,interval=250\n";
  WriteFile(folder / "kestrav.conf", configuration);
  EXPECT_EQ(RunHeadUnit(folder.Path(), "0"), 1);
  EXPECT_EQ(FileContent(folder / "kestrav.conf"), configuration);
}

TEST(HeadUnit, SaysWhatItCannotDo) {
  const TempDir folder;
  EXPECT_EQ(RunHeadUnit(folder.Path(), "soon"), 2);
  EXPECT_EQ(RunHeadUnit(folder / "nowhere", "0"), 126);  // no place for its output either
  std::filesystem::create_directory(folder / "kestrav.conf");
  EXPECT_EQ(RunHeadUnit(folder.Path(), "0"), 1);
}

// Watches a folder for the moments at which a file is created in it or gets its name.
class Watch {
 public:
  explicit Watch(const std::filesystem::path& folder) : descriptor_(inotify_init1(IN_CLOEXEC)) {
    inotify_add_watch(descriptor_, folder.c_str(), IN_CREATE | IN_MOVED_TO);
  }
  ~Watch() { close(descriptor_); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  // When `name` appears. The end of time: it does not, for ten seconds.
  Clock::time_point Appears(const std::string& name) {
    for (;;) {
      pollfd ready = {descriptor_, POLLIN, 0};
      if (poll(&ready, 1, 10'000) != 1) return Clock::time_point::max();
      alignas(inotify_event) std::array<char, 4096> events;
      const ssize_t size = read(descriptor_, events.data(), events.size());
      const Clock::time_point now = Clock::now();
      for (ssize_t at = 0; at < size;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + at);
        if (event->len > 0 && name == event->name) return now;
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
  }

 private:
  const int descriptor_;
};

// A configuration in which a great many other programs keep theirs, so that writing it takes time.
std::string LongConfiguration() {
  std::string text = "[Kestrav-Settings]\nLogging = true\nVehicle Bus = 1\nClimate = 1\nGPS = 1\n";
  for (int group = 0; group < 2000; ++group) {
    text += "[Group " + std::to_string(group) + "]\n";
    for (int entry = 0; entry < 20; ++entry) {
      text += "Entry " + std::to_string(entry) + " = " + std::string(40, 'x') + "\n";
    }
  }
  return text;
}

TEST(HeadUnit, AKillDuringTheWriteLeavesTheOldConfigurationOrTheNew) {
  constexpr int kKills = 50;
  constexpr int kMostRuns = 1000;
  constexpr unsigned int kSeed = 20'261;
  const TempDir folder;
  const std::filesystem::path file = folder / "kestrav.conf";
  const std::string before = LongConfiguration();
  WriteFile(folder / "settings.txt", "binary:Climate\n");

  WriteFile(file, before);
  Watch watch(folder.Path());
  const pid_t whole_run = Launch(folder.Path(), "0");
  const Clock::time_point opened = watch.Appears("kestrav.conf.tmp");
  const Clock::time_point renamed = watch.Appears("kestrav.conf");
  ASSERT_EQ(WaitFor(whole_run), 0);
  ASSERT_NE(renamed, Clock::time_point::max());
  const std::string after = FileContent(file);
  ASSERT_NE(before, after);

  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> share(0, 1);
  int kills = 0;
  for (int run = 0; run < kMostRuns && kills < kKills; ++run) {
    WriteFile(file, before);
    Watch created(folder.Path());
    const pid_t pid = Launch(folder.Path(), "0");
    const Clock::time_point start = created.Appears("kestrav.conf.tmp");
    ASSERT_NE(start, Clock::time_point::max());
    const Clock::time_point moment =
        start + std::chrono::duration_cast<Clock::duration>((renamed - opened) * share(random));
    while (Clock::now() < moment) continue;
    kill(pid, SIGKILL);
    WaitFor(pid);
    const std::string content = FileContent(file);
    // Only a kill that found the new file unfinished was one during the write.
    if (content == before) {
      ++kills;
    } else {
      ASSERT_EQ(content, after) << "killed in run " << run;
    }
    Config::TextFileStore store;
    ASSERT_TRUE(store.Load(Wide(file)));
    ASSERT_TRUE(store.Problems().empty());
  }
  EXPECT_EQ(kills, kKills);
  ASSERT_EQ(RunHeadUnit(folder.Path(), "0"), 0);
  EXPECT_EQ(FileContent(file), after);
}

}  // namespace
}  // namespace kestrav::test
