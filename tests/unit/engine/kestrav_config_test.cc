#include "kestrav/engine/kestrav_config.h"

#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "support/short_memory.h"
#include "unit/engine/engine_fixture.h"

namespace kestrav::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

// Keeps the values of the group in a map.
class Store : public Config::IConfigReader, public Config::IConfigWriter {
 public:
  Config::Found ReadValue(const String& group, const String& entry, String& value) const override {
    EXPECT_EQ(group, L"Kestrav-Settings");
    const auto found = values.find(entry);
    if (found == values.end()) return Config::Found::kNothing;
    value = found->second;
    return Config::Found::kValue;
  }
  void ReportRefused(const String& /*group*/, const String& entry) const override {
    refused.push_back(entry);
  }
  bool WriteValue(const String& group, const String& description, const String& entry,
                  const String& value) override {
    EXPECT_EQ(group, L"Kestrav-Settings");
    EXPECT_EQ(description, L"Kestrav Settings");
    values[entry] = value;
    return true;
  }

  std::map<String, String> values;
  mutable std::vector<String> refused;
};

// A client whose handling of control strings throws.
class ThrowingClient final : public IClient {
 public:
  String GetClientStringID() const override { return L"AAA"; }
  bool AcceptsPlaybackOffsetData() override { return false; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
  bool HandleConfigControlString(const String& /*control*/) override { throw std::bad_alloc(); }
};

class KestravConfigTest : public EngineTest {
 protected:
  KestravConfigTest() { EXPECT_TRUE(config_.Init(&engine_)); }

  // The value of a client's entry; "none" without one.
  String EntryOf(const String& client, const KestravConfig& config) const {
    const auto entry = config.FindEntry<Config::StringEntry>(client);
    return entry ? entry->Value() : L"none";
  }
  String EntryOf(const String& client) const { return EntryOf(client, config_); }

