#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>

#include "config_file.h"
#include "kestrav/host/io/atomic_file.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

// For its life files of this process end after `bytes`, and a longer one is an error.
class ShortFiles {
 public:
  explicit ShortFiles(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~ShortFiles() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  ShortFiles(const ShortFiles&) = delete;
  ShortFiles& operator=(const ShortFiles&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_{};
};

mode_t ModeOf(const std::filesystem::path& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class ConfigFileSave : public ConfigFileTest {
 protected:
  static constexpr const char* kOld = "[S]\na = 1\n";

  void LoadAndChange(const std::string& text = kOld) {
    LoadText(text);
    ASSERT_TRUE(Set(L"a", L"2"));
  }
  void ExpectOldFileAndARetry(const std::string& why) {
    EXPECT_EQ(FileContent(file_), kOld);
    EXPECT_THAT(ProblemTexts(), HasSubstr("The file cannot be written: " + why));
  }
};

TEST_F(ConfigFileSave, LeavesOneFileBehind) {
  LoadAndChange();
  EXPECT_EQ(SavedText(), "[S]\na = 2\n");
  EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
}

TEST_F(ConfigFileSave, WritesNothingWithoutAChange) {
  LoadAndChange();
  ASSERT_TRUE(store_.Save());
  WriteFile(file_, "somebody else's");
  EXPECT_TRUE(store_.Save());
  EXPECT_EQ(FileContent(file_), "somebody else's");
}

TEST_F(ConfigFileSave, GivesANewFileAModeOfItsOwn) {
  const mode_t mask = umask(022);
  ASSERT_TRUE(store_.Load(Wide(file_)));
  ASSERT_TRUE(Set(L"a", L"2"));
  EXPECT_TRUE(store_.Save());
  umask(mask);
  EXPECT_EQ(ModeOf(file_), 0640U);
}

TEST_F(ConfigFileSave, KeepsTheModeOfTheOldFile) {
  for (const mode_t mode : {0600U, 0666U, 0444U}) {
    LoadAndChange();
    ASSERT_EQ(chmod(file_.c_str(), mode), 0);
    ASSERT_TRUE(store_.Save());
    EXPECT_EQ(ModeOf(file_), mode);
    std::filesystem::remove(file_);
  }
}

TEST_F(ConfigFileSave, KeepsTheOwnerOfTheOldFileIfItMay) {
  LoadAndChange();
  constexpr uid_t kOther = 12345;
  const uid_t owner = geteuid() == 0 ? kOther : geteuid();
  ASSERT_EQ(chown(file_.c_str(), owner, static_cast<gid_t>(-1)), 0);
  ASSERT_TRUE(store_.Save());
  struct stat status {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, owner);
}

TEST_F(ConfigFileSave, LeavesASymbolicLinkAndReplacesTheFileBehindIt) {
  std::filesystem::create_directory(folder_ / "real");
  const std::filesystem::path real = folder_ / "real/settings";
  std::filesystem::create_symlink(real, folder_ / "middle");
  std::filesystem::create_symlink("middle", file_);
  ASSERT_TRUE(store_.Load(Wide(file_)));  // the file behind it is still missing
  ASSERT_TRUE(Set(L"a", L"1"));
  ASSERT_TRUE(store_.Save());
  ASSERT_TRUE(Set(L"a", L"2"));
  ASSERT_TRUE(store_.Save());
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
  EXPECT_EQ(FileContent(real), "[S]\n# About it\na = 2\n");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "real/settings.tmp"));
}

TEST_F(ConfigFileSave, RefusesLinksThatGoInACircle) {
  LoadAndChange();
  std::filesystem::remove(file_);
  std::filesystem::create_symlink("kestrav.conf", file_);
  EXPECT_FALSE(store_.Save());
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
}

TEST_F(ConfigFileSave, ReplacesNothingButARegularFile) {
  LoadAndChange();
  std::filesystem::remove(file_);
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  EXPECT_FALSE(store_.Save());
  EXPECT_TRUE(std::filesystem::is_fifo(file_));
  std::filesystem::remove(file_);
  std::filesystem::create_directory(file_);
  EXPECT_FALSE(store_.Save());
  EXPECT_TRUE(std::filesystem::is_directory(file_));
  EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
}

TEST_F(ConfigFileSave, OfAFileInTheFolderOfTheProcessWorksToo) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Path());
  ASSERT_TRUE(store_.Load(L"kestrav.conf"));
  ASSERT_TRUE(Set(L"a", L"1"));
  EXPECT_TRUE(store_.Save());
  std::filesystem::current_path(before);
  EXPECT_EQ(FileContent(file_), "[S]\n# About it\na = 1\n");
}

