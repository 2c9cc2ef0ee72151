#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <random>
#include <string>
#include <utility>

#include "kestrav/host/io/file_stream.h"
#include "support/failing_files.h"
#include "support/short_memory.h"
#include "unit/host/temp_dir.h"

namespace kestrav {
namespace {

using Io::BufferedFileOutputStream;
using Io::OpenMode;
using test::FileContent;
using test::TempDir;
using test::Wide;
using test::WriteFile;

// Writes; a write that fails leaves the position as it was.
bool Write(BufferedFileOutputStream& stream, const std::string& bytes) {
  const std::uint32_t before = stream.Position();
  const auto size = static_cast<std::uint32_t>(bytes.size());
  const bool written = stream.Write(reinterpret_cast<const std::uint8_t*>(bytes.data()), size);
  EXPECT_EQ(stream.Position(), written ? before + size : before);
  return written;
}

class FileOutput : public testing::Test {
 protected:
  bool Create() { return stream_.Open(Wide(file_), OpenMode::kCreate); }
  bool OpenInPlace() { return stream_.Open(Wide(file_), OpenMode::kInPlace); }
  std::string Content() const { return FileContent(file_); }

  TempDir dir_;
  const std::filesystem::path file_ = dir_ / "file";
  BufferedFileOutputStream stream_{8};
};

TEST_F(FileOutput, WritesANewFileThatOthersMayNotRead) {
  ASSERT_TRUE(Create());
  EXPECT_TRUE(Write(stream_, "abc"));
  EXPECT_TRUE(Write(stream_, ""));
  EXPECT_TRUE(Write(stream_, "defghijklmnop"));
  EXPECT_TRUE(Write(stream_, "q"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(Content(), "abcdefghijklmnopq");
  EXPECT_EQ(stream_.Error(), 0);
  struct stat status {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0137, 0U);
}

TEST_F(FileOutput, IsNotInheritedByOtherPrograms) {
  int flags = 0;
  test::FailingFiles files;
  files.Watch([&](const test::FileAccess& access) { flags = fcntl(access.descriptor, F_GETFD); });
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "abc"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(flags, FD_CLOEXEC);
}

TEST_F(FileOutput, EmptiesAnExistingFileThatItCreates) {
  WriteFile(file_, "before");
  ASSERT_TRUE(Create());
  EXPECT_EQ(Content(), "");
  EXPECT_FALSE(stream_.Seek(1));
}

TEST_F(FileOutput, InPlaceKeepsTheRestOfTheFile) {
  WriteFile(file_, "0123456789");
  ASSERT_TRUE(OpenInPlace());
  EXPECT_TRUE(Write(stream_, "ab"));
  EXPECT_TRUE(stream_.Seek(9));
  EXPECT_TRUE(Write(stream_, "yz"));
  EXPECT_TRUE(stream_.Seek(5));
  EXPECT_TRUE(Write(stream_, "m"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(Content(), "ab234m678yz");
}

TEST_F(FileOutput, KeepsSmallWritesBackUntilItIsFlushed) {
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "abc"));
  ASSERT_TRUE(Write(stream_, "de"));
  EXPECT_EQ(Content(), "");
  EXPECT_TRUE(stream_.Flush());
  EXPECT_EQ(Content(), "abcde");
  EXPECT_EQ(stream_.Position(), 5U);
  EXPECT_TRUE(stream_.Flush());
}

TEST_F(FileOutput, WritesWhatIsBufferedAtItsEnd) {
  {
    BufferedFileOutputStream stream;
    ASSERT_TRUE(stream.Open(Wide(file_), OpenMode::kCreate));
    ASSERT_TRUE(Write(stream, "abc"));
  }
  EXPECT_EQ(Content(), "abc");
}

TEST_F(FileOutput, WritesWhatIsBufferedBeforeTheNextFile) {
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "abc"));
  ASSERT_TRUE(stream_.Open(Wide(dir_ / "other"), OpenMode::kCreate));
  EXPECT_EQ(Content(), "abc");
  EXPECT_EQ(stream_.Position(), 0U);
}

TEST_F(FileOutput, ASeekBeyondTheEndFailsWithoutMoving) {
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "0123456789"));
  ASSERT_TRUE(Write(stream_, "ab"));
  EXPECT_FALSE(stream_.Seek(13));
  EXPECT_FALSE(stream_.Seek(0xFFFFFFFF));
  EXPECT_EQ(stream_.Position(), 12U);
  EXPECT_TRUE(stream_.Seek(12)) << "what is buffered counts";
  EXPECT_TRUE(stream_.Seek(0));
  ASSERT_TRUE(Write(stream_, "X"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(Content(), "X123456789ab");
}

class FileOutputBuffers : public FileOutput, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(FileOutputBuffers, OfAnySizeWriteTheSameFile) {
  std::mt19937 random(1);
  std::string expected;
  BufferedFileOutputStream stream(GetParam());
  ASSERT_TRUE(stream.Open(Wide(file_), OpenMode::kCreate));
  for (int round = 0; round < 500; ++round) {
    if (random() % 4 == 0) {
      ASSERT_TRUE(stream.Seek(static_cast<std::uint32_t>(random() % (expected.size() + 1))));
    }
    const std::string bytes(random() % 20, static_cast<char>('a' + round % 26));
    const std::uint32_t at = stream.Position();
    expected.resize(std::max(expected.size(), at + bytes.size()));
    expected.replace(at, bytes.size(), bytes);
    ASSERT_TRUE(Write(stream, bytes));
  }
  ASSERT_TRUE(stream.Close());
  EXPECT_EQ(Content(), expected);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FileOutputBuffers, testing::Values(0, 1, 7, 19, 64 * 1024));

TEST_F(FileOutput, IsRefusedForAnythingButARegularFile) {
  ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
  struct Row {
    String path;
    OpenMode mode;
    int error;
  };
  for (const Row& row : {Row{Wide(dir_ / "missing"), OpenMode::kInPlace, ENOENT},
                         Row{Wide(dir_ / "missing" / "file"), OpenMode::kCreate, ENOENT},
                         Row{Wide(dir_.Path()), OpenMode::kCreate, EISDIR},
                         Row{Wide(dir_.Path()), OpenMode::kInPlace, EISDIR},
                         Row{Wide(dir_ / "pipe"), OpenMode::kCreate, ENXIO},
                         Row{L"/dev/null", OpenMode::kCreate, EINVAL},
                         Row{L"/dev/full", OpenMode::kInPlace, EINVAL}}) {
    EXPECT_FALSE(stream_.Open(row.path, row.mode)) << Text::ToUtf8(row.path);
    EXPECT_EQ(stream_.Error(), row.error) << Text::ToUtf8(row.path);
    EXPECT_FALSE(Write(stream_, "x"));
  }
  EXPECT_FALSE(std::filesystem::exists(dir_ / "missing"));
  ASSERT_TRUE(Create());
  EXPECT_EQ(stream_.Error(), 0);
}

TEST_F(FileOutput, RefusesEverythingWhileClosed) {
  EXPECT_FALSE(Write(stream_, "x"));
  EXPECT_FALSE(stream_.Seek(0));
  EXPECT_TRUE(stream_.Flush());
  EXPECT_TRUE(stream_.Close());
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "abc"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(stream_.Position(), 0U);
  EXPECT_FALSE(Write(stream_, "x"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(Content(), "abc");
}

TEST_F(FileOutput, IsRefusedWhenMemoryIsShort) {
  const String path = Wide(file_);
  bool opened = true;
  EXPECT_TRUE(test::RanShort(1, [&] { opened = stream_.Open(path, OpenMode::kCreate); }));
  EXPECT_FALSE(opened);
  EXPECT_EQ(stream_.Error(), ENOMEM);
  EXPECT_FALSE(std::filesystem::exists(file_));
}

// Lets files grow to so many bytes only, as a full disk does.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit{bytes, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(FileOutput, OnAFullDiskAWriteIsWholeOrNotThereAtAll) {
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "0123456789"));
  {
    const FullDisk disk(15);
    EXPECT_FALSE(Write(stream_, "abcdefghij"));
    EXPECT_EQ(stream_.Error(), EFBIG);
    EXPECT_EQ(Content(), "0123456789") << "the half that fitted is gone again";
  }
  EXPECT_TRUE(Write(stream_, "ABCDEFGHIJ"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(Content(), "0123456789ABCDEFGHIJ");
}

TEST_F(FileOutput, OnAFullDiskWhatIsBufferedIsKeptAndOfferedAgain) {
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "0123456789"));
  {
    const FullDisk disk(12);
    EXPECT_TRUE(Write(stream_, "abc")) << "there is room in the buffer";
    EXPECT_FALSE(stream_.Flush());
    EXPECT_EQ(Content(), "0123456789");
    EXPECT_TRUE(Write(stream_, "defg"));
    EXPECT_FALSE(Write(stream_, "hi")) << "its room is needed by what is kept";
    EXPECT_FALSE(Write(stream_, "a longer one than the buffer"));
    EXPECT_FALSE(stream_.Seek(0));
    EXPECT_EQ(stream_.Position(), 17U);
  }
  EXPECT_TRUE(Write(stream_, "jk"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(Content(), "0123456789abcdefgjk");
}

TEST_F(FileOutput, OnAFullDiskTheFileEndsWithAWholeWriteWhenItIsClosed) {
  ASSERT_TRUE(Create());
  ASSERT_TRUE(Write(stream_, "0123456789"));
  ASSERT_TRUE(Write(stream_, "abc"));
  ASSERT_TRUE(Write(stream_, "def"));
  {
    const FullDisk disk(15);
    EXPECT_FALSE(stream_.Close());
  }
  EXPECT_EQ(stream_.Error(), EFBIG);
  EXPECT_EQ(Content(), "0123456789");
  EXPECT_TRUE(stream_.Close());
}

TEST_F(FileOutput, TellsTheFirstErrorSinceItWasOpened) {
  ASSERT_TRUE(Create());
  {
    const FullDisk disk(5);
    EXPECT_FALSE(Write(stream_, "0123456789"));
  }
  EXPECT_TRUE(Write(stream_, "0123456789"));
  EXPECT_EQ(stream_.Error(), EFBIG);
  ASSERT_TRUE(Create());
  EXPECT_EQ(stream_.Error(), 0);
}

TEST_F(FileOutput, NeverGrowsPastA32BitPosition) {
  WriteFile(file_, "");
  std::filesystem::resize_file(file_, 0xFFFFFFFF - 20);
  ASSERT_TRUE(OpenInPlace());
  ASSERT_TRUE(stream_.Seek(0xFFFFFFFF - 20));
  EXPECT_TRUE(Write(stream_, "0123456789"));
  EXPECT_FALSE(Write(stream_, "0123456789a"));
  EXPECT_EQ(stream_.Error(), EFBIG);
  EXPECT_TRUE(Write(stream_, "abcde"));
  EXPECT_FALSE(Write(stream_, "fghijk"));
  EXPECT_TRUE(Write(stream_, "fghij"));
  EXPECT_EQ(stream_.Position(), 0xFFFFFFFFU);
  EXPECT_FALSE(Write(stream_, "x"));
  EXPECT_TRUE(stream_.Seek(0));
  EXPECT_TRUE(Write(stream_, "x"));
  EXPECT_TRUE(stream_.Close());
  EXPECT_EQ(std::filesystem::file_size(file_), 0xFFFFFFFFU);
}

TEST_F(FileOutput, OfMoreThanA32BitPositionIsRefused) {
  WriteFile(file_, "");
  std::filesystem::resize_file(file_, 0x1'0000'0000);
  EXPECT_FALSE(OpenInPlace());
  EXPECT_EQ(stream_.Error(), EFBIG);
  EXPECT_TRUE(Create()) << "an emptied one is short enough";
}

TEST(FileHandle, ClosesOnceAndReportsIt) {
  Io::FileHandle none;
  EXPECT_FALSE(none.IsOpen());
  EXPECT_TRUE(none.Close());
  Io::FileHandle invalid(1'000'000);
  EXPECT_TRUE(invalid.IsOpen());
  EXPECT_FALSE(invalid.Close());
  EXPECT_FALSE(invalid.IsOpen());
  EXPECT_TRUE(invalid.Close());
}

TEST(FileHandle, ChangesOwner) {
  Io::FileHandle invalid(1'000'000);
  Io::FileHandle owner(std::move(invalid));
  EXPECT_FALSE(invalid.IsOpen());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(owner.Get(), 1'000'000);
  Io::FileHandle next;
  next = std::move(owner);
  EXPECT_FALSE(owner.IsOpen());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(next.Get(), 1'000'000);
}

}  // namespace
}  // namespace kestrav
