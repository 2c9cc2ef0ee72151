#include "kestrav/host/time/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "support/manual_clock.h"
#include "support/short_memory.h"
#include "unit/host/function_thread.h"

namespace kestrav {
namespace {

using test::ManualClock;
using test::NowMs;
using test::Told;
using testing::ElementsAre;
using testing::IsEmpty;
using Time::Timer;

constexpr std::uint64_t kMs = 1000;  // timer periods are in microseconds

// A clock that starts at 0 and the times of the calls.
class Timers : public testing::Test {
 protected:
  auto TellTheTime() {
    return [this] { calls_.Tell(NowMs()); };
  }

  ManualClock clock_{0};
  Told<std::uint32_t> calls_;
  Timer timer_;
};

TEST_F(Timers, CallEveryPeriodToTheMillisecond) {
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Advance(9);
  EXPECT_THAT(calls_.All(), IsEmpty());
  clock_->Advance(1);
  EXPECT_THAT(calls_.All(), ElementsAre(10));
  clock_->Advance(25);
  EXPECT_THAT(calls_.All(), ElementsAre(10, 20, 30));
}

TEST_F(Timers, CountTheFirstPeriodFromTheirSetting) {
  clock_->Advance(123);
  ASSERT_TRUE(timer_.SetPeriodic(1000 * kMs, TellTheTime()));
  clock_->Advance(2500);
  EXPECT_THAT(calls_.All(), ElementsAre(1123, 2123));
}

TEST_F(Timers, RoundTheirPeriodDownToMillisecondsButNotBelowOne) {
  for (const unsigned period_us : {0U, 1U, 999U, 1000U, 1999U}) {
    Told<std::uint32_t> calls;
    Timer timer;
    const std::uint32_t start = NowMs();
    ASSERT_TRUE(timer.SetPeriodic(period_us, [&] { calls.Tell(NowMs() - start); }));
    clock_->Advance(3);
    EXPECT_THAT(calls.All(), ElementsAre(1, 2, 3)) << period_us;
  }
}

TEST_F(Timers, OfTheLongestPeriodCallAfterHalfTheRangeOfTheClock) {
  ASSERT_TRUE(timer_.SetPeriodic(~std::uint64_t{0}, TellTheTime()));
  clock_->Advance(0x7FFFFFFE);
  EXPECT_THAT(calls_.All(), IsEmpty());
  clock_->Advance(1);
  EXPECT_THAT(calls_.All(), ElementsAre(0x7FFFFFFF));
  clock_->Advance(0x7FFFFFFF);
  EXPECT_THAT(calls_.All(), ElementsAre(0x7FFFFFFF, 0xFFFFFFFE));
}

TEST_F(Timers, GoOnWhenTheClockWraps) {
  clock_->Advance(0xFFFFFFFB);
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Advance(25);
  EXPECT_THAT(calls_.All(), ElementsAre(5, 15));
}

TEST_F(Timers, RunSideBySide) {
  Timer other;
  ASSERT_TRUE(timer_.SetPeriodic(20 * kMs, TellTheTime()));
  ASSERT_TRUE(timer_.SetPeriodic(35 * kMs, TellTheTime()));
  clock_->Advance(5);
  ASSERT_TRUE(other.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Advance(35);
  EXPECT_THAT(calls_.All(), ElementsAre(15, 20, 25, 35, 35, 40));
}

TEST_F(Timers, NeverCallOnceKilled) {
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  ASSERT_TRUE(timer_.SetPeriodic(15 * kMs, TellTheTime()));
  clock_->Advance(10);
  timer_.KillAll();
  timer_.KillAll();
  clock_->Advance(1000);
  EXPECT_THAT(calls_.All(), ElementsAre(10));
}

TEST_F(Timers, NeverCallOnceGone) {
  {
    Timer timer;
    ASSERT_TRUE(timer.SetPeriodic(10 * kMs, TellTheTime()));
  }
  clock_->Advance(1000);
  EXPECT_THAT(calls_.All(), IsEmpty());
}

TEST_F(Timers, OneThatIsKilledLeavesTheOthersAlone) {
  Timer other;
  ASSERT_TRUE(other.SetPeriodic(4 * kMs, TellTheTime()));
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Advance(5);
  other.KillAll();
  clock_->Advance(15);
  EXPECT_THAT(calls_.All(), ElementsAre(4, 10, 20));
}

TEST_F(Timers, CanBeSetAgainAfterTheLastOneWasKilled) {
  for (std::uint32_t round = 0; round < 200; ++round) {
    Told<std::uint32_t> calls;
    ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, [&] { calls.Tell(NowMs()); }));
    clock_->Advance(10);
    timer_.KillAll();
    ASSERT_THAT(calls.All(), ElementsAre(10 * round + 10));
  }
}

TEST_F(Timers, MayBeKilledByTheirOwnCall) {
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, [this] {
    calls_.Tell(NowMs());
    timer_.KillAll();
  }));
  clock_->Advance(100);
  EXPECT_THAT(calls_.All(), ElementsAre(10));
}

TEST_F(Timers, MayEndInTheirOwnCall) {
  auto timer = std::make_unique<Timer>();
  ASSERT_TRUE(timer->SetPeriodic(10 * kMs, [&] {
    calls_.Tell(NowMs());
    timer.reset();
  }));
  clock_->Advance(100);
  EXPECT_THAT(calls_.All(), ElementsAre(10));
}