  Store store_;
  KestravConfig config_;
};

TEST(KestravConfig, InitRefusesNoRecorderAndASecondOne) {
  const ManualClock clock;
  KestravImpl engine;
  KestravImpl other;
  KestravConfig config;
  EXPECT_FALSE(config.Init(nullptr));
  EXPECT_THAT(config.Entries(), IsEmpty());
  EXPECT_TRUE(config.Init(&engine));
  EXPECT_FALSE(config.Init(&engine));
  EXPECT_FALSE(config.Init(&other));
  EXPECT_FALSE(config.Init(nullptr));
  EXPECT_EQ(config.Entries().size(), 2U);
}

TEST(KestravConfig, BeforeInitEveryClientOperationFailsAndTheSwitchesAreDefaults) {
  KestravConfig config;
  const Store store;
  std::map<String, bool> selection = {{L"X", true}};
  std::vector<String> clients = {L"X"};
  EXPECT_FALSE(config.Read(store));
  EXPECT_FALSE(config.Read(store, true));
  EXPECT_FALSE(config.GetLoggingClientList(selection));
  EXPECT_FALSE(config.InitClientConfigList(clients));
  EXPECT_FALSE(config.ProcessClientControlStrings({L"X"}));
  EXPECT_FALSE(config.WriteClientLoggingSelection());
  EXPECT_FALSE(config.ReadClientLoggingSelection(selection));
  EXPECT_THAT(selection, IsEmpty());
  EXPECT_THAT(config.Entries(), IsEmpty());
  EXPECT_TRUE(config.IsEncryptionEnabled());
  EXPECT_FALSE(config.GetLoggingStatus());
  EXPECT_FALSE(config.EnableEncryption(true));
  EXPECT_FALSE(config.SetLoggingStatus(false));
}

TEST(KestravConfig, WhatFindsNoMemoryAtInitIsNotThere) {
  const ManualClock clock;
  KestravImpl engine;
  for (std::uint32_t grants = 0;; ++grants) {
    KestravConfig config;
    bool done = false;
    const bool was_short = RanShort(grants, [&] { done = config.Init(&engine); });
    EXPECT_EQ(done, !was_short) << grants;
    // The first switch that fails keeps out the second.
    EXPECT_LE(config.FindEntry(L"Encryption") != nullptr, config.FindEntry(L"Logging") != nullptr);
    EXPECT_EQ(config.FindEntry(L"Encryption") != nullptr, done);
    EXPECT_EQ(config.EnableEncryption(false), done);
    EXPECT_EQ(config.SetLoggingStatus(true), config.FindEntry(L"Logging") != nullptr);
    if (done) break;
  }
}

TEST_F(KestravConfigTest, IsTheGroupOfTheRecordersSettings) {
  EXPECT_EQ(config_.GetName(), L"Kestrav-Settings");
  EXPECT_EQ(config_.GetDescription(), L"Kestrav Settings");
}

TEST_F(KestravConfigTest, HasTwoSwitchesOfWhichOneIsStoredUnderAKey) {
  ASSERT_EQ(config_.Entries().size(), 2U);
  EXPECT_EQ(config_.Entries()[0]->Name(), L"Logging");
  EXPECT_EQ(config_.Entries()[0]->StoredName(), L"Logging");
  EXPECT_EQ(config_.Entries()[1]->Name(), L"Encryption");
  EXPECT_EQ(config_.Entries()[1]->StoredName(), L"KEY_ENCRYPTION");
  EXPECT_FALSE(config_.GetLoggingStatus());
  EXPECT_TRUE(config_.IsEncryptionEnabled());
}

TEST_F(KestravConfigTest, SetsTheSwitchesEachForItself) {
  EXPECT_TRUE(config_.SetLoggingStatus(true));
  EXPECT_TRUE(config_.GetLoggingStatus());
  EXPECT_TRUE(config_.IsEncryptionEnabled());
  EXPECT_TRUE(config_.EnableEncryption(false));
  EXPECT_FALSE(config_.IsEncryptionEnabled());
  EXPECT_TRUE(config_.GetLoggingStatus());
}

TEST_F(KestravConfigTest, DoesNotApplyTheSwitchesToTheRecorder) {
  ASSERT_TRUE(engine_.EnableEncryption(true));
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  ASSERT_TRUE(engine_.SetLoggingOutputStream(stream_));
  store_.values = {{L"KEY_ENCRYPTION", L"false"}, {L"Logging", L"true"}};
  EXPECT_TRUE(config_.Read(store_));
  EXPECT_FALSE(config_.IsEncryptionEnabled());
  EXPECT_FALSE(engine_.IsLogging());
}

TEST_F(KestravConfigTest, TellsItsSwitchesWithoutMemory) {
  bool values[4] = {};
  {
    const ShortMemory memory;
    values[0] = config_.EnableEncryption(false);
    values[1] = !config_.IsEncryptionEnabled();
    values[2] = config_.SetLoggingStatus(true);
    values[3] = config_.GetLoggingStatus();
  }
  EXPECT_THAT(values, testing::Each(true));
}

TEST_F(KestravConfigTest, MakesAnEntryForAClient) {
  EXPECT_TRUE(config_.AddClientToConfigClientList(L"A", true));
  EXPECT_TRUE(config_.AddClientToConfigClientList(L"B", false));
  EXPECT_EQ(EntryOf(L"A"), L"1");
  EXPECT_EQ(EntryOf(L"B"), L"0");
  const auto entry = config_.FindEntry<Config::StringEntry>(L"A");
  EXPECT_EQ(entry->StoredName(), L"A");
  EXPECT_TRUE(entry->SetValue(String(256, L'x')));
  EXPECT_FALSE(entry->SetValue(String(257, L'x')));
}

TEST_F(KestravConfigTest, MakesNoSecondEntryOfAName) {
  EXPECT_TRUE(config_.AddClientToConfigClientList(L"A", true));
  EXPECT_FALSE(config_.AddClientToConfigClientList(L"A", false));
  EXPECT_FALSE(config_.AddClientToConfigClientList(L"Logging", true));
  EXPECT_FALSE(config_.AddClientToConfigClientList(L"KEY_ENCRYPTION", true));
  EXPECT_EQ(EntryOf(L"A"), L"1");
  EXPECT_EQ(config_.Entries().size(), 3U);
}

TEST_F(KestravConfigTest, AnEntryThatFindsNoMemoryIsNotMade) {
  const String name(50, L'n');
  for (std::uint32_t grants = 0;; ++grants) {
    bool added = false;
    const bool was_short =
        RanShort(grants, [&] { added = config_.AddClientToConfigClientList(name, true); });
    EXPECT_EQ(added, !was_short) << grants;
    EXPECT_EQ(EntryOf(name), added ? L"1" : L"none") << grants;
    if (added) break;
  }
}

TEST_F(KestravConfigTest, ListsTheClientsAndMakesTheirEntries) {
  std::vector<String> clients = {L"old"};
  ASSERT_TRUE(config_.AddClientToConfigClientList(L"GPS", true));
  EXPECT_TRUE(config_.InitClientConfigList(clients));
  EXPECT_THAT(clients, UnorderedElementsAre(L"Info Client", L"GPS", L"CAN"));
  EXPECT_EQ(EntryOf(L"GPS"), L"1");
  EXPECT_EQ(EntryOf(L"CAN"), L"0");
  EXPECT_EQ(EntryOf(L"Info Client"), L"0");
}

TEST_F(KestravConfigTest, AnEngineWithoutClientsLeavesTheListEmpty) {
  KestravImpl empty;
  KestravConfig config;
  ASSERT_TRUE(config.Init(&empty));
  std::vector<String> clients = {L"old"};
  EXPECT_FALSE(config.InitClientConfigList(clients));
  EXPECT_THAT(clients, IsEmpty());
  std::map<String, bool> selection = {{L"old", true}};
  EXPECT_FALSE(config.GetLoggingClientList(selection));
  EXPECT_FALSE(config.ReadClientLoggingSelection(selection));
  EXPECT_FALSE(config.WriteClientLoggingSelection());
  store_.values[L"Logging"] = L"true";
  EXPECT_TRUE(config.Read(store_));
  EXPECT_TRUE(config.GetLoggingStatus());
}

TEST_F(KestravConfigTest, ReadGivesEveryClientAnEntryAndItsControlString) {
  store_.values = {{L"GPS", L"1,mode=3"}, {L"Logging", L"yes"}, {L"Gone", L"1,x"}};
  EXPECT_TRUE(config_.Read(store_));
  EXPECT_TRUE(config_.GetLoggingStatus());
  EXPECT_EQ(EntryOf(L"GPS"), L"1,mode=3");
  EXPECT_EQ(EntryOf(L"CAN"), L"0");
  EXPECT_EQ(EntryOf(L"Info Client"), L"0");
  EXPECT_EQ(EntryOf(L"Gone"), L"none");
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"mode=3"));
  EXPECT_THAT(can_.Controls(), ElementsAre(L""));
  EXPECT_FALSE(engine_.IsSelectedForLogging(kGps));
}

