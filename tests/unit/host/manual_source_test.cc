#include "kestrav/host/time/manual_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/manual_clock.h"
#include "unit/host/function_thread.h"

namespace kestrav {
namespace {

using test::FunctionThread;
using test::ManualClock;
using test::NowMs;
using test::Told;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Time::kNoLimit;
using Time::ManualSource;

TEST(ManualSource, MovesOnlyWhenTold) {
  ManualSource source(500, 77);
  std::uint32_t ms = 0;
  std::int64_t scnds = 0;
  ASSERT_TRUE(source.ReadMs(ms));
  ASSERT_TRUE(source.ReadWallClockScnds(scnds));
  EXPECT_EQ(ms, 500U);
  EXPECT_EQ(scnds, 77);
  EXPECT_EQ(source.ElapsedMs(), 0U);
  source.Advance(999);
  ASSERT_TRUE(source.ReadMs(ms));
  ASSERT_TRUE(source.ReadWallClockScnds(scnds));
  EXPECT_EQ(ms, 1499U);
  EXPECT_EQ(scnds, 77);
  source.Advance(1);
  ASSERT_TRUE(source.ReadWallClockScnds(scnds));
  EXPECT_EQ(scnds, 78);
  EXPECT_EQ(source.ElapsedMs(), 1000U);
}

TEST(ManualSource, WrapsItsMillisecondsAt32Bits) {
  ManualSource source(0xFFFFFFFF);
  std::uint32_t ms = 0;
  source.Advance(2);
  ASSERT_TRUE(source.ReadMs(ms));
  EXPECT_EQ(ms, 1U);
  source.Advance(0xFFFFFFFF);
  source.Advance(0xFFFFFFFF);
  EXPECT_EQ(source.ElapsedMs(), 2 + 2 * std::uint64_t{0xFFFFFFFF});
}

TEST(ManualSource, MovesToATimeButNeverBack) {
  ManualSource source(1000);
  source.MoveTo(250);
  EXPECT_EQ(source.ElapsedMs(), 250U);
  source.MoveTo(100);
  EXPECT_EQ(source.ElapsedMs(), 250U);
  source.MoveTo(0x1'0000'0000);
  EXPECT_EQ(source.ElapsedMs(), 0x1'0000'0000U);
}

TEST(ManualSource, FailsReadingsOfTheClockAfterSoManyUntilItRecovers) {
  ManualSource source;
  std::uint32_t ms = 0;
  source.FailMs(2);
  EXPECT_TRUE(source.ReadMs(ms));
  EXPECT_TRUE(source.ReadMs(ms));
  EXPECT_FALSE(source.ReadMs(ms));
  EXPECT_FALSE(source.ReadMs(ms));
  source.Recover();
  EXPECT_TRUE(source.ReadMs(ms));
  source.FailMs();
  EXPECT_FALSE(source.ReadMs(ms));
}

TEST(ManualSource, FailsTheWallClockAlone) {
  ManualSource source;
  std::uint32_t ms = 0;
  std::int64_t scnds = 0;
  source.FailWallClock();
  EXPECT_FALSE(source.ReadWallClockScnds(scnds));
  EXPECT_TRUE(source.ReadMs(ms));
  source.Recover();
  EXPECT_TRUE(source.ReadWallClockScnds(scnds));
  source.FailMs();
  EXPECT_TRUE(source.ReadWallClockScnds(scnds));
}

TEST(ManualSource, IsInUseForAsLongAsItIsSet) {
  ManualSource source(4711);
  Time::ISource* const before = Time::SetSource(&source);
  EXPECT_EQ(&Time::Source(), &source);
  EXPECT_EQ(NowMs(), 4711U);
  EXPECT_EQ(Time::SetSource(nullptr), &source);
  EXPECT_EQ(&Time::Source(), before) << "the real one";
}

TEST(ManualSource, AWaitWithoutTimeOnlyLooks) {
  ManualSource source;
  Time::Waiter waiter;
  EXPECT_FALSE(source.Wait(waiter, 0));
  waiter.Notify();
  EXPECT_TRUE(source.Wait(waiter, 0));
  EXPECT_TRUE(source.Wait(waiter, 100));
  EXPECT_TRUE(source.Wait(waiter, kNoLimit));
  EXPECT_EQ(source.ElapsedMs(), 0U);
}

using Wakes = Told<std::pair<std::string, std::uint32_t>>;

// Threads that wait one after the other and tell who woke when.
class ManualWaits : public testing::Test {
 protected:
  // Adds a thread that waits for `timeouts_ms` one after the other.
  void Start(const std::string& name, std::vector<std::uint32_t> timeouts_ms) {
    threads_.push_back(std::make_unique<FunctionThread>([this, name, timeouts_ms] {
      for (const std::uint32_t timeout_ms : timeouts_ms) {
        Time::Waiter waiter;
        EXPECT_FALSE(Time::Source().Wait(waiter, timeout_ms));
        wakes_.Tell({name, NowMs()});
      }
    }));
    ASSERT_TRUE(threads_.back()->Start());
    clock_->Settle();
  }

