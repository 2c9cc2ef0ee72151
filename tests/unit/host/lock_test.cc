#include "kestrav/host/thread/lock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kestrav {
namespace {

template <class LockType>
class Locks : public testing::Test {};

using LockTypes = testing::Types<Thread::Mutex, Thread::CritSec>;
TYPED_TEST_SUITE(Locks, LockTypes);

TYPED_TEST(Locks, LetOneThreadInAtATime) {
  TypeParam lock;
  int count = 0;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5000; ++round) {
        Thread::ScopedLock scope(lock);
        ++count;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(count, 20'000);
}

TYPED_TEST(Locks, CanBeLetGoOfAndTakenAgainWithinAScope) {
  TypeParam lock;
  int value = 0;
  {
    Thread::ScopedLock scope(lock);
    scope.Unlock();
    std::jthread([&] {
      Thread::ScopedLock other(lock);
      value = 1;
    }).join();
    scope.Lock();
    EXPECT_EQ(value, 1);
    scope.Unlock();
  }
  std::jthread([&] {
    Thread::ScopedLock other(lock);
    value = 2;
  }).join();
  EXPECT_EQ(value, 2);
}

// Takes the lock again while its caller holds it; the analysis of locks knows no recursion.
int Deeper(Thread::CritSec& lock, int depth) NO_THREAD_SAFETY_ANALYSIS {
  Thread::ScopedLock scope(lock);
  return depth == 3 ? depth : Deeper(lock, depth + 1);
}

TEST(CritSec, MayBeTakenAgainByTheThreadThatHoldsIt) {
  Thread::CritSec lock;
  EXPECT_EQ(Deeper(lock, 1), 3);
  bool taken = false;
  std::jthread([&] {
    Thread::ScopedLock other(lock);
    taken = true;
  }).join();
  EXPECT_TRUE(taken) << "free again for others";
}

}  // namespace
}  // namespace kestrav