TEST_F(KestravConfigTest, ReadWithABoolBehavesTheSame) {
  for (const bool any : {false, true}) {
    store_.values = {{L"GPS", any ? L"1,b" : L"1,a"}};
    EXPECT_TRUE(config_.Read(store_, any));
  }
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"a", L"b"));
}

TEST_F(KestravConfigTest, ASecondReadTakesWhatIsStoredNow) {
  store_.values = {{L"GPS", L"1,a"}, {L"CAN", L"1,c"}, {L"Logging", L"true"}};
  EXPECT_TRUE(config_.Read(store_));
  const std::size_t entries = config_.Entries().size();
  RecordingClient late(L"LATE");
  ASSERT_TRUE(engine_.RegisterClient(&late));
  store_.values = {{L"GPS", L"0,b"}, {L"LATE", L"1,late"}};
  EXPECT_TRUE(config_.Read(store_));
  EXPECT_EQ(EntryOf(L"GPS"), L"0,b");
  EXPECT_EQ(EntryOf(L"CAN"), L"1,c");  // stored no more, and has no default
  EXPECT_FALSE(config_.GetLoggingStatus());
  EXPECT_EQ(config_.Entries().size(), entries + 1);
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"a", L"b"));
  EXPECT_THAT(can_.Controls(), ElementsAre(L"c", L"c"));
  EXPECT_THAT(late.Controls(), ElementsAre(L"late"));
  EXPECT_TRUE(engine_.UnRegisterClient(&late));
}

TEST_F(KestravConfigTest, ReadReportsAValueThatIsTooLongAndReadsTheOthers) {
  store_.values = {{L"GPS", L"1," + String(255, L'x')}, {L"CAN", L"1," + String(254, L'x')}};
  const String too_long = store_.values[L"GPS"];
  EXPECT_FALSE(config_.Read(store_));
  EXPECT_THAT(store_.refused, ElementsAre(L"GPS"));
  EXPECT_EQ(EntryOf(L"GPS"), L"0");
  EXPECT_EQ(EntryOf(L"CAN"), store_.values[L"CAN"]);
  EXPECT_THAT(gps_.Controls(), ElementsAre(L""));
  EXPECT_THAT(can_.Controls(), ElementsAre(String(254, L'x')));
  EXPECT_TRUE(config_.Write(store_));
  EXPECT_EQ(store_.values[L"GPS"], too_long);
}

