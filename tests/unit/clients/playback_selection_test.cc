#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using testing::UnorderedElementsAre;

constexpr std::uint64_t BitOf(int id) { return std::uint64_t{1} << id; }

// What a playback is told, and whether it was told anything.
struct Info {
  bool given = false;
  Receivers receivers;
  ClientIdSet client_ids;
  ClientIdSet dictionary_ids;
  ClientIdSet offset_data_ids;
};

// A registry in which CAN has id 21 and GPS id 22, for logs in which GPS had id 21.
class PlaybackSelection : public testing::Test {
 protected:
  PlaybackSelection() {
    EXPECT_TRUE(registry_.RegisterClient(&info_));
    EXPECT_TRUE(registry_.RegisterClient(&can_));
    EXPECT_TRUE(registry_.RegisterClient(&gps_));
  }

  std::vector<String> Offer(const Dictionary& dictionary, std::uint16_t mask = 0) {
    std::vector<String> offered = {L"left over"};
    const bool any = registry_.UpdatePlaybackClientList(offered, dictionary, mask);
    EXPECT_EQ(any, !offered.empty());
    return offered;
  }

  Info GetInfo() const {
    Info info;
    info.receivers[5] = {};
    info.client_ids.Add(1);
    info.dictionary_ids.Add(2);
    info.offset_data_ids.Add(3);
    info.given = registry_.GetPlaybackSelectionInfo(info.receivers, info.client_ids,
                                                    info.dictionary_ids, info.offset_data_ids);
    return info;
  }

  ClientManager registry_;
  InfoClientImpl info_;
  RecordingClient can_{L"CAN"};
  RecordingClient gps_{L"GPS"};
};

TEST_F(PlaybackSelection, OffersTheRecordedClientsThatAreRegisteredNow) {
  EXPECT_THAT(Offer({{L"GPS", 21}, {L"CAN", 30}, {L"Radar", 22}}), ElementsAre(L"CAN", L"GPS"));
  EXPECT_TRUE(registry_.IsInPlaybackList(L"GPS"));
  EXPECT_TRUE(registry_.IsInPlaybackList(L"CAN"));
  EXPECT_FALSE(registry_.IsInPlaybackList(L"Radar"));
  EXPECT_TRUE(registry_.IsPlaybackSelectionEmpty()) << "nothing is selected yet";
}

TEST_F(PlaybackSelection, MapsTheRecordedIdToTheInstancesRegisteredNow) {
  RecordingClient second(L"GPS");
  ASSERT_TRUE(registry_.RegisterClient(&second));
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  EXPECT_TRUE(registry_.SelectForPlayback(L"GPS"));
  EXPECT_TRUE(registry_.IsDictionaryIdSelectedForPlayback(21));
  EXPECT_FALSE(registry_.IsDictionaryIdSelectedForPlayback(22));
  const Info info = GetInfo();
  EXPECT_TRUE(info.given);
  EXPECT_THAT(info.receivers, UnorderedElementsAre(Pair(21, ElementsAre(&gps_, &second))));
  EXPECT_EQ(info.client_ids, ClientIdSet(BitOf(22)));
  EXPECT_EQ(info.dictionary_ids, ClientIdSet(BitOf(21)));
  EXPECT_TRUE(info.offset_data_ids.IsEmpty());
}

TEST_F(PlaybackSelection, IsAskedForByCurrentIdOrStringId) {
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  EXPECT_TRUE(registry_.IsSelectedForPlayback(22));
  EXPECT_FALSE(registry_.IsSelectedForPlayback(21)) << "CAN has 21 now and is not selected";
  EXPECT_TRUE(registry_.IsSelectedForPlayback(L"GPS"));
  EXPECT_FALSE(registry_.IsSelectedForPlayback(L"CAN"));
  EXPECT_FALSE(registry_.IsSelectedForPlayback(40)) << "nobody has it";
}

