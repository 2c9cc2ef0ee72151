#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "support/recording_client.h"

namespace kestrav {
namespace {

using Ids = std::initializer_list<std::uint16_t>;
using test::RecordingClient;

// "Client aa", "Client ab"...: valid, and different for each number below 676.
String Name(int number) {
  String name = L"Client ";
  name += static_cast<wchar_t>(L'a' + number / 26);
  name += static_cast<wchar_t>(L'a' + number % 26);
  return name;
}

struct StringId {
  String text;
  bool valid;
};

void PrintTo(const StringId& id, std::ostream* out) { *out << Text::ToUtf8(id.text); }

class StringIds : public testing::TestWithParam<StringId> {};

TEST_P(StringIds, AreValidWith3To50CharactersAndThreeLettersFirst) {
  EXPECT_EQ(ClientManager().IsValidStringId(GetParam().text), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, StringIds,
    testing::Values(StringId{L"", false}, StringId{L"A", false}, StringId{L"AB", false},
                    StringId{L"ABC", true}, StringId{L"abc", true}, StringId{L"aBc", true},
                    StringId{String(50, L'x'), true}, StringId{String(51, L'x'), false},
                    StringId{L"Info Client", true},
                    // Anything that is no letter among the first three.
                    StringId{L"1BC", false}, StringId{L"A1C", false}, StringId{L"AB1", false},
                    StringId{L" BC", false}, StringId{L"A C", false}, StringId{L"AB ", false},
                    StringId{L"AB-", false}, StringId{L"_BC", false},
                    // Anything at all from the fourth on.
                    StringId{L"GPS1", true}, StringId{L"GPS 2", true}, StringId{L"GPS-3", true},
                    StringId{L"GPS\x4E2D", true}, StringId{String(L"GPS\0\0", 5), true},
                    // Letters beyond ASCII; title case and caseless ones do not count.
                    StringId{L"\x00C4\x00F6\x00DF", true}, StringId{L"\x0416\x03B1\xFF21", true},
                    StringId{L"\x01C5xx", false}, StringId{L"x\x00AAx", false},
                    StringId{L"xx\x05D0", false},
                    // Above U+FFFF the low 16 bits decide.
                    StringId{L"\x10041\x10062\x20043", true}, StringId{L"\x10031xx", false},
                    StringId{L"\x10400xx", true}));

TEST(ClientIds, TheFirstClientsWithoutAnIdGet21And22) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  RecordingClient can(L"CAN");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  ASSERT_TRUE(registry.RegisterClient(&can));
  EXPECT_EQ(gps.client_id, 21);
  EXPECT_EQ(can.client_id, 22);
}

TEST(ClientIds, After43AllocatedClientsThe44thIsRefused) {
  ClientManager registry;
  std::vector<std::unique_ptr<RecordingClient>> clients;
  for (std::uint16_t id = 21; id < 64; ++id) {
    clients.push_back(std::make_unique<RecordingClient>(Name(id)));
    ASSERT_TRUE(registry.RegisterClient(clients.back().get()));
    EXPECT_EQ(clients.back()->client_id, id);
  }
  RecordingClient one_more(L"One more");
  EXPECT_FALSE(registry.RegisterClient(&one_more));
  EXPECT_EQ(one_more.client_id, kNoId);
  EXPECT_FALSE(registry.IsStringRegistered(L"One more"));
  EXPECT_EQ(registry.GetUnAllocatedId(), kNoId);

  RecordingClient fixed(L"Fixed", 20);
  EXPECT_TRUE(registry.RegisterClient(&fixed));
  RecordingClient further(Name(21));
  EXPECT_TRUE(registry.RegisterClient(&further)) << "a further instance needs no new id";
  EXPECT_EQ(further.client_id, 21);
}

TEST(ClientIds, RegisteringAndRemoving43ClientsUsesUpTheIds) {
  ClientManager registry;
  for (int i = 0; i < 43; ++i) {
    RecordingClient client(Name(i));
    ASSERT_TRUE(registry.RegisterClient(&client));
    EXPECT_EQ(client.client_id, 21 + i);
    ASSERT_TRUE(registry.UnRegisterClient(&client));
  }
  RecordingClient one_more(L"One more");
  EXPECT_FALSE(registry.RegisterClient(&one_more));
}

TEST(ClientIds, EveryFixedIdIsGrantedAsAskedFor) {
  ClientManager registry;
  for (std::uint16_t id = 0; id <= 20; ++id) {
    RecordingClient client(Name(id), id);
    EXPECT_TRUE(registry.RegisterClient(&client));
    EXPECT_EQ(client.client_id, id);
    EXPECT_EQ(registry.GetDictonaryId(Name(id)), id);
    EXPECT_EQ(registry.GetClientId(Name(id)), id);
    EXPECT_TRUE(registry.IsIdInDictionary(id));
    ASSERT_TRUE(registry.UnRegisterClient(&client));
  }
}

TEST(ClientIds, AnIdAbove20CannotBeAskedFor) {
  ClientManager registry;
  for (const std::uint16_t id : Ids{21, 30, 63, 64, 1000, 0xFFFE}) {
    RecordingClient client(L"GPS", id);
    EXPECT_FALSE(registry.RegisterClient(&client)) << id;
    EXPECT_EQ(client.client_id, id);
    EXPECT_FALSE(registry.IsStringRegistered(L"GPS"));
    EXPECT_FALSE(registry.IsIdInDictionary(id));
  }
}

TEST(ClientIds, TwoStringIdsMayHoldTheSameFixedIdAndTheFirstInMapOrderNamesIt) {
  ClientManager registry;
  RecordingClient one(L"One", 7);
  RecordingClient two(L"Two", 7);
  RecordingClient three(L"Three", 7);
  ASSERT_TRUE(registry.RegisterClient(&one));
  ASSERT_TRUE(registry.RegisterClient(&two));
  EXPECT_EQ(two.client_id, 7);
  String name;
  ASSERT_TRUE(registry.GetClientStringId(7, name));
  EXPECT_EQ(name, L"One");

  ASSERT_TRUE(registry.UnRegisterClient(&one));
  ASSERT_TRUE(registry.GetClientStringId(7, name));
  EXPECT_EQ(name, L"Two");
  ASSERT_TRUE(registry.RegisterClient(&three));
  ASSERT_TRUE(registry.GetClientStringId(7, name));
  EXPECT_EQ(name, L"Three") << "it took the slot of the one that left";
}

TEST(ClientIds, AnIdIsNeverHandedOutAgain) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  ASSERT_TRUE(registry.UnRegisterClient(&gps));
  ASSERT_TRUE(registry.RegisterClient(&gps));
  EXPECT_EQ(gps.client_id, 22);
  EXPECT_TRUE(registry.IsIdInDictionary(21));
  String name;
  EXPECT_FALSE(registry.GetClientStringId(21, name));
}

TEST(ClientIds, AnUnknownStringIdHasNone) {
  const ClientManager registry;
  EXPECT_EQ(registry.GetDictonaryId(L"GPS"), kNoId);
  EXPECT_EQ(registry.GetClientId(L"GPS"), kNoId);
}

TEST(ClientIds, AnUnknownIdHasNoStringId) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  String name = L"before";
  for (const std::uint16_t id : Ids{0, 20, 22, 64, 0xFFFF}) {
    EXPECT_FALSE(registry.GetClientStringId(id, name)) << id;
  }
  EXPECT_EQ(name, L"before");
}