TEST_F(ConfigFileSave, OnAFullDiskLeavesTheOldFileAndCanBeRepeated) {
  for (rlim_t room = 0; room < std::string_view(kOld).size(); ++room) {
    LoadAndChange();
    bool saved = true;
    {
      const ShortFiles files(room);
      saved = store_.Save();
    }
    EXPECT_FALSE(saved) << room;
    ExpectOldFileAndARetry("File too large");
    EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
    EXPECT_EQ(SavedText(), "[S]\na = 2\n");
  }
}

TEST_F(ConfigFileSave, IntoAFolderThatIsGoneFailsAndCanBeRepeated) {
  LoadAndChange();
  std::filesystem::remove_all(folder_.Path());
  EXPECT_FALSE(store_.Save());
  EXPECT_FALSE(store_.Save());
  EXPECT_EQ(ProblemTexts(), "The file cannot be written: No such file or directory.\n");
  std::filesystem::create_directory(folder_.Path());
  EXPECT_EQ(SavedText(), "[S]\na = 2\n");
}

TEST_F(ConfigFileSave, RemovesWhatAKilledSaveLeftBehind) {
  LoadAndChange();
  WriteFile(folder_ / "kestrav.conf.tmp", "half of it");
  EXPECT_EQ(SavedText(), "[S]\na = 2\n");
  EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
}

TEST_F(ConfigFileSave, DoesNotWriteThroughALinkInThePlaceOfItsTemporaryFile) {
  LoadAndChange();
  WriteFile(folder_ / "other", "precious");
  std::filesystem::create_symlink("other", folder_ / "kestrav.conf.tmp");
  EXPECT_EQ(SavedText(), "[S]\na = 2\n");
  EXPECT_EQ(FileContent(folder_ / "other"), "precious");
}

TEST_F(ConfigFileSave, FailsWhenItsTemporaryFileFindsNoPlace) {
  LoadAndChange();
  std::filesystem::create_directory(folder_ / "kestrav.conf.tmp");
  EXPECT_FALSE(store_.Save());
  ExpectOldFileAndARetry("");
  std::filesystem::remove(folder_ / "kestrav.conf.tmp");
  EXPECT_EQ(SavedText(), "[S]\na = 2\n");
}

TEST_F(ConfigFileSave, ShortOfMemoryLeavesTheOldFile) {
  for (std::uint32_t grants = 0;; ++grants) {
    LoadAndChange("[S]\na = 1\n" + std::string(100, '\n'));
    const std::string old = FileContent(file_);
    bool saved = true;
    const bool was_short = RanShort(grants, [&] { saved = store_.Save(); });
    ASSERT_EQ(saved, !was_short) << grants;
    EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
    if (saved) break;
    EXPECT_EQ(FileContent(file_), old) << grants;
  }
  EXPECT_EQ(FileContent(file_).substr(0, 10), "[S]\na = 2\n");
}

TEST_F(ConfigFileSave, RefusesAPathThatNamesNoFile) {
  for (const wchar_t* end : {L"/", L"/.", L"/.."}) {
    EXPECT_NE(Io::ReplaceContent(Wide(folder_.Path()) + end, "x"), 0);
  }
  EXPECT_NE(Io::ReplaceContent(L"", "x"), 0);
  EXPECT_NE(Io::ReplaceContent(Wide(file_) + String(1, L'\0'), "x"), 0);
  EXPECT_NE(Io::ReplaceContent(Wide(folder_ / std::string(255, 'n')), "x"), 0);
  EXPECT_TRUE(FileNames().empty());
}

// Processes that save, and are killed while they do.
class ConfigFileKill : public ConfigFileTest {
 protected:
  static constexpr std::size_t kBytes = 50'000;  // several blocks of a disk