TEST_F(Timers, MayBeKilledByTheCallOfAnotherThatIsDueAtTheSameTime) {
  Timer other;
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, [&] {
    calls_.Tell(NowMs());
    other.KillAll();
  }));
  ASSERT_TRUE(other.SetPeriodic(10 * kMs, [&] {
    calls_.Tell(NowMs());
    timer_.KillAll();
  }));
  clock_->Advance(15);
  EXPECT_EQ(calls_.All().size(), 1U) << "whichever comes first kills the other";
}

TEST_F(Timers, MayBeSetInACall) {
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, [this] {
    if (calls_.All().empty()) {
      EXPECT_TRUE(timer_.SetPeriodic(3 * kMs, TellTheTime()));
    }
    calls_.Tell(NowMs());
  }));
  clock_->Advance(19);
  EXPECT_THAT(calls_.All(), ElementsAre(10, 13, 16, 19));
}

TEST_F(Timers, AreWaitedForByAKillOnAnotherThread) {
  std::latch called(1);
  std::latch killing(1);
  std::atomic<bool> finished = false;
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, [&] {
    called.count_down();
    killing.wait();
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();  // time for a kill that does not wait
    finished = true;
  }));
  std::jthread driver([this] { clock_->Advance(15); });
  called.wait();
  killing.count_down();
  timer_.KillAll();
  EXPECT_TRUE(finished);
}

TEST_F(Timers, ThatAreKilledByManyThreadsAreSafe) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int round = 0; round < 50; ++round) {
        EXPECT_TRUE(timer_.SetPeriodic(kMs, TellTheTime()));
        timer_.KillAll();
      }
    });
  }
  for (int i = 0; i < 20; ++i) clock_->Advance(1);
  threads.clear();
  const std::size_t calls = calls_.All().size();
  clock_->Advance(100);
  EXPECT_EQ(calls_.All().size(), calls);
}

TEST_F(Timers, ALateCallDoesNotShiftTheLaterOnes) {
  Timer other;
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Settle();
  clock_->FailMs();
  clock_->Advance(13);
  EXPECT_THAT(calls_.All(), IsEmpty()) << "without a clock nobody knows that it is time";
  clock_->Recover();
  ASSERT_TRUE(other.SetPeriodic(1'000'000 * kMs, [] {}));  // wakes the timer thread
  clock_->Advance(27);
  EXPECT_THAT(calls_.All(), ElementsAre(13, 20, 30, 40));
}

TEST_F(Timers, CallsThatWereMissedAreLeftOut) {
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Settle();
  clock_->FailMs();
  clock_->Advance(35);
  clock_->Recover();
  clock_->Advance(25);
  EXPECT_THAT(calls_.All(), ElementsAre(40, 50, 60));
}

TEST_F(Timers, CannotBeSetWithoutAClock) {
  clock_->FailMs();
  EXPECT_FALSE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Recover();
  clock_->Advance(100);
  EXPECT_THAT(calls_.All(), IsEmpty());
  EXPECT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Advance(10);
  EXPECT_THAT(calls_.All(), ElementsAre(110));
}

TEST_F(Timers, ThatCouldNotBeSetForLackOfMemoryNeverCall) {
  for (std::uint32_t grants = 0;; ++grants) {
    Timer timer;
    Told<std::uint32_t> calls;
    std::function<void()> callback = [&] { calls.Tell(NowMs()); };
    bool set = false;
    const bool ran_short =
        test::RanShort(grants, [&] { set = timer.SetPeriodic(10 * kMs, std::move(callback)); });
    EXPECT_EQ(set, !ran_short);
    clock_->Advance(10);
    EXPECT_EQ(calls.All().size(), set ? 1U : 0U);
    if (!ran_short) break;
    ASSERT_LT(grants, 100U);
  }
}

TEST_F(Timers, NeverCallOnceCancelledUntilTheyAreSetAgain) {
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  ASSERT_TRUE(timer_.SetPeriodic(15 * kMs, TellTheTime()));
  clock_->Advance(10);
  timer_.Cancel();
  timer_.Cancel();
  clock_->Advance(90);
  EXPECT_THAT(calls_.All(), ElementsAre(10));
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, TellTheTime()));
  clock_->Advance(20);
  EXPECT_THAT(calls_.All(), ElementsAre(10, 110, 120));
}

TEST_F(Timers, MayBeCancelledUnderALockThatTheCallWants) {
  std::mutex mutex;
  std::latch called(1);
  ASSERT_TRUE(timer_.SetPeriodic(10 * kMs, [&] {
    called.count_down();
    const std::lock_guard lock(mutex);
    calls_.Tell(NowMs());
  }));
  std::jthread driver;
  {
    const std::lock_guard lock(mutex);
    driver = std::jthread([this] { clock_->Advance(100); });
    called.wait();
    timer_.Cancel();
    EXPECT_THAT(calls_.All(), IsEmpty());
  }
  timer_.KillAll();
  EXPECT_THAT(calls_.All(), ElementsAre(10)) << "a kill waits for the call that was cancelled late";
}

TEST_F(Timers, HaveANameThatIsNotEmpty) {
  EXPECT_TRUE(timer_.SetName(L"KestravTimer"));
  EXPECT_FALSE(timer_.SetName(L""));
}

}  // namespace
}  // namespace kestrav
