#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <random>
#include <string>

#include "kestrav/host/io/file_stream.h"
#include "support/short_memory.h"
#include "unit/host/temp_dir.h"

namespace kestrav {
namespace {

using Io::BufferedFileInputStream;
using test::TempDir;
using test::Wide;
using test::WriteFile;

// Reads `size` bytes; "failed" and the position unchanged if they cannot be had.
std::string Read(BufferedFileInputStream& stream, std::uint32_t size) {
  const std::uint32_t before = stream.Position();
  std::string bytes(size, '?');
  const bool read = stream.Read(reinterpret_cast<std::uint8_t*>(bytes.data()), size);
  EXPECT_EQ(stream.Position(), read ? before + size : before);
  return read ? bytes : "failed";
}

class FileInput : public testing::Test {
 protected:
  bool Open(const std::string& name) { return stream_.Open(Wide(dir_ / name)); }

  TempDir dir_;
  BufferedFileInputStream stream_{4};
};

TEST_F(FileInput, ReadsExactlyWhatIsAskedFor) {
  WriteFile(dir_ / "file", "0123456789");
  ASSERT_TRUE(Open("file"));
  EXPECT_EQ(stream_.Remaining(), 10U);
  EXPECT_EQ(Read(stream_, 1), "0");
  EXPECT_EQ(Read(stream_, 2), "12");
  EXPECT_EQ(Read(stream_, 0), "");
  EXPECT_EQ(Read(stream_, 6), "345678");
  EXPECT_EQ(Read(stream_, 1), "9");
  EXPECT_EQ(stream_.Remaining(), 0U);
  EXPECT_EQ(stream_.Error(), 0);
}

TEST_F(FileInput, AReadBeyondTheEndFailsWithoutMoving) {
  WriteFile(dir_ / "file", "0123456789");
  ASSERT_TRUE(Open("file"));
  EXPECT_EQ(Read(stream_, 11), "failed");
  ASSERT_TRUE(stream_.Seek(8));
  EXPECT_EQ(Read(stream_, 3), "failed");
  EXPECT_EQ(Read(stream_, 2), "89");
  EXPECT_EQ(Read(stream_, 1), "failed");
  EXPECT_EQ(Read(stream_, 0), "");
}

TEST_F(FileInput, ASeekBeyondTheEndFailsWithoutMoving) {
  WriteFile(dir_ / "file", "0123456789");
  ASSERT_TRUE(Open("file"));
  ASSERT_TRUE(stream_.Seek(3));
  EXPECT_FALSE(stream_.Seek(11));
  EXPECT_FALSE(stream_.Seek(0xFFFFFFFF));
  EXPECT_EQ(stream_.Position(), 3U);
  EXPECT_EQ(Read(stream_, 1), "3");
  EXPECT_TRUE(stream_.Seek(10));
  EXPECT_TRUE(stream_.Seek(0));
  EXPECT_EQ(Read(stream_, 2), "01");
}

class FileInputBuffers : public FileInput, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(FileInputBuffers, OfAnySizeGiveTheSameBytes) {
  std::mt19937 random(1);
  std::string content(1000, '\0');
  for (char& byte : content) byte = static_cast<char>(random());
  WriteFile(dir_ / "file", content);
  BufferedFileInputStream stream(GetParam());
  ASSERT_TRUE(stream.Open(Wide(dir_ / "file")));
  for (int round = 0; round < 2000; ++round) {
    if (random() % 2 == 0) {
      ASSERT_TRUE(stream.Seek(static_cast<std::uint32_t>(random() % 1001)));
    }
    const std::uint32_t at = stream.Position();
    const auto size = static_cast<std::uint32_t>(random() % 40);
    ASSERT_EQ(Read(stream, size), at + size > 1000 ? "failed" : content.substr(at, size));
    ASSERT_EQ(stream.Remaining(), 1000 - stream.Position());
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, FileInputBuffers, testing::Values(0, 1, 7, 32, 999, 64 * 1024));

TEST_F(FileInput, OfAnEmptyFileHasNothing) {
  WriteFile(dir_ / "file", "");
  ASSERT_TRUE(Open("file"));
  EXPECT_EQ(stream_.Remaining(), 0U);
  EXPECT_EQ(Read(stream_, 1), "failed");
  EXPECT_TRUE(stream_.Seek(0));
  EXPECT_FALSE(stream_.Seek(1));
}

TEST_F(FileInput, OpensPathsBeyondAscii) {
  WriteFile(dir_ / "\xC3\xA4\xE4\xB8\xAD", "x");
  ASSERT_TRUE(stream_.Open(Wide(dir_.Path()) + L"/\x00E4\x4E2D"));
  EXPECT_EQ(Read(stream_, 1), "x");
}

TEST_F(FileInput, IsRefusedForAnythingButARegularFile) {
  ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(Open("missing"));
  EXPECT_EQ(stream_.Error(), ENOENT);
  EXPECT_FALSE(Open("."));
  EXPECT_EQ(stream_.Error(), EISDIR);
  EXPECT_FALSE(Open("pipe")) << "and does not wait for its writer";
  EXPECT_EQ(stream_.Error(), EINVAL);
  EXPECT_FALSE(stream_.Open(L"/dev/null"));
  EXPECT_EQ(stream_.Error(), EINVAL);
  EXPECT_FALSE(stream_.Open(L""));
  EXPECT_EQ(stream_.Error(), ENOENT);
}

TEST_F(FileInput, StartsOverWithTheNextFile) {
  WriteFile(dir_ / "one", "1111");
  WriteFile(dir_ / "two", "22");
  EXPECT_FALSE(Open("missing"));
  ASSERT_TRUE(Open("one"));
  EXPECT_EQ(stream_.Error(), 0);
  EXPECT_EQ(Read(stream_, 3), "111");
  ASSERT_TRUE(Open("two"));
  EXPECT_EQ(stream_.Position(), 0U);
  EXPECT_EQ(Read(stream_, 2), "22");
}

TEST_F(FileInput, IsClosedAfterAFailedOpening) {
  WriteFile(dir_ / "file", "1111");
  ASSERT_TRUE(Open("file"));
  ASSERT_EQ(Read(stream_, 1), "1");
  EXPECT_FALSE(Open("missing"));
  EXPECT_EQ(stream_.Position(), 0U);
  EXPECT_EQ(stream_.Remaining(), 0U);
  EXPECT_EQ(Read(stream_, 1), "failed");
}

TEST_F(FileInput, HasNothingOnceClosed) {
  WriteFile(dir_ / "file", "1111");
  ASSERT_TRUE(Open("file"));
  stream_.Close();
  EXPECT_EQ(stream_.Remaining(), 0U);
  EXPECT_EQ(Read(stream_, 1), "failed");
}

TEST_F(FileInput, AFileThatBecameShorterFailsAReadWithoutMoving) {
  WriteFile(dir_ / "file", "0123456789");
  ASSERT_TRUE(Open("file"));
  std::filesystem::resize_file(dir_ / "file", 5);
  EXPECT_EQ(Read(stream_, 3), "012");
  EXPECT_EQ(Read(stream_, 7), "failed");
  EXPECT_EQ(stream_.Error(), EIO);
  ASSERT_TRUE(stream_.Seek(4));
  EXPECT_EQ(Read(stream_, 3), "failed");
}

TEST_F(FileInput, OfMoreThan4GiBReachesWhatA32BitPositionCan) {
  WriteFile(dir_ / "file", "start");
  std::filesystem::resize_file(dir_ / "file", 0x1'0000'0010);
  ASSERT_TRUE(Open("file"));
  EXPECT_EQ(stream_.Remaining(), 0xFFFFFFFFU);
  ASSERT_TRUE(stream_.Seek(0xFFFFFFFE));
  EXPECT_EQ(Read(stream_, 1), std::string(1, '\0'));
  EXPECT_EQ(Read(stream_, 1), "failed");
  EXPECT_EQ(stream_.Remaining(), 0U);
  ASSERT_TRUE(stream_.Seek(0));
  EXPECT_EQ(Read(stream_, 5), "start");
}

TEST_F(FileInput, IsRefusedWhenMemoryIsShort) {
  WriteFile(dir_ / "file", "1111");
  const String path = Wide(dir_ / "file");
  bool opened = true;
  EXPECT_TRUE(test::RanShort(1, [&] { opened = stream_.Open(path); }));
  EXPECT_FALSE(opened);
  EXPECT_EQ(stream_.Error(), ENOMEM);
}

}  // namespace
}  // namespace kestrav
