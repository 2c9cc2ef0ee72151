#include "kestrav/host/io/memory_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace kestrav {
namespace {

using testing::ElementsAre;

constexpr std::uint8_t kFiveBytes[] = {1, 2, 3, 4, 5};

Memory::MemBlock BlockOfFive() {
  Memory::MemBlock block;
  EXPECT_TRUE(block.Assign(kFiveBytes, sizeof(kFiveBytes)));
  return block;
}

TEST(MemoryInputStream, ReadsTheBytesOfABlockInOrder) {
  const Memory::MemBlock block = BlockOfFive();
  Io::MemoryInputStream stream(block);
  std::array<std::uint8_t, 3> bytes{};
  EXPECT_EQ(stream.Remaining(), 5U);
  EXPECT_TRUE(stream.Read(bytes.data(), 3));
  EXPECT_THAT(bytes, ElementsAre(1, 2, 3));
  EXPECT_EQ(stream.Position(), 3U);
  EXPECT_EQ(stream.Remaining(), 2U);
}

TEST(MemoryInputStream, AReadBeyondTheEndFailsWithoutMoving) {
  Io::MemoryInputStream stream(kFiveBytes, 5);
  std::array<std::uint8_t, 8> bytes{};
  ASSERT_TRUE(stream.Seek(3));
  EXPECT_FALSE(stream.Read(bytes.data(), 3));
  EXPECT_FALSE(stream.Read(bytes.data(), 0xFFFFFFFF));
  EXPECT_EQ(stream.Position(), 3U);
  EXPECT_THAT(bytes, testing::Each(0));
  EXPECT_TRUE(stream.Read(bytes.data(), 2));
  EXPECT_FALSE(stream.Read(bytes.data(), 1));
  EXPECT_TRUE(stream.Read(nullptr, 0));
}

TEST(MemoryInputStream, ASeekBeyondTheEndFailsWithoutMoving) {
  Io::MemoryInputStream stream(kFiveBytes, 5);
  ASSERT_TRUE(stream.Seek(2));
  EXPECT_FALSE(stream.Seek(6));
  EXPECT_FALSE(stream.Seek(0xFFFFFFFF));
  EXPECT_EQ(stream.Position(), 2U);
  EXPECT_TRUE(stream.Seek(5));
  EXPECT_EQ(stream.Remaining(), 0U);
  EXPECT_TRUE(stream.Seek(0));
}

TEST(MemoryInputStream, OverAnEmptyBlockHasNothing) {
  const Memory::MemBlock block;
  Io::MemoryInputStream stream(block);
  std::uint8_t byte = 0;
  EXPECT_EQ(stream.Remaining(), 0U);
  EXPECT_FALSE(stream.Read(&byte, 1));
  EXPECT_TRUE(stream.Seek(0));
  EXPECT_FALSE(stream.Seek(1));
}

TEST(MemoryOutputStream, WritesOverTheBytesOfABlock) {
  Memory::MemBlock block = BlockOfFive();
  Io::MemoryOutputStream stream(block);
  constexpr std::uint8_t kNew[] = {7, 8};
  EXPECT_TRUE(stream.Write(kNew, 2));
  EXPECT_TRUE(stream.Seek(4));
  EXPECT_TRUE(stream.Write(kNew, 1));
  EXPECT_EQ(stream.Position(), 5U);
  EXPECT_TRUE(stream.Flush());
  EXPECT_THAT(std::vector(block.Data(), block.Data() + 5), ElementsAre(7, 8, 3, 4, 7));
}

TEST(MemoryOutputStream, RefusesWhatDoesNotFitWhole) {
  Memory::MemBlock block = BlockOfFive();
  Io::MemoryOutputStream stream(block);
  ASSERT_TRUE(stream.Seek(3));
  EXPECT_FALSE(stream.Write(kFiveBytes, 3));
  EXPECT_FALSE(stream.Write(kFiveBytes, 0xFFFFFFFF));
  EXPECT_EQ(stream.Position(), 3U);
  EXPECT_TRUE(stream.Write(kFiveBytes, 2));
  EXPECT_FALSE(stream.Write(kFiveBytes, 1));
  EXPECT_TRUE(stream.Write(nullptr, 0));
  EXPECT_THAT(std::vector(block.Data(), block.Data() + 5), ElementsAre(1, 2, 3, 1, 2));
}

TEST(MemoryOutputStream, ASeekBeyondTheEndFailsWithoutMoving) {
  Memory::MemBlock block = BlockOfFive();
  Io::MemoryOutputStream stream(block);
  ASSERT_TRUE(stream.Seek(5));
  EXPECT_FALSE(stream.Seek(6));
  EXPECT_EQ(stream.Position(), 5U);
}

TEST(MemoryOutputStream, RefusesWritesWhenItsBlockHasShrunk) {
  Memory::MemBlock block = BlockOfFive();
  Io::MemoryOutputStream stream(block);
  ASSERT_TRUE(stream.Seek(5));
  ASSERT_TRUE(block.Resize(2));
  EXPECT_FALSE(stream.Write(kFiveBytes, 1));
}

}  // namespace
}  // namespace kestrav
