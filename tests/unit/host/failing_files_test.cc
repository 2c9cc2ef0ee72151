#include "support/failing_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "kestrav/host/io/file_stream.h"
#include "unit/host/temp_dir.h"

// That faults reach the calls of this program and of the library, under sanitizers too.

namespace kestrav::test {
namespace {

class FailingFilesTest : public testing::Test {
 protected:
  ssize_t Write(const std::string& bytes, off_t at) {
    return pwrite(file_.Get(), bytes.data(), bytes.size(), at);
  }

  TempDir dir_;
  const std::filesystem::path path_ = dir_ / "file";
  Io::FileHandle file_{open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  FailingFiles files_;
};

TEST_F(FailingFilesTest, LetEverythingThroughUnlessTold) {
  EXPECT_EQ(Write("abcdef", 0), 6);
  EXPECT_EQ(fdatasync(file_.Get()), 0);
  EXPECT_EQ(ftruncate(file_.Get(), 4), 0);
  struct statvfs status {};
  EXPECT_EQ(fstatvfs(file_.Get(), &status), 0);
  EXPECT_GT(status.f_frsize, 1U);
  EXPECT_EQ(FileContent(path_), "abcd");
  for (const FileCall call :
       {FileCall::kPwrite, FileCall::kFdatasync, FileCall::kFtruncate, FileCall::kFstatvfs}) {
    EXPECT_EQ(files_.Calls(call), 1U);
  }
}

TEST_F(FailingFilesTest, FailOneCallOrAllFromThenOn) {
  files_.Fail(FileCall::kPwrite, EIO, 2);
  files_.Fail(FileCall::kPwrite, ENOSPC, 4, Lasts::kFromThenOn);
  std::vector<int> errors;
  for (int i = 0; i < 6; ++i) errors.push_back(Write("x", i) == 1 ? 0 : errno);
  EXPECT_THAT(errors, testing::ElementsAre(0, EIO, 0, ENOSPC, ENOSPC, ENOSPC));
  files_.Heal();
  EXPECT_EQ(Write("x", 0), 1);
  EXPECT_EQ(files_.Calls(FileCall::kPwrite), 7U);
}

TEST_F(FailingFilesTest, FailEachKindOnItsOwn) {
  files_.Fail(FileCall::kFdatasync, EIO);
  files_.Fail(FileCall::kFtruncate, EROFS);
  files_.Fail(FileCall::kFstatvfs, ENOSYS);
  EXPECT_EQ(Write("abc", 0), 3);
  EXPECT_EQ(fdatasync(file_.Get()), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(ftruncate(file_.Get(), 0), -1);
  EXPECT_EQ(errno, EROFS);
  struct statvfs status {};
  EXPECT_EQ(fstatvfs(file_.Get(), &status), -1);
  EXPECT_EQ(errno, ENOSYS);
  EXPECT_EQ(FileContent(path_), "abc");
}

TEST_F(FailingFilesTest, WriteShortButAtLeastOneByte) {
  files_.WriteShort(2, 1);
  files_.WriteShort(20, 2);
  EXPECT_EQ(Write("abcdef", 0), 4);
  EXPECT_EQ(Write("ghi", 4), 1);
  EXPECT_EQ(Write("jkl", 5), 3);
  EXPECT_EQ(FileContent(path_), "abcdgjkl");
}

TEST_F(FailingFilesTest, TellOfFreeBytesAndShowEachCall) {
  files_.SetFreeBytes(12'345);
  std::vector<std::uint64_t> seen;
  files_.Watch([&](const FileAccess& access) {
    seen.insert(seen.end(), {access.size, access.at});
  });
  struct statvfs status {};
  ASSERT_EQ(fstatvfs(file_.Get(), &status), 0);
  EXPECT_EQ(status.f_bavail * status.f_frsize, 12'345U);
  EXPECT_EQ(Write("abc", 7), 3);
  EXPECT_THAT(seen, testing::ElementsAre(0, 0, 3, 7));
}

TEST_F(FailingFilesTest, ShowWhatEachCallAnswers) {
  std::vector<std::int64_t> answers;
  files_.WatchResults([&](const FileAccess&, std::int64_t result) { answers.push_back(result); });
  files_.Fail(FileCall::kPwrite, EIO, 2);
  files_.WriteShort(1, 3);
  EXPECT_EQ(Write("abc", 0), 3);
  EXPECT_EQ(Write("abc", 0), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(Write("abc", 0), 2);
  EXPECT_EQ(fdatasync(file_.Get()), 0);
  EXPECT_THAT(answers, testing::ElementsAre(3, -1, 2, 0));
}

TEST_F(FailingFilesTest, ReachTheLibrary) {
  Io::BufferedFileOutputStream stream;
  ASSERT_TRUE(stream.Open(Wide(path_), Io::OpenMode::kCreate));
  files_.Fail(FileCall::kPwrite, EDQUOT);
  const std::uint8_t byte = 'x';
  ASSERT_TRUE(stream.Write(&byte, 1));
  EXPECT_FALSE(stream.Flush());
  EXPECT_EQ(stream.Error(), EDQUOT);
  EXPECT_TRUE(stream.Flush());
  EXPECT_EQ(FileContent(path_), "x");
}

}  // namespace
}  // namespace kestrav::test