  ConfigFileKill() { LoadAndSave(L"old"); }

  void LoadAndSave(const String& value) {
    EXPECT_TRUE(store_.Load(Wide(file_)));
    EXPECT_TRUE(Set(L"a", value));
    EXPECT_TRUE(Set(L"filler", String(kBytes, value.front())));
    EXPECT_TRUE(store_.Save());
  }
  static std::string TextWith(const std::string& value) {
    return "[S]\n# About it\na = " + value + "\nfiller = " + std::string(kBytes, value.front()) +
           '\n';
  }

  // Saves values in turn and tells of each save that begins, until it is killed.
  [[noreturn]] void SaveForever(int told) {
    for (bool is_new = true;; is_new = !is_new) {
      const String value = is_new ? L"new" : L"old";
      if (!Set(L"a", value) || !Set(L"filler", String(kBytes, value.front()))) std::_Exit(1);
      if (write(told, "s", 1) != 1 || !store_.Save()) std::_Exit(1);
    }
  }
};

TEST_F(ConfigFileKill, AtARandomMomentLeavesTheOldFileOrTheNewOne) {
  using Clock = std::chrono::steady_clock;
  constexpr int kKills = 60;
  std::minstd_rand random(20);
  const Clock::time_point start = Clock::now();
  LoadAndSave(L"new");
  const auto one_save = std::max<Clock::duration>(Clock::now() - start, Clock::duration(2));
  std::uniform_int_distribution<Clock::rep> moments(0, one_save.count());
  const auto old_or_new = AnyOf(TextWith("old"), TextWith("new"));
  for (int kill_number = 0; kill_number < kKills; ++kill_number) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) SaveForever(ends[1]);
    char begins = 0;
    EXPECT_EQ(read(ends[0], &begins, 1), 1);
    const Clock::time_point moment = Clock::now() + Clock::duration(moments(random));
    while (Clock::now() < moment) {
    }
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    close(ends[0]);
    close(ends[1]);
    ASSERT_TRUE(testing::Value(FileContent(file_), old_or_new)) << kill_number;
    ASSERT_LE(FileNames().size(), 2U) << kill_number;
  }
  LoadAndSave(L"final");
  EXPECT_EQ(FileContent(file_), TextWith("final"));
  EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
}

// The system kills a process that writes past its limit, with so many bytes written.
TEST_F(ConfigFileKill, WithinTheWriteLeavesTheOldFile) {
  for (const rlim_t bytes : {rlim_t{0}, rlim_t{1}, rlim_t{4096}, rlim_t{kBytes}}) {
    const pid_t child = fork();
    if (child == 0) {
      const rlimit limit{bytes, bytes};
      const rlimit no_core{0, 0};
      setrlimit(RLIMIT_CORE, &no_core);
      setrlimit(RLIMIT_FSIZE, &limit);
      LoadAndSave(L"new");
      std::_Exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << bytes;
    EXPECT_EQ(FileContent(file_), TextWith("old")) << bytes;
    EXPECT_EQ(std::filesystem::file_size(folder_ / "kestrav.conf.tmp"), bytes);
  }
  LoadAndSave(L"new");
  EXPECT_EQ(FileContent(file_), TextWith("new"));
  EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
}

TEST_F(ConfigFileKill, ProcessesThatSaveAtOnceNeverMixTheirBytes) {
  constexpr int kProcesses = 4;
  constexpr int kSaves = 10;
  pid_t children[kProcesses] = {};
  for (int i = 0; i < kProcesses; ++i) {
    children[i] = fork();
    if (children[i] != 0) continue;
    const std::string text = TextWith(std::string(3, static_cast<char>('a' + i)));
    for (int save = 0; save < kSaves; ++save) {
      if (Io::ReplaceContent(Wide(file_), text) != 0) std::_Exit(1);
    }
    std::_Exit(0);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_THAT(FileContent(file_),
              AnyOf(TextWith("aaa"), TextWith("bbb"), TextWith("ccc"), TextWith("ddd")));
  EXPECT_THAT(FileNames(), ElementsAre("kestrav.conf"));
}

}  // namespace
}  // namespace kestrav::test
