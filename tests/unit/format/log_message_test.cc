#include "kestrav/format/log_message.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "support/short_memory.h"
#include "unit/format/format_test_util.h"

namespace kestrav::test {
namespace {

void ExpectEmpty(const LogMessage& message) {
  EXPECT_EQ(message.time_stamp, 0u);
  EXPECT_EQ(message.GetClientID(), 0xFFFF);
  EXPECT_EQ(message.GetDataID(), 0xFFFF);
  EXPECT_EQ(message.GetDataPointer(), nullptr);
  EXPECT_EQ(message.GetDataSize(), 0u);
}

const Said kEarlier{21, 7, 1234, "earlier"};

LogMessage Earlier() {
  LogMessage message;
  EXPECT_TRUE(message.Assign(21, 7, Data("earlier"), 7, 1234));
  return message;
}

TEST(LogMessage, IsEmptyWhenNew) { ExpectEmpty(LogMessage()); }

TEST(LogMessage, IsEmptyAfterClear) {
  LogMessage message = Earlier();
  message.Clear();
  ExpectEmpty(message);
  LogMessage& writable = message;
  EXPECT_EQ(writable.GetDataPointer(), nullptr);
}

TEST(LogMessage, HoldsACopyOfWhatItIsGiven) {
  std::string payload = "abc";
  LogMessage message;
  ASSERT_TRUE(message.Assign(63, 0xFFFE, Data(payload), 3, 0xFFFFFFFF));
  payload = "xyz";
  EXPECT_EQ(WhatSays(message), (Said{63, 0xFFFE, 0xFFFFFFFF, "abc"}));
}

TEST(LogMessage, AcceptsATimeStampOfZero) {
  LogMessage message = Earlier();
  ASSERT_TRUE(message.Assign(0, 0, Data("x"), 1, 0));
  EXPECT_EQ(WhatSays(message), (Said{0, 0, 0, "x"}));
}

TEST(LogMessage, ReplacesALongerPayloadByAShorterOne) {
  LogMessage message = Earlier();
  ASSERT_TRUE(message.Assign(1, 2, Data("ab"), 2, 3));
  EXPECT_EQ(WhatSays(message), (Said{1, 2, 3, "ab"}));
}

TEST(LogMessage, RefusesNullDataAndIsUnchanged) {
  LogMessage message = Earlier();
  EXPECT_FALSE(message.Assign(1, 2, nullptr, 3, 4));
  EXPECT_EQ(WhatSays(message), kEarlier);
}

TEST(LogMessage, RefusesSizeZeroAndIsUnchanged) {
  LogMessage message = Earlier();
  EXPECT_FALSE(message.Assign(1, 2, Data("x"), 0, 4));
  EXPECT_EQ(WhatSays(message), kEarlier);
}

TEST(LogMessage, RefusesIdsThatAreNotSetAndIsUnchanged) {
  LogMessage message = Earlier();
  EXPECT_FALSE(message.Assign(0xFFFF, 2, Data("x"), 1, 4));
  EXPECT_FALSE(message.Assign(1, 0xFFFF, Data("x"), 1, 4));
  EXPECT_EQ(WhatSays(message), kEarlier);
}

TEST(LogMessage, CopiesAnotherMessageDeeply) {
  LogMessage source = Earlier();
  LogMessage copy;
  ASSERT_TRUE(copy.Assign(source));
  EXPECT_NE(copy.GetDataPointer(), source.GetDataPointer());
  source.GetDataPointer()[0] = 'X';
  EXPECT_EQ(WhatSays(copy), kEarlier);
}

TEST(LogMessage, RefusesToCopyAnEmptyMessageAndIsUnchanged) {
  LogMessage message = Earlier();
  EXPECT_FALSE(message.Assign(LogMessage()));
  EXPECT_EQ(WhatSays(message), kEarlier);
}

TEST(LogMessage, RefusesToCopyAMessageWhoseIdsAreNotSet) {
  for (const auto& [client, data_id] : {std::pair{0xFFFF, 1}, std::pair{1, 0xFFFF}}) {
    LogMessage source;
    ASSERT_TRUE(source.AssignLogMessage(static_cast<std::uint16_t>(client),
                                        static_cast<std::uint16_t>(data_id), Data("x"), 1, 5));
    LogMessage message = Earlier();
    EXPECT_FALSE(message.Assign(source));
    EXPECT_EQ(WhatSays(message), kEarlier);
  }
}

TEST(LogMessage, KeepsItsContentWhenAssignedToItself) {
  LogMessage message = Earlier();
  const LogMessage& same = message;
  EXPECT_TRUE(message.Assign(same));
  EXPECT_EQ(WhatSays(message), kEarlier);
}

// A message that shows the world another payload than the one it holds.
class Disguised final : public LogMessage {
 public:
  using LogMessage::GetDataPointer;
  const std::uint8_t* GetDataPointer() const override { return Data("disguise"); }
  std::uint32_t GetDataSize() const override { return 8; }
};

TEST(LogMessage, CopiesTheBytesThatTheSourceShows) {
  Disguised source;
  ASSERT_TRUE(source.Assign(3, 4, Data("x"), 1, 5));
  LogMessage copy;
  ASSERT_TRUE(copy.Assign(source));
  EXPECT_EQ(WhatSays(copy), (Said{3, 4, 5, "disguise"}));
}

TEST(LogMessage, GivesWriteAccessToItsOwnBytes) {
  LogMessage message = Earlier();
  message.GetDataPointer()[0] ^= 0x20;
  EXPECT_EQ(Payload(message), "Earlier");
}

TEST(LogMessage, TakesAnyIdsUnchecked) {
  LogMessage message;
  ASSERT_TRUE(message.AssignLogMessage(0xFFFF, 0xFFFF, Data("x"), 1, 9));
  EXPECT_EQ(WhatSays(message), (Said{0xFFFF, 0xFFFF, 9, "x"}));
}

TEST(LogMessage, HasNoPayloadPointerWithoutAPayload) {
  LogMessage message = Earlier();
  ASSERT_TRUE(message.AssignLogMessage(3, 4, nullptr, 0, 5));
  EXPECT_EQ(message.GetDataPointer(), nullptr);
  EXPECT_EQ(WhatSays(message), (Said{3, 4, 5, ""}));
}

TEST(LogMessage, IsEmptyWhenMemoryIsShort) {
  LogMessage message = Earlier();
  const std::string large(LogMessage::kInlineBytes + 1, 'x');
  const auto size = static_cast<std::uint32_t>(large.size());
  bool assigned = true;
  EXPECT_TRUE(RanShort(0, [&] { assigned = message.Assign(1, 2, Data(large.c_str()), size, 4); }));
  EXPECT_FALSE(assigned);
  ExpectEmpty(message);
}

TEST(LogMessage, NeedsNoMemoryForASmallPayload) {
  LogMessage message;
  const std::string small(LogMessage::kInlineBytes, 'x');
  const auto size = static_cast<std::uint32_t>(small.size());
  EXPECT_FALSE(
      RanShort(0, [&] { EXPECT_TRUE(message.Assign(1, 2, Data(small.c_str()), size, 4)); }));
  EXPECT_EQ(WhatSays(message), (Said{1, 2, 4, small}));
}

TEST(LogMessage, GoesFromSmallToLargeAndBackAlsoWithItsOwnPayload) {
  LogMessage message;
  std::string expected = "0123456789";
  ASSERT_TRUE(message.Assign(1, 2, Data(expected.c_str()), 10, 0));
  for (const std::uint32_t size : {300U, 7U, 97U, 96U, 1U, 5000U}) {
    const std::string payload(size, static_cast<char>('a' + size % 20));
    ASSERT_TRUE(message.Assign(1, 2, Data(payload.c_str()), size, size));
    ASSERT_EQ(WhatSays(message), (Said{1, 2, size, payload}));
    const std::uint32_t rest = size - size / 3;
    ASSERT_TRUE(message.Assign(3, 4, message.GetDataPointer() + size / 3, rest, 5));
    ASSERT_EQ(WhatSays(message), (Said{3, 4, 5, payload.substr(size / 3)}));
    LogMessage moved = std::move(message);
    ASSERT_EQ(WhatSays(moved), (Said{3, 4, 5, payload.substr(size / 3)}));
    ExpectEmpty(message);
    message = std::move(moved);
    ASSERT_EQ(WhatSays(message), (Said{3, 4, 5, payload.substr(size / 3)}));
  }
}

TEST(LogMessage, AdoptsABlockAndGivesItsOwnForIt) {
  LogMessage message;
  Memory::MemBlock block;
  EXPECT_FALSE(message.Adopt(1, 2, block, 3));
  for (const char* const payload : {"first", "second"}) {
    ASSERT_TRUE(block.Assign(Data(payload), static_cast<std::uint32_t>(std::strlen(payload))));
    const std::uint8_t* const bytes = block.Data();
    EXPECT_FALSE(message.Adopt(0xFFFF, 2, block, 3));
    EXPECT_FALSE(message.Adopt(1, 0xFFFF, block, 3));
    ASSERT_TRUE(message.Adopt(1, 2, block, 3));
    EXPECT_EQ(WhatSays(message), (Said{1, 2, 3, payload}));
    EXPECT_EQ(message.GetDataPointer(), bytes);
  }
  EXPECT_EQ(std::memcmp(block.Data(), "first", 5), 0);
}

TEST(LogMessage, PreparesRoomForASmallPayload) {
  LogMessage message = Earlier();
  EXPECT_EQ(message.Prepare(1, 2, 0, 3), nullptr);
  EXPECT_EQ(message.Prepare(1, 2, LogMessage::kInlineBytes + 1, 3), nullptr);
  EXPECT_EQ(message.Prepare(0xFFFF, 2, 1, 3), nullptr);
  EXPECT_EQ(message.Prepare(1, 0xFFFF, 1, 3), nullptr);
  EXPECT_EQ(Payload(message), "earlier");
  std::uint8_t* const room = message.Prepare(1, 2, 4, 3);
  ASSERT_NE(room, nullptr);
  std::memcpy(room, "four", 4);
  EXPECT_EQ(WhatSays(message), (Said{1, 2, 3, "four"}));
  EXPECT_EQ(message.Prepare(1, 2, LogMessage::kInlineBytes, 3), room);
  EXPECT_EQ(message.GetDataSize(), LogMessage::kInlineBytes);
}

TEST(LogMessage, IsCreatedEmptyEachTime) {
  for (int i = 0; i < 300; ++i) {
    const SmartPtr::Ptr<LogMessage> message = LogMessage::Create();
    ASSERT_TRUE(message);
    ExpectEmpty(*message);
    ASSERT_TRUE(message->Assign(1, 2, Data("0123456789"), 10, 4));
  }
}

TEST(LogMessage, LeavesNothingBehindWhenMoved) {
  LogMessage source = Earlier();
  LogMessage moved(std::move(source));
  EXPECT_EQ(WhatSays(moved), kEarlier);
  ExpectEmpty(source);
}

TEST(LogMessage, KeepsItsContentWhenMovedToItself) {
  LogMessage message = Earlier();
  LogMessage& same = message;
  message = std::move(same);
  EXPECT_EQ(WhatSays(message), kEarlier);
}

TEST(LogMessage, IsDestroyedThroughItsInterface) {
  EXPECT_TRUE(std::has_virtual_destructor_v<ILogMessage>);
  const std::unique_ptr<ILogMessage> message = std::make_unique<LogMessage>(Earlier());
  EXPECT_EQ(Payload(*message), "earlier");
}

}  // namespace
}  // namespace kestrav::test
