#include "kestrav/host/config/config_group.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "support/short_memory.h"

namespace kestrav::Config {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// Keeps values in a map; can refuse, fail and throw at one of them.
class FakeStore : public IConfigReader, public IConfigWriter {
 public:
  Found ReadValue(const String& group, const String& entry, String& value) const override {
    EXPECT_EQ(group, L"Group");
    if (entry == throws_at) throw std::bad_alloc();
    if (entry == fails_at) return Found::kUnreadable;
    const auto found = values.find(entry);
    if (found == values.end()) return Found::kNothing;
    value = found->second;
    return Found::kValue;
  }
  void ReportRefused(const String& group, const String& entry) const override {
    EXPECT_EQ(group, L"Group");
    refused.insert(entry);
  }
  bool WriteValue(const String& group, const String& description, const String& entry,
                  const String& value) override {
    EXPECT_EQ(group, L"Group");
    EXPECT_EQ(description, L"For tests");
    if (entry == throws_at) throw std::bad_alloc();
    if (entry == fails_at) return false;
    values[entry] = value;
    return true;
  }

  std::map<String, String> values;
  mutable std::set<String> refused;
  String fails_at = L"?";
  String throws_at = L"?";
};

class ConfigGroup : public ::testing::Test {
 protected:
  ConfigGroup() {
    EXPECT_TRUE(group_.AddEntry(first_));
    EXPECT_TRUE(group_.AddEntry(switch_));
    EXPECT_TRUE(group_.AddEntry(last_));
  }

  FakeStore store_;
  ConfigGroupBase group_{L"Group", L"For tests"};
  SmartPtr::Ptr<StringEntry> first_ = std::make_shared<StringEntry>(L"First", L"", 4, L"one");
  SmartPtr::Ptr<BoolEntry> switch_ =
      std::make_shared<BoolEntry>(L"Switch", L"KEY", true, false, true, true);
  SmartPtr::Ptr<StringEntry> last_ = std::make_shared<StringEntry>(L"Last", L"", 4, L"two");
};

TEST_F(ConfigGroup, HasANameADescriptionAndItsEntriesInOrder) {
  EXPECT_EQ(group_.GetName(), L"Group");
  EXPECT_EQ(group_.GetDescription(), L"For tests");
  EXPECT_THAT(group_.Entries(), ElementsAre(first_, switch_, last_));
}

TEST_F(ConfigGroup, FindsEntriesByNameAndKind) {
  EXPECT_EQ(group_.FindEntry(L"Switch"), switch_);
  EXPECT_EQ(group_.FindEntry<BoolEntry>(L"Switch"), switch_);
  EXPECT_EQ(group_.FindEntry<StringEntry>(L"Switch"), nullptr);
  EXPECT_EQ(group_.FindEntry(L"KEY"), nullptr);
  EXPECT_EQ(group_.FindEntry(L"switch"), nullptr);
}

TEST_F(ConfigGroup, RefusesAnEmptyEntryAndASecondOneOfAName) {
  const auto named = [](const wchar_t* name, const wchar_t* key) {
    return std::make_shared<StringEntry>(name, key, 4, L"");
  };
  EXPECT_FALSE(group_.AddEntry(nullptr));
  EXPECT_FALSE(group_.AddEntry(named(L"First", L"")));
  EXPECT_FALSE(group_.AddEntry(named(L"First", L"OTHER")));
  EXPECT_FALSE(group_.AddEntry(named(L"KEY", L"")));
  EXPECT_FALSE(group_.AddEntry(named(L"Other", L"KEY")));
  EXPECT_EQ(group_.Entries().size(), 3U);
}

TEST_F(ConfigGroup, TakesNoEntryWhenMemoryIsShort) {
  const auto entry = std::make_shared<StringEntry>(L"More", L"", 4, L"");
  bool added = true;
  ConfigGroupBase group(L"Group", L"");
  {
    const test::ShortMemory memory;
    added = group.AddEntry(entry);
  }
  EXPECT_FALSE(added);
  EXPECT_THAT(group.Entries(), IsEmpty());
}

TEST_F(ConfigGroup, ReadsWhatIsStored) {
  store_.values = {{L"First", L"1"}, {L"KEY", L"false"}, {L"Last", L"2"}, {L"Switch", L"true"}};
  EXPECT_TRUE(group_.Read(store_));
  EXPECT_EQ(first_->Value(), L"1");
  EXPECT_FALSE(switch_->Value());
  EXPECT_EQ(last_->Value(), L"2");
  EXPECT_THAT(store_.refused, IsEmpty());
}

TEST_F(ConfigGroup, GivesAnEntryThatIsStoredNowhereItsDefault) {
  ASSERT_TRUE(switch_->SetValue(false));
  EXPECT_TRUE(group_.Read(store_));
  EXPECT_TRUE(switch_->Value());
  EXPECT_EQ(first_->Value(), L"one");
}

TEST_F(ConfigGroup, ReportsAValueThatIsRefusedAndReadsTheOthers) {
  store_.values = {{L"First", L"too long"}, {L"KEY", L"maybe"}, {L"Last", L"2"}};
  ASSERT_TRUE(switch_->SetValue(false));
  EXPECT_FALSE(group_.Read(store_));
  EXPECT_THAT(store_.refused, ElementsAre(L"First", L"KEY"));
  EXPECT_EQ(first_->Value(), L"one");
  EXPECT_FALSE(switch_->Value());
  EXPECT_EQ(last_->Value(), L"2");
}

TEST_F(ConfigGroup, DoesNotWriteOverAValueThatItCouldNotTake) {
  store_.values = {{L"First", L"too long"}, {L"Last", L"2"}};
  store_.fails_at = L"KEY";
  EXPECT_FALSE(group_.Read(store_));
  EXPECT_TRUE(group_.Write(store_));
  EXPECT_THAT(store_.values, ElementsAre(Pair(L"First", L"too long"), Pair(L"Last", L"2")));
  ASSERT_TRUE(first_->SetValue(L"new"));
  EXPECT_TRUE(group_.Write(store_));
  EXPECT_EQ(store_.values[L"First"], L"new");
}

TEST_F(ConfigGroup, DoesNotWriteOverAValueThatFoundNoMemory) {
  store_.values = {{L"First", L"1"}, {L"KEY", L"false"}, {L"Last", L"2"}};
  store_.throws_at = L"First";
  EXPECT_FALSE(group_.Read(store_));
  EXPECT_EQ(last_->Value(), L"2");
  store_.throws_at.clear();
  EXPECT_TRUE(group_.Write(store_));
  EXPECT_EQ(store_.values[L"First"], L"1");
}

TEST_F(ConfigGroup, WritesEveryEntryUnderItsStoredName) {
  EXPECT_TRUE(group_.Write(store_));
  EXPECT_THAT(store_.values,
              ElementsAre(Pair(L"First", L"one"), Pair(L"KEY", L"true"), Pair(L"Last", L"two")));
}

TEST_F(ConfigGroup, WritesTheOthersWhenOneFails) {
  for (String FakeStore::*way : {&FakeStore::fails_at, &FakeStore::throws_at}) {
    store_.values.clear();
    store_.*way = L"KEY";
    EXPECT_FALSE(group_.Write(store_));
    EXPECT_THAT(store_.values, ElementsAre(Pair(L"First", L"one"), Pair(L"Last", L"two")));
    store_.*way = L"?";
  }
}

}  // namespace
}  // namespace kestrav::Config
