#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "support/recording_client.h"
#include "support/short_memory.h"

namespace kestrav {
namespace {

using test::RanShort;
using Ids = std::initializer_list<std::uint16_t>;
using test::RecordingClient;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<IClient*> Instances(const ClientManager& registry, const String& string_id) {
  std::vector<IClient*> instances;
  if (!registry.GetInstanceVector(string_id, instances)) instances.clear();
  return instances;
}

std::vector<String> Names(const ClientManager& registry) {
  std::vector<String> names;
  EXPECT_TRUE(registry.GetClientsList(names));
  return names;
}

TEST(Registry, StartsEmpty) {
  const ClientManager registry;
  EXPECT_THAT(Names(registry), IsEmpty());
  EXPECT_FALSE(registry.IsStringRegistered(L"GPS"));
  EXPECT_TRUE(registry.IsLoggingSelectionEmpty());
  EXPECT_TRUE(registry.IsPlaybackSelectionEmpty());
}

TEST(Registry, RefusesANullClient) {
  ClientManager registry;
  IClient* const nobody = nullptr;
  EXPECT_FALSE(registry.RegisterClient(nobody));
  EXPECT_FALSE(registry.UnRegisterClient(nobody));
  EXPECT_FALSE(registry.IsInstanceRegistered(nobody));
}

TEST(Registry, TakesAClientInUnderItsStringId) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  EXPECT_FALSE(registry.IsInstanceRegistered(&gps));
  EXPECT_TRUE(registry.RegisterClient(&gps));
  EXPECT_TRUE(registry.IsStringRegistered(L"GPS"));
  EXPECT_FALSE(registry.IsStringRegistered(L"gps"));
  EXPECT_TRUE(registry.IsInstanceRegistered(&gps));
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&gps));
}

TEST(Registry, RefusesAClientWithoutAValidStringId) {
  ClientManager registry;
  RecordingClient client(L"G1S", 5);
  EXPECT_FALSE(registry.RegisterClient(&client));
  EXPECT_EQ(client.client_id, 5);
  EXPECT_FALSE(registry.IsIdInDictionary(5));
  EXPECT_THAT(Names(registry), IsEmpty());
}

TEST(Registry, RegistersAnInstanceTwiceWithoutASecondCopy) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  EXPECT_TRUE(registry.RegisterClient(&gps));
  EXPECT_TRUE(registry.RegisterClient(&gps));
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&gps));
  EXPECT_EQ(gps.client_id, 21);
}

TEST(Registry, GivesAFurtherInstanceTheIdOfItsStringId) {
  ClientManager registry;
  RecordingClient first(L"GPS");
  RecordingClient second(L"GPS");
  RecordingClient third(L"GPS", 21);
  for (RecordingClient* const client : {&first, &second, &third}) {
    EXPECT_TRUE(registry.RegisterClient(client));
    EXPECT_EQ(client->client_id, 21);
  }
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&first, &second, &third));
  EXPECT_EQ(registry.GetUnAllocatedId(), 22);
}

TEST(Registry, RefusesAFurtherInstanceThatInsistsOnAnotherId) {
  ClientManager registry;
  RecordingClient first(L"GPS", 7);
  RecordingClient second(L"GPS", 8);
  ASSERT_TRUE(registry.RegisterClient(&first));
  EXPECT_FALSE(registry.RegisterClient(&second));
  EXPECT_EQ(second.client_id, 8);
  EXPECT_FALSE(registry.IsInstanceRegistered(&second));
  EXPECT_FALSE(registry.IsIdInDictionary(8));
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&first));
}

TEST(Registry, GivesNoInstancesForAnUnknownStringId) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  std::vector<IClient*> instances = {&gps};
  EXPECT_FALSE(registry.GetInstanceVector(L"GPS", instances));
  EXPECT_THAT(instances, IsEmpty());
}

TEST(Registry, RemovingOneOfTwoInstancesKeepsTheSelectionAndTheEntry) {
  ClientManager registry;
  RecordingClient first(L"GPS");
  RecordingClient second(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&first));
  ASSERT_TRUE(registry.RegisterClient(&second));
  ASSERT_TRUE(registry.SelectForLogging(L"GPS"));
  EXPECT_TRUE(registry.UnRegisterClient(&first));
  EXPECT_EQ(first.client_id, kNoId);
  EXPECT_EQ(second.client_id, 21);
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&second));
  EXPECT_EQ(registry.GetDictonaryId(L"GPS"), 21);
  EXPECT_TRUE(registry.IsSelectedForLogging(21));
}

