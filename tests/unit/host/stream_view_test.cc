#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/mapped_file_stream.h"
#include "kestrav/host/io/memory_stream.h"
#include "support/streams.h"
#include "unit/host/temp_dir.h"

// What readers and writers see that want no copy.

namespace kestrav::test {
namespace {

Bytes SomeBytes(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return bytes;
}

std::string AsText(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// Reads everything by views, reads and seeks in a random order and compares it.
void ExpectSameByViews(Io::IInputStream& stream, const Bytes& bytes, std::uint32_t largest_view) {
  std::mt19937 random(7);
  std::uint32_t at = 0;
  for (int step = 0; step < 5000; ++step) {
    ASSERT_EQ(stream.Position(), at);
    ASSERT_EQ(stream.Remaining(), bytes.size() - at);
    const auto wanted = static_cast<std::uint32_t>(random() % 90);
    switch (random() % 4) {
      case 0:
        at = static_cast<std::uint32_t>(random() % (bytes.size() + 1));
        ASSERT_TRUE(stream.Seek(at));
        break;
      case 1: {
        Bytes read(wanted);
        const bool there = wanted <= bytes.size() - at;
        ASSERT_EQ(stream.Read(read.data(), wanted), there);
        if (!there) break;
        ASSERT_TRUE(std::equal(read.begin(), read.end(), bytes.begin() + at));
        at += wanted;
        break;
      }
      default: {
        const std::span<const std::uint8_t> view = stream.View(wanted);
        if (wanted > bytes.size() - at || wanted > largest_view) {
          ASSERT_TRUE(view.empty());
          break;
        }
        ASSERT_GE(view.size(), wanted);
        ASSERT_LE(view.size(), bytes.size() - at);
        ASSERT_TRUE(std::equal(view.begin(), view.end(), bytes.begin() + at));
        stream.Advance(wanted);
        at += wanted;
        break;
      }
    }
  }
}

TEST(StreamView, OfMemoryIsAllThatIsLeft) {
  const Bytes bytes = SomeBytes(1000);
  Io::MemoryInputStream stream(bytes.data(), 1000);
  ExpectSameByViews(stream, bytes, 1000);
}

TEST(StreamView, OfABufferedFileIsNoLongerThanItsBuffer) {
  const TempDir folder;
  const Bytes bytes = SomeBytes(1000);
  WriteFile(folder / "file", AsText(bytes));
  for (const std::uint32_t buffer : {1U, 20U, 64U, 999U, 1000U, 4096U}) {
    Io::BufferedFileInputStream stream(buffer);
    ASSERT_TRUE(stream.Open(Wide(folder / "file")));
    ExpectSameByViews(stream, bytes, buffer);
  }
}

TEST(MappedFile, ReadsAsAnyOther) {
  const TempDir folder;
  const Bytes bytes = SomeBytes(10'000);
  WriteFile(folder / "file", AsText(bytes));
  Io::MappedFileInputStream stream;
  ASSERT_TRUE(stream.Open(Wide(folder / "file")));
  ExpectSameByViews(stream, bytes, 10'000);
  ASSERT_TRUE(stream.Open(Wide(folder / "file")));
  EXPECT_EQ(stream.Position(), 0U);
  EXPECT_FALSE(stream.Seek(10'001));
}

TEST(MappedFile, MayBeEmpty) {
  const TempDir folder;
  WriteFile(folder / "file", "");
  Io::MappedFileInputStream stream;
  ASSERT_TRUE(stream.Open(Wide(folder / "file")));
  EXPECT_EQ(stream.Remaining(), 0U);
  EXPECT_TRUE(stream.View(1).empty());
  std::uint8_t byte = 0;
  EXPECT_FALSE(stream.Read(&byte, 1));
}

TEST(MappedFile, TellsWhyItCannotBeRead) {
  const TempDir folder;
  Io::MappedFileInputStream stream;
  EXPECT_FALSE(stream.Open(Wide(folder / "none")));
  EXPECT_EQ(stream.Error(), ENOENT);
  EXPECT_FALSE(stream.Open(Wide(folder.Path())));
  EXPECT_EQ(stream.Error(), EISDIR);
  EXPECT_EQ(stream.Remaining(), 0U);
}

TEST(StreamRoom, OfABufferedFileIsWrittenAsAWriteWouldBe) {
  const TempDir folder;
  const Bytes bytes = SomeBytes(5000);
  for (const std::uint32_t buffer : {1U, 64U, 100U, 8192U}) {
    Io::BufferedFileOutputStream stream(buffer);
    ASSERT_TRUE(stream.Open(Wide(folder / "file"), Io::OpenMode::kCreate));
    std::mt19937 random(buffer);
    for (std::uint32_t at = 0; at < bytes.size();) {
      const auto size = std::min(static_cast<std::uint32_t>(random() % 99 + 1),
                                 static_cast<std::uint32_t>(bytes.size()) - at);
      if (std::uint8_t* const room = stream.Reserve(size); room != nullptr) {
        ASSERT_LE(size, buffer);
        std::memcpy(room, bytes.data() + at, size);
        if (random() % 3 == 0) continue;  // given back
        stream.Commit(size);
      } else {
        ASSERT_GT(size, buffer);
        ASSERT_TRUE(stream.Write(bytes.data() + at, size));
      }
      at += size;
      ASSERT_EQ(stream.Position(), at);
    }
    ASSERT_TRUE(stream.Close());
    EXPECT_EQ(FileContent(folder / "file"), AsText(bytes));
  }
}

TEST(StreamRoom, IsRefusedByAClosedFileAndByStreamsThatKnowOnlyWrites) {
  Io::BufferedFileOutputStream closed;
  EXPECT_EQ(closed.Reserve(1), nullptr);
  BytesOutputStream stream;
  EXPECT_EQ(static_cast<Io::IOutputStream&>(stream).Reserve(1), nullptr);
}

}  // namespace
}  // namespace kestrav::test
