#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kestrav/host/memory/byte_order.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/try.h"
#include "support/short_memory.h"

namespace kestrav {
namespace {

using Memory::MemBlock;
using test::RanShort;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr std::uint8_t kContent[] = {1, 2, 3, 4, 5};

std::vector<std::uint8_t> Content(const MemBlock& block) {
  return {block.Data(), block.Data() + block.Size()};
}

MemBlock BlockOfContent() {
  MemBlock block;
  EXPECT_TRUE(block.Assign(kContent, sizeof(kContent)));
  return block;
}

TEST(MemBlock, StartsEmptyAndHoldsNoMemory) {
  const MemBlock block;
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_EQ(block.Size(), 0U);
  EXPECT_EQ(block.Data(), nullptr);
}

TEST(MemBlock, HoldsACopyOfWhatItWasAssigned) {
  std::array<std::uint8_t, 3> bytes = {7, 8, 9};
  MemBlock block;
  ASSERT_TRUE(block.Assign(bytes.data(), 3));
  bytes[0] = 0;
  EXPECT_THAT(Content(block), ElementsAre(7, 8, 9));
  EXPECT_FALSE(block.IsEmpty());
  ASSERT_TRUE(block.Assign(bytes.data(), 2));
  EXPECT_THAT(Content(block), ElementsAre(0, 8));
  ASSERT_TRUE(block.Assign(nullptr, 0));
  EXPECT_TRUE(block.IsEmpty());
}

TEST(MemBlock, MayBeAssignedAPartOfItself) {
  MemBlock block = BlockOfContent();
  ASSERT_TRUE(block.Assign(block.Data() + 1, 4));
  EXPECT_THAT(Content(block), ElementsAre(2, 3, 4, 5));
}

TEST(MemBlock, KeepsItsBytesWhenItGrowsOrShrinks) {
  MemBlock block = BlockOfContent();
  ASSERT_TRUE(block.Resize(100'000));
  EXPECT_EQ(block.Size(), 100'000U);
  EXPECT_EQ(std::memcmp(block.Data(), kContent, 5), 0);
  ASSERT_TRUE(block.Resize(2));
  EXPECT_THAT(Content(block), ElementsAre(1, 2));
  ASSERT_TRUE(block.Resize(0));
  EXPECT_TRUE(block.IsEmpty());
}

TEST(MemBlock, FillsItsBytesWithZeros) {
  MemBlock block = BlockOfContent();
  block.FillWithZeros();
  EXPECT_THAT(Content(block), ElementsAre(0, 0, 0, 0, 0));
  MemBlock empty;
  empty.FillWithZeros();
  EXPECT_TRUE(empty.IsEmpty());
}

TEST(MemBlock, LetsGoOfItsMemoryWhenCleared) {
  MemBlock block = BlockOfContent();
  block.Clear();
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_EQ(block.Data(), nullptr);
  ASSERT_TRUE(block.Assign(kContent, 5));
  EXPECT_THAT(Content(block), ElementsAreArray(kContent));
}

TEST(MemBlock, LeavesAnEmptyBlockBehindWhenMoved) {
  MemBlock source = BlockOfContent();
  MemBlock target(std::move(source));
  EXPECT_THAT(Content(target), ElementsAreArray(kContent));
  EXPECT_TRUE(source.IsEmpty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source.Data(), nullptr);
  ASSERT_TRUE(source.Resize(3));
  source = std::move(target);
  EXPECT_THAT(Content(source), ElementsAreArray(kContent));
  EXPECT_TRUE(target.IsEmpty());  // NOLINT(bugprone-use-after-move)
  ASSERT_TRUE(target.Assign(kContent, 1));
  EXPECT_THAT(Content(target), ElementsAre(1));
}

TEST(MemBlock, ShortOfMemoryChangesNothing) {
  MemBlock block = BlockOfContent();
  std::vector<std::uint8_t> bytes(100);
  bool resized = true;
  bool assigned = true;
  EXPECT_TRUE(RanShort(0, [&] { resized = block.Resize(100); }));
  EXPECT_TRUE(RanShort(0, [&] { assigned = block.Assign(bytes.data(), 100); }));
  EXPECT_FALSE(resized);
  EXPECT_FALSE(assigned);
  EXPECT_THAT(Content(block), ElementsAreArray(kContent));
}

TEST(MemBlock, NeedsNoMemoryToShrinkAndGrowBack) {
  MemBlock block = BlockOfContent();
  EXPECT_FALSE(RanShort(0, [&] {
    static_cast<void>(block.Resize(1));
    static_cast<void>(block.Resize(5));
  }));
  EXPECT_EQ(block.Size(), 5U);
}

template <class T>
std::vector<std::uint8_t> Put(T value) {
  std::vector<std::uint8_t> bytes(sizeof(T) + 2, 0xEE);
  Memory::PutLittleEndian(bytes.data() + 1, value);  // at an odd address too
  EXPECT_EQ(Memory::GetLittleEndian<T>(bytes.data() + 1), value);
  EXPECT_EQ(bytes.front(), 0xEE);
  EXPECT_EQ(bytes.back(), 0xEE);
  return {bytes.begin() + 1, bytes.end() - 1};
}

TEST(LittleEndian, PutsTheLeastSignificantByteFirst) {
  EXPECT_THAT(Put<std::uint8_t>(0xFE), ElementsAre(0xFE));
  EXPECT_THAT(Put<std::uint16_t>(0xFE01), ElementsAre(0x01, 0xFE));
  EXPECT_THAT(Put<std::uint32_t>(0x89ABCDEF), ElementsAre(0xEF, 0xCD, 0xAB, 0x89));
  EXPECT_THAT(Put<std::uint64_t>(0x8877665544332211),
              ElementsAre(0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88));
}

TEST(LittleEndian, KeepsTheSign) {
  EXPECT_THAT(Put<std::int32_t>(-2), ElementsAre(0xFE, 0xFF, 0xFF, 0xFF));
  EXPECT_THAT(Put<std::int16_t>(-32768), ElementsAre(0x00, 0x80));
}

TEST(Try, TellsWhetherAStepThrew) {
  int steps = 0;
  EXPECT_TRUE(Memory::Try([&] { ++steps; }));
  EXPECT_FALSE(Memory::Try([&] {
    ++steps;
    throw std::runtime_error("on purpose");
  }));
  EXPECT_EQ(steps, 2);
}

TEST(MakeShared, MakesAnObjectOrAnEmptyPointer) {
  EXPECT_EQ(*Memory::MakeShared<int>(7), 7);
  SmartPtr::Ptr<int> pointer = Memory::MakeShared<int>(1);
  EXPECT_TRUE(RanShort(0, [&] { pointer = Memory::MakeShared<int>(7); }));
  EXPECT_EQ(pointer, nullptr);
}

}  // namespace
}  // namespace kestrav