TEST_F(PlaybackSelection, TheClientThatHasTheRecordedIdNowIsSelectedOnItsOwn) {
  ASSERT_THAT(Offer({{L"CAN", 22}, {L"GPS", 21}}), ElementsAre(L"CAN", L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  EXPECT_FALSE(registry_.IsSelectedForPlayback(21));
  ASSERT_TRUE(registry_.SelectForPlayback(L"CAN"));
  EXPECT_TRUE(registry_.IsSelectedForPlayback(21));
}

TEST_F(PlaybackSelection, ClientsThatAreNotSelectableForPlaybackAreNotOffered) {
  gps_.selectable_for_playback = false;
  EXPECT_THAT(Offer({{L"GPS", 21}, {L"Info Client", 12}}), IsEmpty());
  RecordingClient second(L"GPS");
  ASSERT_TRUE(registry_.RegisterClient(&second));
  EXPECT_THAT(Offer({{L"GPS", 21}, {L"Info Client", 12}}), ElementsAre(L"GPS"));
}

TEST_F(PlaybackSelection, OfferingSkipsClientsAndStillAnswersForTheLastOneAdded) {
  EXPECT_THAT(Offer({{L"CAN", 21}, {L"Info Client", 12}, {L"Zeta", 30}}), ElementsAre(L"CAN"));
}

struct MaskRow {
  std::uint16_t mask;
  bool result;
  std::vector<String> offered;
};

class PlaybackMask : public PlaybackSelection, public testing::WithParamInterface<MaskRow> {};

// Two has id 2, Three had id 3 and left, Four has id 4 and cannot be selected.
TEST_P(PlaybackMask, WithoutADictionaryOffersTheClientsThatHaveTheRecordedIdsNow) {
  RecordingClient two(L"Two", 2);
  RecordingClient three(L"Three", 3);
  RecordingClient four(L"Four", 4);
  four.selectable_for_playback = false;
  for (RecordingClient* const client : {&two, &three, &four}) {
    ASSERT_TRUE(registry_.RegisterClient(client));
  }
  ASSERT_TRUE(registry_.UnRegisterClient(&three));
  std::vector<String> offered = {L"left over"};
  EXPECT_EQ(registry_.UpdatePlaybackClientList(offered, {}, GetParam().mask), GetParam().result);
  EXPECT_EQ(offered, GetParam().offered);
  EXPECT_EQ(registry_.IsInPlaybackList(L"Two"), !GetParam().offered.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Masks, PlaybackMask,
    testing::Values(MaskRow{0, false, {}}, MaskRow{0x0004, true, {L"Two"}},
                    MaskRow{0x1004, true, {L"Two"}},   // the info client is not offered
                    MaskRow{0x1000, true, {}},         // its id is in use, nothing was to be added
                    MaskRow{0x0010, true, {}},         // likewise
                    MaskRow{0x0008, false, {}},        // in use once, no client now
                    MaskRow{0x000C, false, {L"Two"}},  // the highest id in use decides
                    MaskRow{0x0018, true, {}},         //
                    MaskRow{0x8004, true, {L"Two"}},   // ids never in use are passed over
                    MaskRow{0x8000, false, {}}, MaskRow{0xFFFF, true, {L"Two"}}));

TEST_F(PlaybackSelection, WithoutADictionaryTheLowestIdComesFirst) {
  RecordingClient high(L"Aaa", 15);
  RecordingClient low(L"Zzz", 0);
  ASSERT_TRUE(registry_.RegisterClient(&high));
  ASSERT_TRUE(registry_.RegisterClient(&low));
  EXPECT_THAT(Offer({}, 0x8001), ElementsAre(L"Zzz", L"Aaa"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"Aaa"));
  EXPECT_TRUE(registry_.IsDictionaryIdSelectedForPlayback(15));
}

TEST_F(PlaybackSelection, ADictionaryThatOffersNobodyDoesNotFallBackToTheMask) {
  RecordingClient two(L"Two", 2);
  ASSERT_TRUE(registry_.RegisterClient(&two));
  EXPECT_THAT(Offer({{L"Radar", 2}}, 0x0004), IsEmpty());
}

TEST_F(PlaybackSelection, TakesNoClientThatIsNotOffered) {
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  EXPECT_FALSE(registry_.SelectForPlayback(L"CAN"));
  EXPECT_FALSE(registry_.SelectForPlayback(L"Radar"));
  EXPECT_TRUE(registry_.IsPlaybackSelectionEmpty());
  EXPECT_FALSE(registry_.IsDictionaryIdSelectedForPlayback(21));
}

TEST_F(PlaybackSelection, WithNothingSelectedThereIsNoInformation) {
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  const Info info = GetInfo();
  EXPECT_FALSE(info.given);
  EXPECT_THAT(info.receivers, IsEmpty());
  EXPECT_TRUE(info.client_ids.IsEmpty());
  EXPECT_TRUE(info.dictionary_ids.IsEmpty());
  EXPECT_TRUE(info.offset_data_ids.IsEmpty());
}

TEST_F(PlaybackSelection, ARecordedIdOf64OrMoreIsNeverSelected) {
  ASSERT_THAT(Offer({{L"CAN", 64}, {L"GPS", 0xFFFF}}), ElementsAre(L"CAN", L"GPS"));
  EXPECT_TRUE(registry_.SelectForPlayback(L"CAN"));
  EXPECT_TRUE(registry_.SelectForPlayback(L"GPS"));
  for (int id = 0; id <= 0xFFFF; ++id) {
    ASSERT_FALSE(registry_.IsDictionaryIdSelectedForPlayback(static_cast<std::uint16_t>(id)));
  }
  EXPECT_FALSE(registry_.IsSelectedForPlayback(L"GPS"));
  EXPECT_FALSE(registry_.IsPlaybackSelectionEmpty()) << "the current ids are selected";
  EXPECT_FALSE(GetInfo().given);
}

TEST_F(PlaybackSelection, UnselectedClientsGetNoRecords) {
  ASSERT_THAT(Offer({{L"CAN", 30}, {L"GPS", 21}}), ElementsAre(L"CAN", L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"CAN"));
  const Info info = GetInfo();
  EXPECT_TRUE(info.given);
  EXPECT_THAT(info.receivers, UnorderedElementsAre(Pair(30, ElementsAre(&can_))));
}

TEST_F(PlaybackSelection, OnlySelectableInstancesGetRecordsAndTheFirstDecidesAboutOffsetData) {
  RecordingClient second(L"GPS");
  RecordingClient third(L"GPS");
  ASSERT_TRUE(registry_.RegisterClient(&second));
  ASSERT_TRUE(registry_.RegisterClient(&third));
  ASSERT_THAT(Offer({{L"CAN", 20}, {L"GPS", 21}}), ElementsAre(L"CAN", L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"CAN"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));

  third.accepts_offset_data = true;
  EXPECT_TRUE(GetInfo().offset_data_ids.IsEmpty());
  second.accepts_offset_data = true;
  gps_.selectable_for_playback = false;
  const Info info = GetInfo();
  EXPECT_TRUE(info.given);
  EXPECT_THAT(info.receivers, UnorderedElementsAre(Pair(20, ElementsAre(&can_)),
                                                   Pair(21, ElementsAre(&second, &third))));
  EXPECT_EQ(info.offset_data_ids, ClientIdSet(BitOf(21)));
}

TEST_F(PlaybackSelection, AnEntryWithoutAReceiverEndsTheInformation) {
  can_.accepts_offset_data = true;
  ASSERT_THAT(Offer({{L"CAN", 20}, {L"GPS", 21}}), ElementsAre(L"CAN", L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"CAN"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  gps_.selectable_for_playback = false;
  const Info info = GetInfo();
  EXPECT_FALSE(info.given);
  EXPECT_THAT(info.receivers, UnorderedElementsAre(Pair(20, ElementsAre(&can_))));
  EXPECT_TRUE(info.client_ids.IsEmpty());
  EXPECT_TRUE(info.dictionary_ids.IsEmpty());
}

TEST_F(PlaybackSelection, TwoSelectedEntriesWithOneRecordedIdEndTheInformation) {
  can_.accepts_offset_data = true;
  ASSERT_THAT(Offer({{L"CAN", 21}, {L"GPS", 21}}), ElementsAre(L"CAN", L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  const Info info = GetInfo();
  EXPECT_FALSE(info.given);
  EXPECT_THAT(info.receivers, UnorderedElementsAre(Pair(21, ElementsAre(&can_))));
  EXPECT_TRUE(info.offset_data_ids.IsEmpty()) << "the failing entry takes its recorded id out";
}

TEST_F(PlaybackSelection, AnEntryWithoutAReceiverTakesItsRecordedIdOutOfTheOffsetData) {
  can_.accepts_offset_data = true;
  ASSERT_THAT(Offer({{L"CAN", 21}, {L"GPS", 21}}), ElementsAre(L"CAN", L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  gps_.selectable_for_playback = false;
  const Info info = GetInfo();
  EXPECT_FALSE(info.given);
  EXPECT_TRUE(info.offset_data_ids.IsEmpty());
}

TEST_F(PlaybackSelection, PlaybackInstancesAreTheSelectableOnesInOrder) {
  RecordingClient second(L"GPS");
  RecordingClient third(L"GPS");
  ASSERT_TRUE(registry_.RegisterClient(&second));
  ASSERT_TRUE(registry_.RegisterClient(&third));
  second.selectable_for_playback = false;
  std::vector<IClient*> instances = {&can_};
  EXPECT_TRUE(registry_.GetPlaybackInstances(L"GPS", instances));
  EXPECT_THAT(instances, ElementsAre(&gps_, &third));
  EXPECT_FALSE(registry_.GetPlaybackInstances(L"Radar", instances));
  EXPECT_THAT(instances, IsEmpty());
  gps_.selectable_for_playback = third.selectable_for_playback = false;
  EXPECT_FALSE(registry_.GetPlaybackInstances(L"GPS", instances));
  EXPECT_FALSE(registry_.IsSelectableForPlayback(L"GPS"));
  EXPECT_FALSE(registry_.IsSelectableForPlayback(L"Radar"));
}

TEST_F(PlaybackSelection, LeavingTheListClearsTheRecordedIdOnly) {
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  EXPECT_TRUE(registry_.RemoveFromPlaybackList(L"GPS"));
  EXPECT_FALSE(registry_.IsInPlaybackList(L"GPS"));
  EXPECT_FALSE(registry_.IsDictionaryIdSelectedForPlayback(21));
  EXPECT_FALSE(registry_.IsPlaybackSelectionEmpty()) << "the current id stays selected";
  EXPECT_FALSE(registry_.RemoveFromPlaybackList(L"GPS"));
}

TEST_F(PlaybackSelection, LosesAClientWithItsLastInstance) {
  RecordingClient second(L"GPS");
  ASSERT_TRUE(registry_.RegisterClient(&second));
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  ASSERT_TRUE(registry_.UnRegisterClient(&gps_));
  EXPECT_TRUE(registry_.IsSelectedForPlayback(L"GPS")) << "one instance is left";
  ASSERT_TRUE(registry_.UnRegisterClient(&second));
  EXPECT_FALSE(registry_.IsInPlaybackList(L"GPS"));
  EXPECT_FALSE(registry_.IsSelectedForPlayback(L"GPS"));
  EXPECT_FALSE(registry_.IsDictionaryIdSelectedForPlayback(21));
  EXPECT_TRUE(registry_.IsPlaybackSelectionEmpty());
}

TEST_F(PlaybackSelection, ANewListKeepsWhatWasSelected) {
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  EXPECT_THAT(Offer({{L"CAN", 21}}), ElementsAre(L"CAN"));
  EXPECT_FALSE(registry_.IsInPlaybackList(L"GPS"));
  EXPECT_TRUE(registry_.IsSelectedForPlayback(L"CAN")) << "the recorded id is still selected";
  const Info info = GetInfo();
  EXPECT_THAT(info.receivers, UnorderedElementsAre(Pair(21, ElementsAre(&can_))));
  EXPECT_EQ(info.client_ids, ClientIdSet(BitOf(22))) << "and so is the current one";
}

TEST_F(PlaybackSelection, AResetStartsOver) {
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  registry_.ResetPlaybackSelection();
  EXPECT_FALSE(registry_.IsInPlaybackList(L"GPS"));
  EXPECT_FALSE(registry_.IsDictionaryIdSelectedForPlayback(21));
  EXPECT_TRUE(registry_.IsPlaybackSelectionEmpty());
  EXPECT_FALSE(GetInfo().given);
}

TEST_F(PlaybackSelection, AListThatRunsShortOfMemoryFails) {
  RecordingClient client(L"Long string id");
  ASSERT_TRUE(registry_.RegisterClient(&client));
  const Dictionary dictionary = {{L"Long string id", 21}};
  for (std::uint32_t grants = 0;; ++grants) {
    registry_.ResetPlaybackSelection();
    std::vector<String> offered;
    bool result = false;
    const bool ran_short = RanShort(
        grants, [&] { result = registry_.UpdatePlaybackClientList(offered, dictionary, 0); });
    ASSERT_EQ(result, !ran_short);
    if (!ran_short) break;
    EXPECT_THAT(offered, IsEmpty());
  }
}

TEST_F(PlaybackSelection, InformationThatRunsShortOfMemoryFails) {
  gps_.accepts_offset_data = true;
  ASSERT_THAT(Offer({{L"GPS", 21}}), ElementsAre(L"GPS"));
  ASSERT_TRUE(registry_.SelectForPlayback(L"GPS"));
  for (std::uint32_t grants = 0;; ++grants) {
    Receivers receivers;
    ClientIdSet ids;
    ClientIdSet dictionary_ids;
    ClientIdSet offset_ids;
    bool given = false;
    const bool ran_short = RanShort(grants, [&] {
      given = registry_.GetPlaybackSelectionInfo(receivers, ids, dictionary_ids, offset_ids);
    });
    ASSERT_EQ(given, !ran_short);
    EXPECT_EQ(offset_ids.Contains(21), given);
    EXPECT_EQ(receivers.size(), given ? 1U : 0U);
    if (!ran_short) break;
  }
}

}  // namespace
}  // namespace kestrav