TEST(Registry, InstancesKeepTheirOrderWhenOneLeaves) {
  ClientManager registry;
  RecordingClient first(L"GPS");
  RecordingClient second(L"GPS");
  RecordingClient third(L"GPS");
  for (RecordingClient* const client : {&first, &second, &third}) {
    ASSERT_TRUE(registry.RegisterClient(client));
  }
  ASSERT_TRUE(registry.UnRegisterClient(&second));
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&first, &third));
}

TEST(Registry, DoesNotRemoveAnInstanceItDoesNotHold) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  RecordingClient twin(L"GPS", 21);
  RecordingClient stranger(L"CAN", 9);
  ASSERT_TRUE(registry.RegisterClient(&gps));
  EXPECT_FALSE(registry.UnRegisterClient(&twin));
  EXPECT_FALSE(registry.UnRegisterClient(&stranger));
  EXPECT_EQ(twin.client_id, 21);
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&gps));
}

TEST(Registry, OnlyAFixedIdStaysWithAClientThatLeaves) {
  ClientManager registry;
  for (const std::uint16_t id : Ids{0, 12, 20}) {
    RecordingClient fixed(L"Fixed", id);
    ASSERT_TRUE(registry.RegisterClient(&fixed));
    ASSERT_TRUE(registry.UnRegisterClient(&fixed));
    EXPECT_EQ(fixed.client_id, id);
  }
  RecordingClient allocated(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&allocated));
  ASSERT_TRUE(registry.UnRegisterClient(&allocated));
  EXPECT_EQ(allocated.client_id, kNoId);
  EXPECT_FALSE(registry.UnRegisterClient(&allocated));
}

TEST(Registry, RemovesAllInstancesOfAStringId) {
  ClientManager registry;
  RecordingClient first(L"GPS");
  RecordingClient second(L"GPS");
  RecordingClient other(L"CAN");
  for (RecordingClient* const client : {&first, &second, &other}) {
    ASSERT_TRUE(registry.RegisterClient(client));
  }
  EXPECT_TRUE(registry.UnRegisterClient(L"GPS"));
  EXPECT_THAT(Names(registry), ElementsAre(L"CAN"));
  EXPECT_EQ(first.client_id, kNoId);
  EXPECT_EQ(second.client_id, kNoId);
  EXPECT_FALSE(registry.UnRegisterClient(L"GPS"));
}

TEST(Registry, RemovalByStringIdGoesOnAfterAFailure) {
  ClientManager registry;
  RecordingClient first(L"GPS");
  RecordingClient second(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&first));
  ASSERT_TRUE(registry.RegisterClient(&second));
  first.string_id = L"Renamed";
  EXPECT_FALSE(registry.UnRegisterClient(L"GPS"));
  EXPECT_THAT(Instances(registry, L"GPS"), ElementsAre(&first));
  EXPECT_EQ(second.client_id, kNoId);
}

TEST(Registry, ListsClientsInSlotOrder) {
  ClientManager registry;
  RecordingClient one(L"One");
  RecordingClient two(L"Two");
  RecordingClient three(L"Three");
  RecordingClient four(L"Four");
  for (RecordingClient* const client : {&one, &two, &three}) {
    ASSERT_TRUE(registry.RegisterClient(client));
  }
  EXPECT_THAT(Names(registry), ElementsAre(L"One", L"Two", L"Three"));
  ASSERT_TRUE(registry.UnRegisterClient(&two));
  ASSERT_TRUE(registry.RegisterClient(&four));
  EXPECT_THAT(Names(registry), ElementsAre(L"One", L"Four", L"Three"));
}

TEST(Registry, AListStopsAtAClientThatLostItsId) {
  ClientManager registry;
  RecordingClient one(L"One");
  RecordingClient two(L"Two");
  RecordingClient three(L"Three");
  for (RecordingClient* const client : {&one, &two, &three}) {
    ASSERT_TRUE(registry.RegisterClient(client));
  }
  two.client_id = kNoId;
  std::vector<String> names = {L"before"};
  EXPECT_FALSE(registry.GetClientsList(names));
  EXPECT_THAT(names, ElementsAre(L"One"));
  EXPECT_FALSE(registry.UnRegisterClient(L"Two"));
  EXPECT_TRUE(registry.UnRegisterClient(&two));
  EXPECT_THAT(Names(registry), ElementsAre(L"One", L"Three"));
}

