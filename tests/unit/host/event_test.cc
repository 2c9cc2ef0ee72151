#include "kestrav/host/thread/event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <thread>
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
using testing::UnorderedElementsAre;
using Thread::kWaitFailed;
using Thread::kWaitTimedOut;
using Thread::ManualResetEvent;
using Time::kNoLimit;

int WaitFor(std::vector<ManualResetEvent*> events, std::uint32_t timeout_ms) {
  return Thread::WaitForFirst(events, timeout_ms);
}

TEST(ManualResetEvent, StaysSignalledUntilItIsReset) {
  ManualResetEvent event;
  EXPECT_FALSE(event.IsSet());
  event.Set();
  event.Set();
  EXPECT_TRUE(event.IsSet());
  EXPECT_EQ(WaitFor({&event}, 0), 0);
  EXPECT_EQ(WaitFor({&event}, kNoLimit), 0);
  EXPECT_TRUE(event.IsSet()) << "a wait does not reset it";
  event.Reset();
  EXPECT_FALSE(event.IsSet());
  EXPECT_EQ(WaitFor({&event}, 0), kWaitTimedOut);
  event.Set();
  EXPECT_TRUE(event.IsSet());
}

TEST(WaitForFirst, AnswersTheFirstSignalledEventInArgumentOrder) {
  std::array<ManualResetEvent, 3> e;
  e[2].Set();
  EXPECT_EQ(WaitFor({&e[0], &e[1], &e[2]}, kNoLimit), 2);
  e[1].Set();
  EXPECT_EQ(WaitFor({&e[0], &e[1], &e[2]}, kNoLimit), 1);
  EXPECT_EQ(WaitFor({&e[2], &e[1], &e[0]}, kNoLimit), 0);
  EXPECT_EQ(WaitFor({&e[0], &e[1], &e[1], &e[2]}, kNoLimit), 1);
}

TEST(WaitForFirst, FailsForNoEventTooManyOrANullOne) {
  std::array<ManualResetEvent, Thread::kMaxWaitEvents + 1> e;
  std::vector<ManualResetEvent*> all;
  for (ManualResetEvent& event : e) all.push_back(&event);
  e[0].Set();
  e[7].Set();
  EXPECT_EQ(WaitFor({}, kNoLimit), kWaitFailed);
  EXPECT_EQ(WaitFor(all, kNoLimit), kWaitFailed);
  EXPECT_EQ(WaitFor({nullptr}, 0), kWaitFailed);
  EXPECT_EQ(WaitFor({&e[0], nullptr}, kNoLimit), kWaitFailed);
  all.pop_back();
  e[0].Reset();
  EXPECT_EQ(WaitFor(all, kNoLimit), 7) << "eight are not too many";
}

TEST(WaitForFirst, GivesUpWhenItsTimeIsUpToTheMillisecond) {
  ManualClock clock(0);
  ManualResetEvent event;
  Told<int> results;
  FunctionThread thread([&] {
    results.Tell(WaitFor({&event}, 250));
    results.Tell(static_cast<int>(NowMs()));
  });
  ASSERT_TRUE(thread.Start());
  clock->Advance(249);
  EXPECT_THAT(results.All(), IsEmpty());
  clock->Advance(1);
  EXPECT_THAT(results.All(), ElementsAre(kWaitTimedOut, 250));
}

TEST(WaitForFirst, WithoutALimitWaitsForASignalAlone) {
  ManualClock clock;
  ManualResetEvent first;
  ManualResetEvent second;
  Told<int> results;
  FunctionThread thread([&] { results.Tell(WaitFor({&first, &second}, kNoLimit)); });
  ASSERT_TRUE(thread.Start());
  clock->Advance(0xFFFFFFFF);
  clock->Advance(0xFFFFFFFF);
  EXPECT_THAT(results.All(), IsEmpty());
  second.Set();
  clock->Settle();
  EXPECT_THAT(results.All(), ElementsAre(1));
}

TEST(WaitForFirst, ASignalWithinTheTimeIsNoTimeOut) {
  ManualClock clock;
  ManualResetEvent event;
  Told<int> results;
  FunctionThread thread([&] { results.Tell(WaitFor({&event}, 100)); });
  ASSERT_TRUE(thread.Start());
  clock->Advance(99);
  event.Set();
  clock->Advance(1000);
  EXPECT_THAT(results.All(), ElementsAre(0));
}

