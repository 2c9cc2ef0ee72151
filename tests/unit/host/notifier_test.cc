#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kestrav/host/event/notifier_mt.h"
#include "support/short_memory.h"

namespace kestrav {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Notifier = Event::NotifierMT<const int&>;

// A notifier and what its observers heard, as "name value".
class Notifiers : public testing::Test {
 protected:
  Notifier::Observer Hear(const std::string& name) {
    return [this, name](const int& value) { heard_.push_back(name + " " + std::to_string(value)); };
  }

  std::vector<std::string> heard_;
  Notifier notifier_;
};

TEST_F(Notifiers, TellTheirObserversInTheOrderOfConnection) {
  notifier_.Fire(0);
  EXPECT_NE(notifier_.Connect(Hear("a")), 0U);
  EXPECT_NE(notifier_.Connect(Hear("b")), 0U);
  notifier_.Fire(1);
  notifier_.Fire(2);
  EXPECT_THAT(heard_, ElementsAre("a 1", "b 1", "a 2", "b 2"));
}

TEST_F(Notifiers, GiveEveryConnectionAnIdOfItsOwn) {
  const std::uint32_t a = notifier_.Connect(Hear("a"));
  EXPECT_TRUE(notifier_.Disconnect(a));
  const std::uint32_t b = notifier_.Connect(Hear("b"));
  EXPECT_NE(a, b);
  EXPECT_NE(b, 0U);
}

TEST_F(Notifiers, TellNobodyWhoDisconnected) {
  const std::uint32_t a = notifier_.Connect(Hear("a"));
  ASSERT_NE(notifier_.Connect(Hear("b")), 0U);
  EXPECT_TRUE(notifier_.Disconnect(a));
  EXPECT_FALSE(notifier_.Disconnect(a));
  notifier_.Fire(1);
  EXPECT_THAT(heard_, ElementsAre("b 1"));
}

TEST_F(Notifiers, DisconnectNobodyForAnUnknownId) {
  EXPECT_FALSE(notifier_.Disconnect(1));
  ASSERT_NE(notifier_.Connect(Hear("a")), 0U);
  EXPECT_FALSE(notifier_.Disconnect(0));
  EXPECT_FALSE(notifier_.Disconnect(4711));
  notifier_.Fire(1);
  EXPECT_THAT(heard_, ElementsAre("a 1"));
}

TEST_F(Notifiers, TakeNoEmptyObserver) {
  EXPECT_EQ(notifier_.Connect(nullptr), 0U);
  notifier_.Fire(1);
}

TEST_F(Notifiers, LetAnObserverDisconnectItself) {
  std::uint32_t id = 0;
  id = notifier_.Connect([&](const int& value) {
    Hear("once")(value);
    EXPECT_TRUE(notifier_.Disconnect(id));
  });
  ASSERT_NE(notifier_.Connect(Hear("b")), 0U);
  notifier_.Fire(1);
  notifier_.Fire(2);
  EXPECT_THAT(heard_, ElementsAre("once 1", "b 1", "b 2"));
}

TEST_F(Notifiers, DoNotTellAnObserverThatAnEarlierOneDisconnected) {
  std::uint32_t b = 0;
  ASSERT_NE(notifier_.Connect([&](const int&) { notifier_.Disconnect(b); }), 0U);
  b = notifier_.Connect(Hear("b"));
  ASSERT_NE(notifier_.Connect(Hear("c")), 0U);
  notifier_.Fire(1);
  EXPECT_THAT(heard_, ElementsAre("c 1"));
}

TEST_F(Notifiers, TellAnObserverThatConnectsInACallOfTheNextEvent) {
  bool connected = false;
  ASSERT_NE(notifier_.Connect([&](const int&) {
    if (!connected) connected = notifier_.Connect(Hear("new")) != 0;
  }),
            0U);
  notifier_.Fire(1);
  EXPECT_TRUE(connected);
  EXPECT_THAT(heard_, IsEmpty());
  notifier_.Fire(2);
  EXPECT_THAT(heard_, ElementsAre("new 2"));
}

TEST_F(Notifiers, LetAnObserverFire) {
  ASSERT_NE(notifier_.Connect([&](const int& value) {
    Hear("a")(value);
    if (value < 3) notifier_.Fire(value + 1);
  }),
            0U);
  ASSERT_NE(notifier_.Connect(Hear("b")), 0U);
  notifier_.Fire(1);
  EXPECT_THAT(heard_, ElementsAre("a 1", "a 2", "a 3", "b 3", "b 2", "b 1"));
}

TEST_F(Notifiers, LetAnObserverDisconnectItselfWithinItsOwnEvent) {
  std::uint32_t id = 0;
  id = notifier_.Connect([&](const int& value) {
    Hear("a")(value);
    if (value == 1) notifier_.Fire(2);
    if (value == 2) {
      EXPECT_TRUE(notifier_.Disconnect(id));
    }
  });
  notifier_.Fire(1);
  notifier_.Fire(3);
  EXPECT_THAT(heard_, ElementsAre("a 1", "a 2"));
}

TEST_F(Notifiers, TellTheOthersWhenOneThrows) {
  ASSERT_NE(notifier_.Connect([](const int&) { throw std::runtime_error("on purpose"); }), 0U);
  ASSERT_NE(notifier_.Connect(Hear("b")), 0U);
  notifier_.Fire(1);
  notifier_.Fire(2);
  EXPECT_THAT(heard_, ElementsAre("b 1", "b 2"));
}

TEST_F(Notifiers, RefuseAnObserverWhenMemoryIsShort) {
  for (std::uint32_t grants = 0;; ++grants) {
    Notifier notifier;
    ASSERT_NE(notifier.Connect(Hear("a")), 0U);
    Notifier::Observer observer = Hear("b");
    std::uint32_t id = 0;
    const bool ran_short =
        test::RanShort(grants, [&] { id = notifier.Connect(std::move(observer)); });
    EXPECT_EQ(id == 0, ran_short);
    heard_.clear();
    notifier.Fire(1);
    EXPECT_EQ(heard_.size(), ran_short ? 1U : 2U);
    if (!ran_short) break;
    ASSERT_LT(grants, 100U);
  }
}

TEST_F(Notifiers, DisconnectAnObserverEvenWhenMemoryIsShort) {
  const std::uint32_t a = notifier_.Connect(Hear("a"));
  bool disconnected = false;
  EXPECT_TRUE(test::RanShort(0, [&] { disconnected = notifier_.Disconnect(a); }));
  EXPECT_TRUE(disconnected);
  notifier_.Fire(1);
  EXPECT_THAT(heard_, IsEmpty());
}

TEST(NotifierThreads, ADisconnectWaitsForACallOnAnotherThread) {
  Notifier notifier;
  std::latch called(1);
  std::latch disconnecting(1);
  std::atomic<bool> finished = false;
  const std::uint32_t id = notifier.Connect([&](const int&) {
    called.count_down();
    disconnecting.wait();
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();  // time for one that does not wait
    finished = true;
  });
  std::jthread firing([&] { notifier.Fire(1); });
  called.wait();
  disconnecting.count_down();
  EXPECT_TRUE(notifier.Disconnect(id));
  EXPECT_TRUE(finished);
}

TEST(NotifierThreads, SeveralMayFireConnectAndDisconnect) {
  constexpr int kRounds = 300;
  Notifier notifier;
  std::atomic<int> heard = 0;
  std::atomic<int> heard_after_disconnect = 0;
  ASSERT_NE(notifier.Connect([&](const int& value) { heard += value; }), 0U);
  std::vector<std::jthread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) notifier.Fire(1);
    });
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        std::atomic<bool> connected = true;
        const std::uint32_t id = notifier.Connect([&](const int&) {
          if (!connected) ++heard_after_disconnect;
        });
        EXPECT_TRUE(notifier.Disconnect(id));
        connected = false;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(heard, 2 * kRounds);
  EXPECT_EQ(heard_after_disconnect, 0);
}

TEST(NotifierThreads, OneObserverMayRunOnTwoThreadsAndDisconnectItselfOnBoth) {
  Notifier notifier;
  std::latch both(2);
  std::atomic<int> disconnected = 0;
  std::uint32_t id = 0;
  id = notifier.Connect([&](const int&) {
    both.arrive_and_wait();
    if (notifier.Disconnect(id)) ++disconnected;
  });
  std::vector<std::jthread> threads;
  for (int i = 0; i < 2; ++i) threads.emplace_back([&] { notifier.Fire(1); });
  threads.clear();
  EXPECT_EQ(disconnected, 1);
}

}  // namespace
}  // namespace kestrav