TEST(Registry, HandsAControlStringToEveryInstanceWhateverTheyAnswer) {
  ClientManager registry;
  RecordingClient first(L"GPS");
  RecordingClient second(L"GPS");
  RecordingClient other(L"CAN");
  first.takes_controls = false;
  for (RecordingClient* const client : {&first, &second, &other}) {
    ASSERT_TRUE(registry.RegisterClient(client));
  }
  EXPECT_TRUE(registry.SendControlStringToClient(L"GPS", L"rate=10"));
  EXPECT_THAT(first.Controls(), ElementsAre(L"rate=10"));
  EXPECT_THAT(second.Controls(), ElementsAre(L"rate=10"));
  EXPECT_THAT(other.Controls(), IsEmpty());
}

TEST(Registry, HandsAControlStringForAnUnknownStringIdToNobody) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  EXPECT_FALSE(registry.SendControlStringToClient(L"CAN", L"rate=10"));
  EXPECT_THAT(gps.Controls(), IsEmpty());
}

// A client that answers every question by throwing, once it was told to.
class ThrowingClient final : public IClient {
 public:
  bool AcceptsPlaybackOffsetData() override { throw std::runtime_error("offset data"); }
  String GetClientStringID() const override {
    if (throws) throw std::runtime_error("string id");
    return L"Throwing";
  }
  bool IsUserSelectableForLogging() override { throw std::runtime_error("logging"); }
  bool IsUserSelectableForPlayback() override { throw std::runtime_error("playback"); }
  bool HandleConfigControlString(const String&) override { throw std::runtime_error("control"); }

  bool throws = false;
};

TEST(Registry, AClientThatThrowsHasAnsweredNo) {
  ClientManager registry;
  ThrowingClient client;
  client.throws = true;
  EXPECT_FALSE(registry.RegisterClient(&client));
  EXPECT_EQ(client.client_id, kNoId);
  client.throws = false;
  ASSERT_TRUE(registry.RegisterClient(&client));
  EXPECT_FALSE(registry.IsSelectableForLogging(L"Throwing"));
  EXPECT_FALSE(registry.IsSelectableForPlayback(L"Throwing"));
  EXPECT_TRUE(registry.SendControlStringToClient(L"Throwing", L"x"));
  client.throws = true;
  EXPECT_FALSE(registry.IsInstanceRegistered(&client));
  EXPECT_FALSE(registry.UnRegisterClient(&client));
  EXPECT_TRUE(registry.IsStringRegistered(L"Throwing"));
  client.throws = false;
  EXPECT_TRUE(registry.UnRegisterClient(&client));
}

// A client that leaves the registry as soon as it is told to.
class LeavingClient final : public IClient {
 public:
  explicit LeavingClient(ClientManager& registry) : registry_(registry) {}
  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return L"Leaving"; }
  bool IsUserSelectableForLogging() override { return registry_.IsStringRegistered(L"Leaving"); }
  bool IsUserSelectableForPlayback() override { return false; }
  bool HandleConfigControlString(const String&) override {
    return registry_.UnRegisterClient(this);
  }

 private:
  ClientManager& registry_;
};

TEST(Registry, AClientMayCallBackOnTheSameThreadWhileItIsAsked) {
  ClientManager registry;
  LeavingClient first(registry);
  LeavingClient second(registry);
  ASSERT_TRUE(registry.RegisterClient(&first));
  ASSERT_TRUE(registry.RegisterClient(&second));
  std::map<String, bool> list;
  EXPECT_TRUE(registry.GetLoggingClientList(list));
  EXPECT_EQ(list.size(), 1U);
  EXPECT_TRUE(registry.SendControlStringToClient(L"Leaving", L"go"));
  EXPECT_THAT(Names(registry), IsEmpty());
}