TEST_F(KestravConfigTest, ReadIgnoresThatAControlStringCannotBeProcessed) {
  store_.values = {{L"GPS", L"on,mode=3"}};
  EXPECT_TRUE(config_.Read(store_));
  EXPECT_EQ(EntryOf(L"GPS"), L"on,mode=3");
  EXPECT_THAT(gps_.Controls(), IsEmpty());
  EXPECT_THAT(store_.refused, ElementsAre(L"GPS"));  // for a person to mend
}

TEST_F(KestravConfigTest, AClientNamedLikeASwitchGetsNoEntryAndHarmsNone) {
  RecordingClient logging(L"Logging");
  ASSERT_TRUE(engine_.RegisterClient(&logging));
  store_.values = {{L"Logging", L"true"}, {L"GPS", L"1,g"}};
  EXPECT_TRUE(config_.Read(store_));
  EXPECT_TRUE(config_.GetLoggingStatus());
  EXPECT_EQ(config_.FindEntry<Config::StringEntry>(L"Logging"), nullptr);
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"g"));
  EXPECT_TRUE(config_.Write(store_));
  EXPECT_EQ(store_.values[L"Logging"], L"true");
  EXPECT_TRUE(engine_.UnRegisterClient(&logging));
}

TEST_F(KestravConfigTest, ProcessesNoEmptyList) {
  EXPECT_FALSE(config_.ProcessClientControlStrings({}));
}

TEST_F(KestravConfigTest, SendsZeroToAClientWithoutAnEntry) {
  EXPECT_TRUE(config_.ProcessClientControlStrings({L"GPS"}));
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"0"));
  EXPECT_EQ(EntryOf(L"GPS"), L"0");
  EXPECT_THAT(can_.Controls(), IsEmpty());
  // The control string that was sent is the one that is written back.
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  EXPECT_TRUE(config_.WriteClientLoggingSelection());
  EXPECT_EQ(EntryOf(L"GPS"), L"1,0");
}

TEST_F(KestravConfigTest, StopsAtTheFirstEntryThatCannotBeParsed) {
  ASSERT_TRUE(config_.AddClientToConfigClientList(L"CAN", true));
  ASSERT_TRUE(config_.FindEntry<Config::StringEntry>(L"CAN")->SetValue(L"256,c"));
  EXPECT_FALSE(config_.ProcessClientControlStrings({L"GPS", L"CAN", L"Info Client"}));
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"0"));
  EXPECT_THAT(can_.Controls(), IsEmpty());
  EXPECT_EQ(EntryOf(L"Info Client"), L"none");
}

TEST_F(KestravConfigTest, StopsAtAClientForWhichNoEntryCanBeMade) {
  EXPECT_FALSE(config_.ProcessClientControlStrings({L"Logging", L"GPS"}));
  EXPECT_THAT(gps_.Controls(), IsEmpty());
}

TEST_F(KestravConfigTest, GoesOnWhenNobodyTakesTheControlString) {
  gps_.takes_controls = false;
  EXPECT_TRUE(config_.ProcessClientControlStrings({L"Nobody", L"GPS", L"CAN"}));
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"0"));
  EXPECT_THAT(can_.Controls(), ElementsAre(L"0"));
}

TEST_F(KestravConfigTest, GoesOnWhenAClientThrows) {
  ThrowingClient client;
  ASSERT_TRUE(engine_.RegisterClient(&client));
  store_.values = {{L"AAA", L"1,boom"}, {L"GPS", L"1,g"}};
  EXPECT_TRUE(config_.Read(store_));
  EXPECT_TRUE(config_.ProcessClientControlStrings({L"AAA", L"GPS"}));
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"g", L"g"));
  EXPECT_TRUE(engine_.UnRegisterClient(&client));
}

TEST_F(KestravConfigTest, ListsTheClientsThatMayBeChosen) {
  can_.selectable_for_logging = false;
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  std::map<String, bool> clients;
  EXPECT_TRUE(config_.GetLoggingClientList(clients));
  EXPECT_THAT(clients, ElementsAre(Pair(L"GPS", true)));
}

TEST_F(KestravConfigTest, ReadsTheSelectionFromTheEntries) {
  ASSERT_TRUE(config_.AddClientToConfigClientList(L"CAN", true));
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  std::map<String, bool> selection = {{L"old", true}};
  EXPECT_TRUE(config_.ReadClientLoggingSelection(selection));
  EXPECT_THAT(selection, ElementsAre(Pair(L"CAN", true), Pair(L"GPS", false)));
  EXPECT_EQ(EntryOf(L"GPS"), L"0");
  EXPECT_TRUE(engine_.IsSelectedForLogging(kGps));  // the recorder's selection stays
}