TEST(WaitForFirst, WakesEveryThreadThatWaits) {
  ManualClock clock;
  ManualResetEvent event;
  ManualResetEvent other;
  Told<int> results;
  std::vector<std::unique_ptr<FunctionThread>> threads;
  for (int i = 0; i < 4; ++i) {
    threads.push_back(std::make_unique<FunctionThread>([&results, &event, &other, i] {
      results.Tell(10 * i + WaitFor({&other, &event}, kNoLimit));
    }));
    ASSERT_TRUE(threads.back()->Start());
  }
  clock->Settle();
  EXPECT_THAT(results.All(), IsEmpty());
  event.Set();
  clock->Settle();
  EXPECT_THAT(results.All(), UnorderedElementsAre(1, 11, 21, 31));
}

// A source of time in which every wait runs the next of the given steps.
class ScriptedSource final : public Time::ISource {
 public:
  using Step = std::function<bool()>;  // what the wait answers

  explicit ScriptedSource(std::vector<Step> steps) : steps_(std::move(steps)) {
    before_ = Time::SetSource(this);
  }
  ~ScriptedSource() override { Time::SetSource(before_); }

  bool ReadMs(std::uint32_t&) override { return false; }
  bool ReadWallClockScnds(std::int64_t&) override { return false; }
  bool Wait(Time::Waiter& waiter, std::uint32_t timeout_ms) override {
    timeouts.push_back(timeout_ms);
    const bool answer = steps_.at(timeouts.size() - 1)();
    notified.push_back(waiter.IsNotified());
    return answer;
  }

  std::vector<std::uint32_t> timeouts;
  std::vector<bool> notified;

 private:
  std::vector<Step> steps_;
  Time::ISource* before_;
};

TEST(WaitForFirst, WaitsOnWhenTheSignalIsTakenBackBeforeItLooks) {
  ManualResetEvent event;
  const auto flash = [&] {
    event.Set();
    event.Reset();
    return true;
  };
  const auto set = [&] {
    event.Set();
    return true;
  };
  const ScriptedSource source({flash, flash, set});
  EXPECT_EQ(WaitFor({&event}, 500), 0);
  EXPECT_THAT(source.timeouts, ElementsAre(500, 500, 500));
  EXPECT_THAT(source.notified, ElementsAre(true, true, true));
}

TEST(WaitForFirst, ASignalAtTheVeryEndOfTheTimeCounts) {
  ManualResetEvent event;
  const ScriptedSource source({[&] {
    event.Set();
    return false;
  }});
  EXPECT_EQ(WaitFor({&event}, 500), 0);
}

TEST(WaitForFirst, AnswersTheFirstInArgumentOrderWhenSeveralSignalsWakeIt) {
  ManualResetEvent first;
  ManualResetEvent second;
  const ScriptedSource source({[&] {
    second.Set();
    first.Set();
    return true;
  }});
  EXPECT_EQ(WaitFor({&first, &second}, kNoLimit), 0);
}

TEST(WaitForFirst, AfterTheWaitAnEventNotifiesNobody) {
  ManualResetEvent first;
  ManualResetEvent second;
  const ScriptedSource source({[] { return false; },
                               [&] {
                                 first.Set();
                                 return true;
                               }});
  EXPECT_EQ(WaitFor({&first, &second, &first}, 1), kWaitTimedOut);
  second.Set();  // the waiter of the first wait is gone
  second.Reset();
  EXPECT_EQ(WaitFor({&second, &first}, 1), 1);
}

TEST(WaitForFirst, LosesNoSignalBetweenTwoThreads) {
  constexpr int kRounds = 500;
  ManualResetEvent ping;
  ManualResetEvent pong;
  std::jthread partner([&] {
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_EQ(WaitFor({&ping}, kNoLimit), 0);
      ping.Reset();
      pong.Set();
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    ping.Set();
    EXPECT_EQ(WaitFor({&pong}, kNoLimit), 0);
    pong.Reset();
  }
}

}  // namespace
}  // namespace kestrav
