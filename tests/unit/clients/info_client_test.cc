#include "kestrav/clients/info_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "support/short_memory.h"
#include "unit/clients/message_log.h"

namespace kestrav {
namespace {

using test::Delivery;
using test::MessageLog;
using test::RanShort;
using testing::ElementsAre;
using testing::IsEmpty;

// Implements no more than a client must.
class BareClient final : public IClient {
 public:
  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return L"Bare"; }
  bool IsUserSelectableForLogging() override { return false; }
  bool IsUserSelectableForPlayback() override { return selectable; }

  bool selectable = false;
};

TEST(Client, AsksForAnIdUnlessItBringsOne) { EXPECT_EQ(BareClient().client_id, kNoId); }

TEST(Client, WithoutItsOwnAnswersTakesDataIfItIsSelectableAndAnyControlString) {
  BareClient client;
  const LogMessage message;
  EXPECT_FALSE(client.OnPlaybackData(message));
  client.selectable = true;
  EXPECT_TRUE(client.OnPlaybackData(message));
  EXPECT_TRUE(client.HandleConfigControlString(L""));
  EXPECT_TRUE(client.HandleConfigControlString(L"anything"));
}

TEST(InfoClient, HasTheFixedId12AndAValidStringId) {
  const InfoClientImpl info;
  EXPECT_EQ(info.client_id, 12);
  EXPECT_EQ(info.GetClientStringID(), L"Info Client");
  EXPECT_EQ(info.GetClientStringID(), InfoClientImpl::s_InfoClientString);
  EXPECT_TRUE(ClientManager().IsValidStringId(info.GetClientStringID()));
}

TEST(InfoClient, IsNeverOfferedAndNeverPlayedBack) {
  InfoClientImpl info;
  EXPECT_FALSE(info.AcceptsPlaybackOffsetData());
  EXPECT_FALSE(info.IsUserSelectableForLogging());
  EXPECT_FALSE(info.IsUserSelectableForPlayback());
  EXPECT_FALSE(info.OnPlaybackData(LogMessage()));
  EXPECT_TRUE(info.HandleConfigControlString(L"anything"));
}

TEST(InfoClient, KeepsItsIdWhenItLeavesTheRegistry) {
  ClientManager registry;
  InfoClientImpl info;
  ASSERT_TRUE(registry.RegisterClient(&info));
  EXPECT_EQ(registry.GetClientId(L"Info Client"), 12);
  ASSERT_TRUE(registry.UnRegisterClient(&info));
  EXPECT_EQ(info.client_id, 12);
}

std::uint64_t RecordedSelection(std::uint64_t selection) {
  const InfoClientImpl info;
  MessageLog log;
  EXPECT_TRUE(info.RecordExtendedBinarySelection(selection, &log));
  EXPECT_EQ(log.messages.size(), 1U);
  const Delivery& message = log.messages.at(0);
  EXPECT_EQ(message.client_id, 12);
  EXPECT_EQ(message.data_id, 134);
  EXPECT_EQ(message.payload.size(), 8U);
  std::uint64_t value = 0;
  for (std::size_t i = 8; i-- > 0;) {
    value = value << 8 | static_cast<std::uint8_t>(message.payload.at(i));
  }
  return value;
}

constexpr std::uint64_t Bit(int id) { return std::uint64_t{1} << id; }

TEST(ExtendedSelection, CarriesIds20And21ButNot3And63) {
  EXPECT_EQ(RecordedSelection(Bit(3) | Bit(20) | Bit(21) | Bit(63)), 0x30U);
}

TEST(ExtendedSelection, IsZeroWithTheInfoClientAlone) { EXPECT_EQ(RecordedSelection(Bit(12)), 0U); }

TEST(ExtendedSelection, CarriesIds16To62FromBit0On) {
  for (int id = 0; id < 64; ++id) {
    const bool carried = id >= 16 && id <= 62;
    EXPECT_EQ(RecordedSelection(Bit(id)), carried ? Bit(id - 16) : 0) << id;
  }
  EXPECT_EQ(RecordedSelection(~std::uint64_t{0}), 0x0000'7FFF'FFFF'FFFFU);
  EXPECT_EQ(RecordedSelection(0), 0U);
}

TEST(ExtendedSelection, IsWrittenLeastSignificantByteFirst) {
  const InfoClientImpl info;
  MessageLog log;
  ASSERT_TRUE(info.RecordExtendedBinarySelection(0x7122'3344'5566'7788, &log));
  EXPECT_EQ(log.messages.at(0).payload, std::string("\x66\x55\x44\x33\x22\x71\0\0", 8));
}

using WriteRecord = bool (*)(const InfoClientImpl&, IMessageSink*);

bool WriteSelection(const InfoClientImpl& client, IMessageSink* sink) {
  return client.RecordExtendedBinarySelection(Bit(21), sink);
}

bool WriteDictionary(const InfoClientImpl& client, IMessageSink* sink) {
  static const Dictionary info_alone = {{L"Info Client", 12}};
  return client.WriteDictionaryRecord(info_alone, sink);
}

class InfoRecords : public testing::TestWithParam<WriteRecord> {};

TEST_P(InfoRecords, AreTakenOrRefusedAsTheirTakerSays) {
  const InfoClientImpl info;
  MessageLog log;
  EXPECT_TRUE(GetParam()(info, &log));
  log.takes = false;
  EXPECT_FALSE(GetParam()(info, &log));
  EXPECT_EQ(log.messages.size(), 2U);
}

TEST_P(InfoRecords, FailWithoutATaker) { EXPECT_FALSE(GetParam()(InfoClientImpl(), nullptr)); }

// Takes everything and needs no memory for it.
class CountingSink final : public IMessageSink {
 public:
  bool Write(const SmartPtr::Ptr<ILogMessage>&) override {
    ++messages;
    return true;
  }

  int messages = 0;
};

TEST_P(InfoRecords, FailWhenMemoryIsShort) {
  for (std::uint32_t grants = 0;; ++grants) {
    const InfoClientImpl info;
    CountingSink sink;
    bool written = false;
    const bool ran_short = RanShort(grants, [&] { written = GetParam()(info, &sink); });
    ASSERT_EQ(written, !ran_short);
    EXPECT_EQ(sink.messages, written ? 1 : 0);
    if (!ran_short) break;
    ASSERT_LT(grants, 100U);
  }
}

INSTANTIATE_TEST_SUITE_P(BothRecords, InfoRecords,
                         testing::Values(WriteSelection, WriteDictionary));

}  // namespace
}  // namespace kestrav
