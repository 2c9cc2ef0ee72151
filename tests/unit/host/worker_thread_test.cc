#include "kestrav/host/thread/worker_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "support/manual_clock.h"
#include "support/short_memory.h"
#include "support/thread_modules.h"
#include "support/watchdog.h"
#include "unit/host/function_thread.h"

namespace kestrav {
namespace {

using test::FunctionThread;
using test::ManualClock;
using test::ThreadsUnderTest;
using test::Told;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(WorkerThread, RunsItsMainOnAThreadOfItsOwn) {
  std::thread::id id;
  FunctionThread thread([&] { id = std::this_thread::get_id(); });
  ASSERT_TRUE(thread.Start());
  thread.WaitForCompletion();
  EXPECT_NE(id, std::thread::id());
  EXPECT_NE(id, std::this_thread::get_id());
}

TEST(WorkerThread, CanBeStartedAgainAfterItEnded) {
  int runs = 0;
  FunctionThread thread([&] { ++runs; });
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(thread.Start());
    thread.WaitForCompletion();
    EXPECT_EQ(runs, i);
  }
}

TEST(WorkerThread, ThatNeverRanIsNotWaitedFor) {
  FunctionThread thread([] {});
  thread.WaitForCompletion();
  thread.Quit();
  EXPECT_TRUE(thread.QuitEvent().IsSet());
}

TEST(WorkerThread, EndsWhenItObeysItsQuitEvent) {
  int ended_by = -2;
  FunctionThread thread([&](FunctionThread& self) {
    Thread::ManualResetEvent* const events[] = {&self.QuitEvent()};
    ended_by = Thread::WaitForFirst(events, Time::kNoLimit);
  });
  ASSERT_TRUE(thread.Start());
  thread.Quit();
  thread.WaitForCompletion();
  EXPECT_EQ(ended_by, 0);
}

TEST(WorkerThread, AnEarlierRunOnItsWayOutIsWaitedForByTheNewThreadOnly) {
  std::latch gate(1);
  std::atomic<int> runs = 0;
  Told<std::string> told;
  FunctionThread thread([&] {
    const int run = ++runs;
    told.Tell("begin " + std::to_string(run));
    if (run == 1) gate.wait();
    told.Tell("end " + std::to_string(run));
  });
  ASSERT_TRUE(thread.Start());
  ASSERT_TRUE(thread.Start()) << "returns although the first run cannot end yet";
  ASSERT_TRUE(thread.Start());
  gate.count_down();
  thread.WaitForCompletion();
  EXPECT_THAT(told.All(), ElementsAre("begin 1", "end 1", "begin 2", "end 2", "begin 3", "end 3"));
}

TEST(WorkerThread, ARunCanBeJoinedWhileALaterOneGoesOn) {
  const test::Watchdog watchdog(std::chrono::seconds(60), "joining the earlier of two runs");
  std::latch first(1);
  std::latch second(1);
  std::atomic<int> runs = 0;
  std::atomic<int> ended = 0;
  FunctionThread thread([&] {
    (++runs == 1 ? first : second).wait();
    ++ended;
  });
  EXPECT_FALSE(thread.CurrentRun());
  ASSERT_TRUE(thread.Start());
  const SmartPtr::Ptr<Thread::IThread> run = thread.CurrentRun();
  ASSERT_TRUE(run);
  ASSERT_TRUE(thread.Start());
  EXPECT_NE(thread.CurrentRun(), run);
  first.count_down();
  run->Join();
  EXPECT_EQ(ended, 1);
  second.count_down();
  thread.WaitForCompletion();
  EXPECT_EQ(ended, 2);
}

TEST(WorkerThread, WaitingForItselfReturnsAtOnce) {
  bool returned = false;
  FunctionThread thread([&](FunctionThread& self) {
    self.WaitForCompletion();
    returned = true;
  });
  ASSERT_TRUE(thread.Start());
  thread.WaitForCompletion();
  EXPECT_TRUE(returned);
}

TEST(WorkerThread, MayStartItselfAgain) {
  ManualClock clock;
  std::atomic<int> runs = 0;
  FunctionThread thread([&](FunctionThread& self) {
    if (++runs < 5) {
      EXPECT_TRUE(self.Start());
    }
  });
  ASSERT_TRUE(thread.Start());
  clock->Settle();
  EXPECT_EQ(runs, 5);
}

TEST(WorkerThread, MayBeWaitedForBySeveralThreads) {
  std::latch gate(1);
  std::atomic<bool> ended = false;
  FunctionThread thread([&] {
    gate.wait();
    ended = true;
  });
  ASSERT_TRUE(thread.Start());
  std::vector<std::jthread> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back([&] {
      thread.WaitForCompletion();
      EXPECT_TRUE(ended);
    });
  }
  gate.count_down();
}

TEST(WorkerThread, IsStartedUnderItsName) {
  ThreadsUnderTest threads;
  FunctionThread thread([] {});
  EXPECT_TRUE(thread.SetName(L"First"));
  EXPECT_FALSE(thread.SetName(L""));
  ASSERT_TRUE(thread.Start(threads));
  EXPECT_TRUE(thread.SetName(L"Second"));
  ASSERT_TRUE(thread.Start(threads));
  thread.WaitForCompletion();
  EXPECT_THAT(threads.Names(), ElementsAre(L"First", L"Second"));
}

TEST(WorkerThread, ANameThatFindsNoMemoryIsRefused) {
  FunctionThread thread([] {});
  const String name = L"A long name of a thread";
  bool named = true;
  EXPECT_TRUE(test::RanShort(0, [&] { named = thread.SetName(name); }));
  EXPECT_FALSE(named);
}