  ManualClock clock_{0};
  Wakes wakes_;
  std::vector<std::unique_ptr<FunctionThread>> threads_;
};

TEST_F(ManualWaits, WakeInTheOrderOfTheirTimesEachAtItsOwn) {
  Start("late", {30});
  Start("early", {10});
  Start("middle", {20});
  clock_->Advance(25);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("early", 10), Pair("middle", 20)));
  EXPECT_EQ(NowMs(), 25U);
  clock_->Advance(100);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("early", 10), Pair("middle", 20), Pair("late", 30)));
}

TEST_F(ManualWaits, WithEqualTimesWakeInTheOrderInWhichTheyBegan) {
  Start("first", {20});
  Start("second", {20});
  clock_->Advance(5);
  Start("third", {15});
  clock_->Advance(15);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("first", 20), Pair("second", 20), Pair("third", 20)));
}

TEST_F(ManualWaits, ThatBeganTogetherWakeInTheOrderInWhichTheirThreadsStarted) {
  Time::Waiter gate;
  FunctionThread first([&] {
    Time::Source().Wait(gate, kNoLimit);
    Time::Waiter waiter;
    EXPECT_FALSE(Time::Source().Wait(waiter, 20));
    wakes_.Tell({"first", NowMs()});
  });
  ASSERT_TRUE(first.Start());
  Start("second", {20});
  gate.Notify();
  clock_->Settle();
  clock_->Advance(20);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("first", 20), Pair("second", 20)));
}

TEST_F(ManualWaits, OneThreadIsBackAtRestBeforeTheNextWakes) {
  Start("often", {10, 5, 4, 3});
  Start("once", {20});
  clock_->Advance(100);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("often", 10), Pair("often", 15), Pair("often", 19),
                                        Pair("once", 20), Pair("often", 22)));
}

TEST_F(ManualWaits, AreWokenByAMoveToATimeAsWell) {
  Start("one", {10, 20});
  clock_->MoveTo(9);
  EXPECT_THAT(wakes_.All(), IsEmpty());
  clock_->MoveTo(50);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("one", 10), Pair("one", 30)));
  EXPECT_EQ(clock_->ElapsedMs(), 50U);
}

TEST_F(ManualWaits, AreReachedOneTimeAfterTheOther) {
  Start("one", {10, 20});
  Start("two", {10});
  EXPECT_TRUE(clock_->AdvanceToNextDue());
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("one", 10), Pair("two", 10)));
  EXPECT_TRUE(clock_->AdvanceToNextDue());
  EXPECT_EQ(clock_->ElapsedMs(), 30U);
  EXPECT_FALSE(clock_->AdvanceToNextDue());
  EXPECT_EQ(clock_->ElapsedMs(), 30U);
}

TEST_F(ManualWaits, GoPastTheWrapOf32Bits) {
  clock_->Advance(0xFFFFFFF0);
  Start("one", {0x20});
  clock_->Advance(0x1F);
  EXPECT_THAT(wakes_.All(), IsEmpty());
  clock_->Advance(1);
  EXPECT_THAT(wakes_.All(), ElementsAre(Pair("one", 0x10)));
}

TEST(ManualSource, AMoveThatNothingIsDueForWaitsForNobody) {
  ManualClock clock(0);
  std::latch gate(1);
  std::uint32_t seen_ms = 0;
  FunctionThread busy([&] {
    gate.wait();
    seen_ms = NowMs();
  });
  ASSERT_TRUE(busy.Start());
  clock->MoveTo(5000);
  gate.count_down();
  clock->Settle();
  EXPECT_EQ(seen_ms, 5000U);
}

TEST(ManualSource, ANotifiedWaitDoesNotRunOutOfTime) {
  ManualClock clock;
  Time::Waiter waiter;
  Told<bool> results;
  FunctionThread thread([&] { results.Tell(Time::Source().Wait(waiter, 10)); });
  ASSERT_TRUE(thread.Start());
  clock->Settle();
  waiter.Notify();
  clock->Advance(10);
  EXPECT_THAT(results.All(), ElementsAre(true));
}

TEST(ManualSource, SettlesWhenEveryThreadHasDoneWhatItWasGiven) {
  constexpr int kHops = 500;
  ManualClock clock;
  int hops = 0;
  Thread::ManualResetEvent ball[2];
  const auto play = [&](int side) {
    Thread::ManualResetEvent* const mine[] = {&ball[side]};
    while (Thread::WaitForFirst(mine, Time::kNoLimit) == 0) {
      ball[side].Reset();
      const bool last = ++hops >= kHops;
      ball[1 - side].Set();
      if (last) return;
    }
  };
  FunctionThread left([&] { play(0); });
  FunctionThread right([&] { play(1); });
  ASSERT_TRUE(left.Start());
  ASSERT_TRUE(right.Start());
  clock->Settle();
  EXPECT_EQ(hops, 0);
  ball[0].Set();
  clock->Settle();
  EXPECT_EQ(hops, kHops + 1);
}

TEST(ManualSource, IsOutlivedByNoThreadThatStartedUnderIt) {
  bool ended = false;
  std::unique_ptr<FunctionThread> thread;
  {
    ManualClock clock;
    thread = std::make_unique<FunctionThread>([&ended](FunctionThread& self) {
      Thread::ManualResetEvent* const events[] = {&self.QuitEvent()};
      EXPECT_EQ(Thread::WaitForFirst(events, Time::kNoLimit), 0);
      ended = true;
    });
    ASSERT_TRUE(thread->Start());
    clock->Settle();
    thread->Quit();
  }
  EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace kestrav
