#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>

#include "support/manual_clock.h"
#include "unit/host/written_file.h"

// What a file leaves free on its file system.

namespace kestrav::test {
namespace {

class ClockOfTheTest {
 protected:
  ManualClock clock_;  // outlives the stream
};

class FileReserve : public ClockOfTheTest, public WrittenFile {};

TEST_F(FileReserve, OfNothingAsksNobody) {
  files_.SetFreeBytes(0);
  ASSERT_TRUE(Open({}));
  EXPECT_TRUE(WriteThrough("abc"));
  EXPECT_EQ(Looks(), 0U);
}

TEST_F(FileReserve, RefusesAWriteThatWouldTakeFromItBeforeItIsBegun) {
  files_.SetFreeBytes(105);
  ASSERT_TRUE(Open({.buffer_bytes = 8, .sync_interval_ms = 0, .reserve_bytes = 100}));
  EXPECT_FALSE(Write("0123456789")) << "a long one";
  EXPECT_FALSE(WriteThrough("012345")) << "a buffered one";
  EXPECT_EQ(stream_->Error(), ENOSPC);
  EXPECT_EQ(Pwrites(), 0U);
  EXPECT_EQ(stream_->Counts().failed_writes, 2U);
  files_.SetFreeBytes(106);
  EXPECT_TRUE(stream_->Flush()) << "what is left is the reserve";
  EXPECT_EQ(Content(), "012345");
}

TEST_F(FileReserve, HoldsWithLessFreeThanItself) {
  files_.SetFreeBytes(99);
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 100}));
  EXPECT_FALSE(WriteThrough("a"));
  EXPECT_EQ(stream_->Error(), ENOSPC);
}

TEST_F(FileReserve, IsNotTouchedByWritesOverOldBytes) {
  files_.SetFreeBytes(1000);
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 100}));
  ASSERT_TRUE(WriteThrough("0123456789"));
  files_.SetFreeBytes(0);
  ASSERT_TRUE(stream_->Seek(0));
  EXPECT_TRUE(WriteThrough("abcdefghij")) << "a header is finished on a full disk, too";
  ASSERT_TRUE(stream_->Seek(5));
  EXPECT_TRUE(WriteThrough("ABCDE"));
  EXPECT_EQ(stream_->Error(), 0);
  EXPECT_EQ(Content(), "abcdeABCDE");
}

TEST_F(FileReserve, IsAskedForWhenHalfOfWhatWasFreeAboveItIsTaken) {
  files_.SetFreeBytes(100 + 80);
  ASSERT_TRUE(Open({.buffer_bytes = 1, .sync_interval_ms = 0, .reserve_bytes = 100}));
  for (int i = 0; i < 8; ++i) ASSERT_TRUE(Write("12345"));
  EXPECT_EQ(Looks(), 1U);
  files_.SetFreeBytes(100 + 40);
  ASSERT_TRUE(Write("1"));
  EXPECT_EQ(Looks(), 2U);
}

TEST_F(FileReserve, IsAskedForEvery16MiBAtLeast) {
  constexpr std::uint32_t kBlock = 64 * 1024;
  const std::string block(kBlock, 'x');
  files_.SetFreeBytes(std::numeric_limits<std::uint64_t>::max());
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 0x1'0000'0000}));
  for (int i = 0; i < 2 * 256; ++i) ASSERT_TRUE(Write(block));
  EXPECT_EQ(Looks(), 2U);
  ASSERT_TRUE(Write("x") && stream_->Flush());
  EXPECT_EQ(Looks(), 3U);
}

TEST_F(FileReserve, IsAskedForAgainAfterEachSync) {
  files_.SetFreeBytes(1'000'000);
  ASSERT_TRUE(Open({.sync_interval_ms = 100, .reserve_bytes = 100}));
  ASSERT_TRUE(WriteThrough("a"));
  ASSERT_TRUE(WriteThrough("b"));
  EXPECT_EQ(Looks(), 1U);
  clock_->Advance(100);
  files_.SetFreeBytes(100);  // others have taken the rest
  EXPECT_FALSE(WriteThrough("c"));
  EXPECT_EQ(Looks(), 2U);
}

TEST_F(FileReserve, IsAskedForAtEveryAttemptWhileItIsReached) {
  files_.SetFreeBytes(103);
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 100}));
  EXPECT_FALSE(WriteThrough("abcdef"));
  EXPECT_FALSE(stream_->Flush());
  EXPECT_EQ(Looks(), 2U);
  files_.SetFreeBytes(200);
  EXPECT_TRUE(stream_->Flush());
  EXPECT_EQ(Content(), "abcdef");
}

TEST_F(FileReserve, OfMoreThan4GiBIsCountedIn64Bits) {
  constexpr std::uint64_t kReserve = 5ULL << 32;
  files_.SetFreeBytes(kReserve + 2);
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = kReserve}));
  EXPECT_FALSE(WriteThrough("abc"));
  stream_->DropUnflushed();
  EXPECT_TRUE(WriteThrough("ab"));
}

TEST_F(FileReserve, ThatNobodyTellsAboutStopsNothingAndIsReported) {
  files_.Fail(FileCall::kFstatvfs, ENOSYS, 1, Lasts::kFromThenOn);
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 100}));
  EXPECT_TRUE(WriteThrough("abc"));
  EXPECT_TRUE(WriteThrough("def"));
  EXPECT_EQ(Looks(), 1U) << "nor is it asked about at every write";
  EXPECT_EQ(stream_->Error(), ENOSYS);
  EXPECT_EQ(stream_->Counts().failed_writes, 0U);
  EXPECT_EQ(Content(), "abcdef");
}

TEST_F(FileReserve, IsComparedWithTheRealFreeSpace) {
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 1ULL << 62}));
  EXPECT_FALSE(WriteThrough("abc"));
  EXPECT_EQ(stream_->Error(), ENOSPC);
  ASSERT_TRUE(Open({.sync_interval_ms = 0, .reserve_bytes = 1}));
  EXPECT_TRUE(WriteThrough("abc"));
}

}  // namespace
}  // namespace kestrav::test
