#include "kestrav/recording/message_queue.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/short_memory.h"

namespace kestrav {
namespace {

using test::RanShort;

SmartPtr::Ptr<LogMessage> Numbered(std::uint32_t number) {
  auto message = std::make_shared<LogMessage>();
  message->time_stamp = number;
  return message;
}

std::vector<std::uint32_t> Drained(MessageQueue& queue) {
  std::vector<std::uint32_t> numbers;
  queue.Drain([&](const SmartPtr::Ptr<LogMessage>& m) { numbers.push_back(m->time_stamp); });
  return numbers;
}

TEST(MessageQueue, KeepsTheOrderOverManyBlocks) {
  MessageQueue queue;
  for (std::uint32_t count :
       {1U, MessageQueue::kBlockMessages, MessageQueue::kBlockMessages + 1, 20'000U}) {
    for (std::uint32_t i = 0; i < count; ++i) ASSERT_TRUE(queue.Push(Numbered(i)));
    const std::vector<std::uint32_t> numbers = Drained(queue);
    ASSERT_EQ(numbers.size(), count);
    for (std::uint32_t i = 0; i < count; ++i) ASSERT_EQ(numbers[i], i);
    EXPECT_TRUE(queue.IsEmpty());
  }
}

TEST(MessageQueue, LetsGoOfEachMessageAfterItsUse) {
  MessageQueue queue;
  const SmartPtr::Ptr<LogMessage> message = Numbered(1);
  ASSERT_TRUE(queue.Push(SmartPtr::Ptr<LogMessage>(message)));
  ASSERT_TRUE(queue.Push(SmartPtr::Ptr<LogMessage>(message)));
  std::vector<long> holders;
  queue.Drain([&](const SmartPtr::Ptr<LogMessage>& m) { holders.push_back(m.use_count()); });
  EXPECT_EQ(holders, (std::vector<long>{3, 2}));
  EXPECT_EQ(message.use_count(), 1);
}

TEST(MessageQueue, ClearsAndSwaps) {
  MessageQueue queue, other;
  const SmartPtr::Ptr<LogMessage> message = Numbered(7);
  ASSERT_TRUE(queue.Push(SmartPtr::Ptr<LogMessage>(message)));
  other.Swap(queue);
  EXPECT_TRUE(queue.IsEmpty());
  EXPECT_FALSE(other.IsEmpty());
  other.Clear();
  EXPECT_TRUE(other.IsEmpty());
  EXPECT_EQ(message.use_count(), 1);
}

TEST(MessageQueue, ShortOfMemoryRefusesAMessageAndKeepsTheOthers) {
  MessageQueue queue;
  for (std::uint32_t i = 0; i < MessageQueue::kBlockMessages; ++i)
    ASSERT_TRUE(queue.Push(Numbered(i)));
  SmartPtr::Ptr<LogMessage> message = Numbered(MessageQueue::kBlockMessages);
  bool pushed = true;
  EXPECT_TRUE(RanShort(0, [&] { pushed = queue.Push(std::move(message)); }));
  EXPECT_FALSE(pushed);
  ASSERT_TRUE(message);
  EXPECT_TRUE(queue.Push(std::move(message)));
  EXPECT_EQ(Drained(queue).size(), MessageQueue::kBlockMessages + 1);
}

TEST(MessageQueue, NeedsMemoryForTheFirstMessageOfABlockAlone) {
  MessageQueue queue;
  std::vector<SmartPtr::Ptr<LogMessage>> messages;
  for (std::uint32_t i = 0; i <= MessageQueue::kBlockMessages; ++i) messages.push_back(Numbered(i));
  ASSERT_TRUE(queue.Push(std::move(messages[0])));
  EXPECT_FALSE(RanShort(0, [&] {
    for (std::uint32_t i = 1; i < MessageQueue::kBlockMessages; ++i)
      static_cast<void>(queue.Push(std::move(messages[i])));
  }));
  EXPECT_TRUE(RanShort(0, [&] { static_cast<void>(queue.Push(std::move(messages.back()))); }));
  EXPECT_EQ(Drained(queue).size(), MessageQueue::kBlockMessages);
}

TEST(MessageQueue, NeedsNoMemoryForABlockThatWasDrained) {
  MessageQueue queue;
  SmartPtr::Ptr<LogMessage> message = Numbered(1);
  ASSERT_TRUE(queue.Push(Numbered(0)));
  queue.Clear();
  EXPECT_FALSE(RanShort(0, [&] { EXPECT_TRUE(queue.Push(std::move(message))); }));
}

}  // namespace
}  // namespace kestrav
