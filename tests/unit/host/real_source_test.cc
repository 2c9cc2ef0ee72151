#include "kestrav/host/time/real_source.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace kestrav {
namespace {

TEST(RealSource, IsInUseUnlessAnotherIsSet) {
  EXPECT_NE(dynamic_cast<Time::RealSource*>(&Time::Source()), nullptr);
}

TEST(RealSource, ReadsAClockThatNeverGoesBack) {
  Time::RealSource source;
  std::uint32_t before = 0;
  ASSERT_TRUE(source.ReadMs(before));
  for (int i = 0; i < 1000; ++i) {
    std::uint32_t now = 0;
    ASSERT_TRUE(source.ReadMs(now));
    ASSERT_GE(static_cast<std::int32_t>(now - before), 0);
    before = now;
  }
}

TEST(RealSource, TellsTheMillisecondOfTheSystemsClock) {
  const auto clock_ms = [] {
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
  };
  Time::RealSource source;
  const std::uint32_t start = clock_ms();
  for (std::uint32_t after = start; after - start < 50;) {
    const std::uint32_t before = clock_ms();
    std::uint32_t now = 0;
    ASSERT_TRUE(source.ReadMs(now));
    after = clock_ms();
    ASSERT_LE(now - before, after - before);
  }
}

TEST(RealSource, ReadsTheWallClockInSeconds) {
  const auto now = [] {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  Time::RealSource source;
  const std::int64_t before = now();
  std::int64_t read = 0;
  ASSERT_TRUE(source.ReadWallClockScnds(read));
  EXPECT_GE(read, before);
  EXPECT_LE(read, now());
}

TEST(RealSource, AWaitEndsWithANotificationAlsoOneThatCameBefore) {
  Time::RealSource source;
  Time::Waiter waiter;
  EXPECT_FALSE(source.Wait(waiter, 0));
  EXPECT_FALSE(waiter.IsNotified());
  waiter.Notify();
  EXPECT_TRUE(waiter.IsNotified());
  EXPECT_TRUE(source.Wait(waiter, 0));
  EXPECT_TRUE(source.Wait(waiter, Time::kNoLimit));
}

TEST(RealSource, AWaitEndsWithANotificationFromAnotherThread) {
  Time::RealSource source;
  Time::Waiter waiter;
  const std::jthread notifier([&] { waiter.Notify(); });
  EXPECT_TRUE(source.Wait(waiter, Time::kNoLimit));
}

TEST(RealSource, AWaitEndsWhenItsTimeIsUp) {
  Time::RealSource source;
  Time::Waiter waiter;
  std::uint32_t before = 0;
  std::uint32_t after = 0;
  ASSERT_TRUE(source.ReadMs(before));
  EXPECT_FALSE(source.Wait(waiter, 2));
  ASSERT_TRUE(source.ReadMs(after));
  EXPECT_GE(after - before, 1U) << "both readings are cut to whole milliseconds";
}

}  // namespace
}  // namespace kestrav