TEST(Registry, RefusesAClientWhenMemoryIsShortAndStaysAsItWas) {
  for (std::uint32_t grants = 0;; ++grants) {
    ClientManager registry;
    RecordingClient gps(L"Global position");
    bool registered = false;
    const bool ran_short = RanShort(grants, [&] { registered = registry.RegisterClient(&gps); });
    ASSERT_EQ(registered, !ran_short);
    if (!ran_short) break;
    ASSERT_FALSE(registry.IsStringRegistered(L"Global position"))
        << "with " << grants << " allocations";
    EXPECT_EQ(gps.client_id, kNoId);
    EXPECT_THAT(Names(registry), IsEmpty());
    EXPECT_EQ(registry.GetUnAllocatedId(), 21);
    EXPECT_TRUE(registry.RegisterClient(&gps));
  }
}

TEST(Registry, RefusesAFurtherInstanceWhenMemoryIsShort) {
  for (std::uint32_t grants = 0;; ++grants) {
    ClientManager registry;
    RecordingClient first(L"Global position");
    RecordingClient second(L"Global position");
    ASSERT_TRUE(registry.RegisterClient(&first));
    bool registered = false;
    const bool ran_short = RanShort(grants, [&] { registered = registry.RegisterClient(&second); });
    ASSERT_EQ(registered, !ran_short);
    if (!ran_short) break;
    EXPECT_EQ(second.client_id, kNoId);
    EXPECT_THAT(Instances(registry, L"Global position"), ElementsAre(&first));
  }
}

TEST(Registry, KeepsAClientThatCannotBeRemovedForLackOfMemory) {
  for (std::uint32_t grants = 0;; ++grants) {
    ClientManager registry;
    RecordingClient gps(L"Global position");
    const String name = L"Global position";
    ASSERT_TRUE(registry.RegisterClient(&gps));
    bool removed = false;
    const bool ran_short = RanShort(grants, [&] { removed = registry.UnRegisterClient(name); });
    ASSERT_EQ(removed, !ran_short);
    EXPECT_EQ(registry.IsStringRegistered(name), ran_short);
    if (!ran_short) break;
  }
}

TEST(Registry, AListThatRunsShortOfMemoryFails) {
  ClientManager registry;
  RecordingClient gps(L"Global position");
  RecordingClient can(L"Controller network");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  ASSERT_TRUE(registry.RegisterClient(&can));
  for (std::uint32_t grants = 0;; ++grants) {
    std::vector<String> names;
    bool listed = false;
    const bool ran_short = RanShort(grants, [&] { listed = registry.GetClientsList(names); });
    ASSERT_EQ(listed, !ran_short);
    if (!ran_short) break;
    EXPECT_LT(names.size(), 2U);
  }
}

TEST(Registry, AControlStringThatRunsShortOfMemoryReachesNobody) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  bool sent = true;
  const String control;
  const String name = L"GPS";
  ASSERT_TRUE(RanShort(0, [&] { sent = registry.SendControlStringToClient(name, control); }));
  EXPECT_FALSE(sent);
  EXPECT_THAT(gps.Controls(), IsEmpty());
}

TEST(Registry, SeveralThreadsMayUseIt) {
  ClientManager registry;
  const auto use = [&registry](std::uint16_t id) {
    const String name = String(L"Client ") + static_cast<wchar_t>(L'a' + id);
    for (int round = 0; round < 200; ++round) {
      RecordingClient client(name, id);
      EXPECT_TRUE(registry.RegisterClient(&client));
      EXPECT_TRUE(registry.SelectForLogging(name));
      EXPECT_TRUE(registry.IsSelectedForLogging(id));
      Dictionary dictionary;
      EXPECT_TRUE(registry.GetDictionary(dictionary));
      EXPECT_EQ(dictionary[name], id);
      EXPECT_TRUE(registry.GetLoggingSelectionMap().Contains(id));
      EXPECT_TRUE(registry.UnRegisterClient(&client));
      EXPECT_FALSE(registry.IsSelectedForLogging(id));
    }
  };
  std::vector<std::jthread> threads;
  for (std::uint16_t id = 0; id < 4; ++id) threads.emplace_back(use, id);
  threads.clear();
  EXPECT_THAT(Names(registry), IsEmpty());
  EXPECT_TRUE(registry.IsLoggingSelectionEmpty());
}

}  // namespace
}  // namespace kestrav