TEST(ClientIds, IdsOf64AndMoreAreNeverInUse) {
  ClientManager registry;
  for (const std::uint16_t id : Ids{64, 85, 128, 0xFFFE, 0xFFFF}) {
    EXPECT_FALSE(registry.MarkIdAsUsed(id)) << id;
    EXPECT_FALSE(registry.IsIdInDictionary(id)) << id;
  }
  for (std::uint16_t id = 0; id < 64; ++id) EXPECT_FALSE(registry.IsIdInDictionary(id)) << id;
}

TEST(ClientIds, AllocationAnswersByWhatIsAskedFor) {
  ClientManager registry;
  EXPECT_TRUE(registry.MarkIdAsUsed(7));
  EXPECT_EQ(registry.AllocateId(0), 0);
  EXPECT_EQ(registry.AllocateId(7), 7) << "a fixed id may be in use";
  EXPECT_EQ(registry.AllocateId(20), 20);
  EXPECT_EQ(registry.AllocateId(21), kNoId);
  EXPECT_EQ(registry.AllocateId(0xFFFE), kNoId);
  EXPECT_EQ(registry.AllocateId(kNoId), 21);
  EXPECT_EQ(registry.AllocateId(kNoId), 21) << "asking alone uses no id up";
}

TEST(ClientIds, TheLowestFreeIdIsFound) {
  ClientManager registry;
  for (const std::uint16_t id : Ids{21, 22, 24}) ASSERT_TRUE(registry.MarkIdAsUsed(id));
  EXPECT_EQ(registry.GetUnAllocatedId(), 23);
  ASSERT_TRUE(registry.MarkIdAsUsed(23));
  EXPECT_EQ(registry.GetUnAllocatedId(), 25);
  EXPECT_TRUE(registry.MarkIdAsFree(22));
  EXPECT_FALSE(registry.IsIdInDictionary(22));
  EXPECT_EQ(registry.GetUnAllocatedId(), 22);
}

TEST(ClientIds, OnlyNoIdCannotBeMarkedAsFree) {
  ClientManager registry;
  EXPECT_TRUE(registry.MarkIdAsFree(63));
  EXPECT_TRUE(registry.MarkIdAsFree(64));
  EXPECT_FALSE(registry.MarkIdAsFree(kNoId));
}

TEST(ClientIdSet, HoldsIds0To63) {
  ClientIdSet ids;
  EXPECT_TRUE(ids.IsEmpty());
  for (std::uint16_t id = 0; id < 64; ++id) {
    EXPECT_FALSE(ids.Contains(id));
    ids.Add(id);
    EXPECT_TRUE(ids.Contains(id));
    EXPECT_EQ(ids, ClientIdSet(~std::uint64_t{0} >> (63 - id)));
  }
  for (std::uint16_t id = 0; id < 64; ++id) {
    ids.Remove(id);
    EXPECT_FALSE(ids.Contains(id));
  }
  EXPECT_TRUE(ids.IsEmpty());
}

TEST(ClientIdSet, AnIdOf64OrMoreChangesNothing) {
  ClientIdSet ids(0x8000'0000'0000'0001);
  SharedClientIdSet shared;
  shared.Add(63);
  for (const std::uint16_t id : Ids{64, 127, 128, 0xFFFF}) {
    ids.Add(id);
    shared.Add(id);
    EXPECT_FALSE(ids.Contains(id));
    EXPECT_FALSE(shared.Contains(id));
    ids.Remove(id);
    shared.Remove(id);
  }
  EXPECT_EQ(ids.Mask(), 0x8000'0000'0000'0001U);
  EXPECT_EQ(shared.Get(), ClientIdSet(0x8000'0000'0000'0000));
  ids.Clear();
  EXPECT_TRUE(ids.IsEmpty());
}

}  // namespace
}  // namespace kestrav
