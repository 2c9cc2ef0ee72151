#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/clients/info_client.h"
#include "support/recording_client.h"
#include "support/short_memory.h"

namespace kestrav {
namespace {

using test::RanShort;
using test::RecordingClient;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// A registry with the clients GPS (21) and CAN (22) and the info client (12).
class LoggingSelection : public testing::Test {
 protected:
  LoggingSelection() {
    EXPECT_TRUE(registry_.RegisterClient(&info_));
    EXPECT_TRUE(registry_.RegisterClient(&gps_));
    EXPECT_TRUE(registry_.RegisterClient(&can_));
  }

  Dictionary Selected() const {
    Dictionary dictionary = {{L"left over", std::uint16_t{1}}};
    EXPECT_TRUE(registry_.GetDictionary(dictionary));
    return dictionary;
  }

  std::map<String, bool> Offered() const {
    std::map<String, bool> list = {{L"left over", true}};
    EXPECT_TRUE(registry_.GetLoggingClientList(list));
    return list;
  }

  ClientManager registry_;
  InfoClientImpl info_;
  RecordingClient gps_{L"GPS"};
  RecordingClient can_{L"CAN"};
};

TEST_F(LoggingSelection, StartsEmpty) {
  EXPECT_TRUE(registry_.IsLoggingSelectionEmpty());
  EXPECT_TRUE(registry_.GetLoggingSelectionMap().IsEmpty());
  EXPECT_FALSE(registry_.IsSelectedForLogging(21));
}

TEST_F(LoggingSelection, HoldsTheIdsOfTheSelectedClients) {
  EXPECT_TRUE(registry_.SelectForLogging(L"CAN"));
  EXPECT_FALSE(registry_.IsLoggingSelectionEmpty());
  EXPECT_TRUE(registry_.IsSelectedForLogging(22));
  EXPECT_FALSE(registry_.IsSelectedForLogging(21));
  EXPECT_EQ(registry_.GetLoggingSelectionMap().Get(), ClientIdSet(std::uint64_t{1} << 22));
}

TEST_F(LoggingSelection, IsGivenOutAsTheLiveSet) {
  const SharedClientIdSet& live = registry_.GetLoggingSelectionMap();
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  EXPECT_TRUE(live.Contains(21));
  registry_.ResetLoggingSelection();
  EXPECT_FALSE(live.Contains(21));
}

TEST_F(LoggingSelection, TakesNoUnknownStringId) {
  EXPECT_FALSE(registry_.SelectForLogging(L"Radar"));
  EXPECT_TRUE(registry_.IsLoggingSelectionEmpty());
}

TEST_F(LoggingSelection, NeverHoldsNoIdOrAnIdOf64OrMore) {
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  gps_.client_id = 64 + 21;
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  for (const int id : {64, 64 + 21, 128 + 21, 0xFFFF}) {
    EXPECT_FALSE(registry_.IsSelectedForLogging(static_cast<std::uint16_t>(id))) << id;
  }
}

TEST_F(LoggingSelection, IsResetAsAWhole) {
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  ASSERT_TRUE(registry_.SelectForLogging(L"CAN"));
  registry_.ResetLoggingSelection();
  EXPECT_TRUE(registry_.IsLoggingSelectionEmpty());
}

TEST_F(LoggingSelection, IsResetForOneStringId) {
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  ASSERT_TRUE(registry_.SelectForLogging(L"CAN"));
  EXPECT_TRUE(registry_.ResetLoggingSelection(L"GPS"));
  EXPECT_TRUE(registry_.ResetLoggingSelection(L"GPS")) << "it is registered, selected or not";
  EXPECT_FALSE(registry_.ResetLoggingSelection(L"Radar"));
  EXPECT_FALSE(registry_.IsSelectedForLogging(21));
  EXPECT_TRUE(registry_.IsSelectedForLogging(22));
}

TEST_F(LoggingSelection, LosesAClientWithItsLastInstance) {
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  ASSERT_TRUE(registry_.SelectForLogging(L"CAN"));
  ASSERT_TRUE(registry_.UnRegisterClient(&gps_));
  EXPECT_FALSE(registry_.IsSelectedForLogging(21));
  EXPECT_TRUE(registry_.IsSelectedForLogging(22)) << "the others stay";

  ASSERT_TRUE(registry_.RegisterClient(&gps_));
  EXPECT_EQ(gps_.client_id, 23);
  EXPECT_FALSE(registry_.IsSelectedForLogging(23));
  EXPECT_TRUE(registry_.IsIdInDictionary(21));
}

TEST_F(LoggingSelection, IsSharedByStringIdsWithTheSameFixedId) {
  RecordingClient one(L"One", 7);
  RecordingClient two(L"Two", 7);
  ASSERT_TRUE(registry_.RegisterClient(&one));
  ASSERT_TRUE(registry_.RegisterClient(&two));
  ASSERT_TRUE(registry_.SelectForLogging(L"Two"));
  EXPECT_THAT(Selected(), ElementsAre(Pair(L"One", 7), Pair(L"Two", 7)));
}

TEST_F(LoggingSelection, WithNobodySelectedTheDictionaryIsEmpty) {
  EXPECT_THAT(Selected(), IsEmpty());
}

TEST_F(LoggingSelection, TheDictionaryHoldsTheSelectedClientsByAscendingStringId) {
  ASSERT_TRUE(registry_.SelectForLogging(L"Info Client"));
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  EXPECT_THAT(Selected(), ElementsAre(Pair(L"GPS", 21), Pair(L"Info Client", 12)));
  ASSERT_TRUE(registry_.SelectForLogging(L"CAN"));
  EXPECT_THAT(Selected(),
              ElementsAre(Pair(L"CAN", 22), Pair(L"GPS", 21), Pair(L"Info Client", 12)));
}

TEST_F(LoggingSelection, TheDictionaryIsOrderedByCodePointAndShorterFirst) {
  RecordingClient umlaut(L"GP\x00C4");
  RecordingClient longer(L"GPS 2");
  RecordingClient lower(L"gps");
  RecordingClient wide(L"\xFF21ps");
  RecordingClient astral(L"\x10041ps");
  for (RecordingClient* const client : {&astral, &wide, &umlaut, &longer, &lower}) {
    ASSERT_TRUE(registry_.RegisterClient(client));
    ASSERT_TRUE(registry_.SelectForLogging(client->string_id));
  }
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  EXPECT_THAT(Selected(),
              ElementsAre(Pair(L"GPS", 21), Pair(L"GPS 2", testing::_),
                          Pair(L"GP\x00C4", testing::_), Pair(L"gps", testing::_),
                          Pair(L"\xFF21ps", testing::_), Pair(L"\x10041ps", testing::_)));
}

TEST_F(LoggingSelection, TheListShowsEverySelectableClientWithItsChoice) {
  EXPECT_THAT(Offered(), ElementsAre(Pair(L"CAN", false), Pair(L"GPS", false)));
  ASSERT_TRUE(registry_.SelectForLogging(L"CAN"));
  EXPECT_THAT(Offered(), ElementsAre(Pair(L"CAN", true), Pair(L"GPS", false)));
  can_.selectable_for_logging = false;
  EXPECT_THAT(Offered(), ElementsAre(Pair(L"GPS", false)));
}

TEST_F(LoggingSelection, TheListLeavesTheInfoClientOutEvenWhenItIsSelected) {
  ASSERT_TRUE(registry_.SelectForLogging(L"Info Client"));
  EXPECT_THAT(Offered(), ElementsAre(Pair(L"CAN", false), Pair(L"GPS", false)));
}

TEST_F(LoggingSelection, OneSelectableInstanceMakesAStringIdSelectable) {
  RecordingClient second(L"GPS");
  ASSERT_TRUE(registry_.RegisterClient(&second));
  gps_.selectable_for_logging = false;
  EXPECT_TRUE(registry_.IsSelectableForLogging(L"GPS"));
  second.selectable_for_logging = false;
  EXPECT_FALSE(registry_.IsSelectableForLogging(L"GPS"));
  gps_.selectable_for_logging = true;
  EXPECT_TRUE(registry_.IsSelectableForLogging(L"GPS"));
  EXPECT_FALSE(registry_.IsSelectableForLogging(L"Radar"));
}

TEST_F(LoggingSelection, TheListStopsAtAClientThatLostItsId) {
  gps_.client_id = kNoId;
  std::map<String, bool> list;
  EXPECT_FALSE(registry_.GetLoggingClientList(list));
  EXPECT_FALSE(registry_.SelectForLogging(L"GPS"));
  EXPECT_TRUE(registry_.ResetLoggingSelection(L"GPS"));
}

TEST_F(LoggingSelection, TheDictionaryFailsWhenMemoryIsShort) {
  ASSERT_TRUE(registry_.SelectForLogging(L"GPS"));
  ASSERT_TRUE(registry_.SelectForLogging(L"Info Client"));
  for (std::uint32_t grants = 0;; ++grants) {
    Dictionary dictionary;
    bool made = false;
    const bool ran_short = RanShort(grants, [&] { made = registry_.GetDictionary(dictionary); });
    ASSERT_EQ(made, !ran_short);
    EXPECT_EQ(dictionary.size() == 2, made);
    if (!ran_short) break;
  }
}

TEST_F(LoggingSelection, TheListFailsWhenMemoryIsShort) {
  for (std::uint32_t grants = 0;; ++grants) {
    std::map<String, bool> list;
    bool made = false;
    const bool ran_short = RanShort(grants, [&] { made = registry_.GetLoggingClientList(list); });
    ASSERT_EQ(made, !ran_short);
    EXPECT_EQ(list.size() == 2, made);
    if (!ran_short) break;
  }
}

}  // namespace
}  // namespace kestrav