TEST(WorkerThread, ThatFoundNoThreadDidNotRunAndCanBeStartedLater) {
  ManualClock clock;
  ThreadsUnderTest threads;
  std::atomic<int> runs = 0;
  FunctionThread thread([&] { ++runs; });
  threads.Refuse(true);
  EXPECT_FALSE(thread.Start(threads));
  clock->Settle();
  thread.WaitForCompletion();
  EXPECT_EQ(runs, 0);
  threads.Refuse(false);
  EXPECT_TRUE(thread.Start(threads));
  clock->Settle();
  EXPECT_EQ(runs, 1);
}

TEST(WorkerThread, ThatFoundNoThreadKeepsTheRunBeforeIt) {
  ThreadsUnderTest threads;
  std::latch gate(1);
  std::atomic<bool> ended = false;
  FunctionThread thread([&] {
    gate.wait();
    ended = true;
  });
  ASSERT_TRUE(thread.Start(threads));
  threads.Refuse(true);
  EXPECT_FALSE(thread.Start(threads));
  gate.count_down();
  thread.WaitForCompletion();
  EXPECT_TRUE(ended);
}

TEST(WorkerThread, ThatFoundNoThreadOnAWorkerThreadLetsTheClockSettle) {
  const test::Watchdog watchdog(std::chrono::seconds(60), "a clock after a start that failed");
  ManualClock clock;
  ThreadsUnderTest none;
  none.Refuse(true);
  FunctionThread inner([] {});
  std::atomic<bool> started = true;
  FunctionThread outer([&](FunctionThread& self) {
    started = inner.Start(none);
    Thread::ManualResetEvent* const events[] = {&self.QuitEvent()};
    Thread::WaitForFirst(events, Time::kNoLimit);
  });
  ASSERT_TRUE(outer.Start());
  clock->Settle();
  EXPECT_FALSE(started);
}

TEST(WorkerThread, IsNotStartedWhenMemoryIsShort) {
  for (std::uint32_t grants = 0;; ++grants) {
    ManualClock clock;
    std::atomic<int> runs = 0;
    FunctionThread thread([&] { ++runs; });
    ASSERT_TRUE(thread.SetName(L"A long name of a thread"));
    bool started = false;
    const bool ran_short = test::RanShort(grants, [&] { started = thread.Start(); });
    clock->Settle();
    EXPECT_EQ(started, !ran_short);
    EXPECT_EQ(runs, started ? 1 : 0) << "with " << grants << " allocations";
    if (!ran_short) break;
    ASSERT_LT(grants, 100U);
  }
}

std::string NameOfThisThread() {
  char name[16] = "";
  EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof(name)), 0);
  return name;
}

TEST(ThreadModule, ShowsTheSystemAsMuchOfTheNameAsItTakes) {
  Thread::ThreadModule module;
  std::string name;
  ASSERT_TRUE(module.Start(L"Kestrav-Playback", [&] { name = NameOfThisThread(); }, {}));
  EXPECT_EQ(name, "Kestrav-Playbac");
}

TEST(ThreadModule, GivesAThreadTheStackItAsksFor) {
  constexpr std::size_t kBytes = 32 * 1024 * 1024;
  Thread::ThreadModule module;
  std::size_t stack_bytes = 0;
  const auto body = [&] {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getstacksize(&attributes, &stack_bytes), 0);
    pthread_attr_destroy(&attributes);
  };
  ASSERT_TRUE(module.Start(L"Test", body, {.stack_bytes = kBytes}));
  EXPECT_GE(stack_bytes, kBytes);
}

TEST(ThreadModule, GivesAThreadARealTimePriorityIfTheSystemGrantsIt) {
  Thread::ThreadModule module;
  bool granted = false;
  int refused_with = 0;
  const auto body = [&] {
    int policy = 0;
    sched_param parameters{};
    EXPECT_EQ(pthread_getschedparam(pthread_self(), &policy, &parameters), 0);
    granted = policy == SCHED_FIFO && parameters.sched_priority == 1;
    parameters.sched_priority = 1;
    refused_with = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
  };
  ASSERT_TRUE(module.Start(L"Test", body, {.priority = 1})) << "without it, it runs all the same";
  EXPECT_EQ(granted, refused_with == 0);
}

TEST(ThreadModule, AThreadKnowsItselfAndMayBeJoinedMoreThanOnce) {
  Thread::ThreadModule module;
  std::latch gate(1);
  bool current = false;
  SmartPtr::Ptr<Thread::IThread> thread;
  thread = module.Start(L"Test",
                        [&] {
                          gate.wait();
                          current = thread->IsCurrent();
                        },
                        {});
  ASSERT_TRUE(thread);
  EXPECT_FALSE(thread->IsCurrent());
  gate.count_down();
  thread->Join();
  thread->Join();
  EXPECT_TRUE(current);
}

TEST(ThreadModule, AThreadMayLetGoOfItsLastOwner) {
  ManualClock clock;
  bool ran = false;
  Thread::ThreadModule module;
  std::latch gate(1);
  std::latch done(1);
  SmartPtr::Ptr<Thread::IThread> thread;
  thread = module.Start(L"Test",
                        [&] {
                          gate.wait();
                          thread.reset();
                          ran = true;
                          done.count_down();
                        },
                        {});
  ASSERT_TRUE(thread);
  gate.count_down();
  done.wait();
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace kestrav