TEST_F(KestravConfigTest, ReadingTheSelectionStopsAtTheFirstFailure) {
  store_.values = {{L"CAN", L"bad"}};
  EXPECT_TRUE(config_.Read(store_));
  KestravConfig fresh;
  ASSERT_TRUE(fresh.Init(&engine_));
  ASSERT_TRUE(fresh.AddClientToConfigClientList(L"CAN", false));
  ASSERT_TRUE(fresh.FindEntry<Config::StringEntry>(L"CAN")->SetValue(L"bad"));
  std::map<String, bool> selection;
  EXPECT_FALSE(fresh.ReadClientLoggingSelection(selection));
  EXPECT_EQ(EntryOf(L"GPS", fresh), L"none");
}

TEST_F(KestravConfigTest, WritesTheSelectionWithTheControlStrings) {
  store_.values = {{L"GPS", L"0,mode=3"}, {L"CAN", L"1"}};
  ASSERT_TRUE(config_.Read(store_));
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  EXPECT_TRUE(config_.WriteClientLoggingSelection());
  EXPECT_EQ(EntryOf(L"GPS"), L"1,mode=3");
  EXPECT_EQ(EntryOf(L"CAN"), L"0");
  ASSERT_TRUE(engine_.ResetLoggingSelection());
  EXPECT_TRUE(config_.WriteClientLoggingSelection());
  EXPECT_EQ(EntryOf(L"GPS"), L"0,mode=3");
}

TEST_F(KestravConfigTest, WritingTheSelectionMakesTheEntriesThatAreMissing) {
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  EXPECT_TRUE(config_.WriteClientLoggingSelection());
  EXPECT_EQ(EntryOf(L"GPS"), L"1");
  EXPECT_EQ(EntryOf(L"CAN"), L"0");
}

TEST_F(KestravConfigTest, WritingTheSelectionStopsAtTheFirstFailure) {
  RecordingClient logging(L"Logging");
  ASSERT_TRUE(engine_.RegisterClient(&logging));
  EXPECT_FALSE(config_.WriteClientLoggingSelection());  // in the order CAN, GPS, Logging
  EXPECT_EQ(EntryOf(L"CAN"), L"0");
  EXPECT_EQ(EntryOf(L"GPS"), L"0");
  EXPECT_TRUE(engine_.UnRegisterClient(&logging));
}

TEST_F(KestravConfigTest, TheSelectionAndTheControlStringsSurviveARestart) {
  store_.values = {{L"GPS", L"0,mode=3"}};
  ASSERT_TRUE(config_.Read(store_));
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  ASSERT_TRUE(config_.SetLoggingStatus(true));
  ASSERT_TRUE(config_.WriteClientLoggingSelection());
  ASSERT_TRUE(config_.Write(store_));
  KestravConfig next;
  ASSERT_TRUE(next.Init(&engine_));
  EXPECT_TRUE(next.Read(store_));
  std::map<String, bool> selection;
  EXPECT_TRUE(next.ReadClientLoggingSelection(selection));
  EXPECT_THAT(selection, ElementsAre(Pair(L"CAN", false), Pair(L"GPS", true)));
  EXPECT_TRUE(next.GetLoggingStatus());
  EXPECT_THAT(gps_.Controls(), ElementsAre(L"mode=3", L"mode=3"));
}

// Wherever memory runs out: the answer is false or all is done, and nothing is thrown.
TEST_F(KestravConfigTest, ShortMemoryIsAFailureOfEveryOperation) {
  ASSERT_TRUE(engine_.SelectForLogging(L"GPS"));
  const String control(100, L'x');
  for (std::uint32_t grants = 0;; ++grants) {
    KestravConfig config;
    ASSERT_TRUE(config.Init(&engine_));
    bool done = false;
    const bool was_short = RanShort(grants, [&] {
      std::map<String, bool> selection;
      done = config.WriteClientLoggingSelection() && config.ReadClientLoggingSelection(selection);
    });
    ASSERT_EQ(done, !was_short) << grants;
    if (done) break;
  }
  store_.values = {{L"GPS", L"1," + control}};
  for (std::uint32_t grants = 0;; ++grants) {
    KestravConfig config;
    ASSERT_TRUE(config.Init(&engine_));
    bool read = false;
    if (!RanShort(grants, [&] { read = config.Read(store_); })) {
      EXPECT_TRUE(read);
      break;
    }
    EXPECT_TRUE(EntryOf(L"GPS", config) != L"0" || !read) << grants;
  }
}

}  // namespace
}  // namespace kestrav::test
