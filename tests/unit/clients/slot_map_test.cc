#include "kestrav/clients/slot_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/short_memory.h"

namespace kestrav {
namespace {

using test::RanShort;
using testing::ElementsAre;

using Map = SlotMap<std::string, std::string>;

std::vector<std::string> Keys(const Map& map) {
  std::vector<std::string> keys;
  map.ForEach([&](const std::string& key, const std::string&) {
    keys.push_back(key);
    return true;
  });
  return keys;
}

TEST(SlotMap, StartsEmpty) {
  const Map map;
  EXPECT_EQ(map.Size(), 0U);
  EXPECT_EQ(map.Find("a"), nullptr);
  EXPECT_THAT(Keys(map), ElementsAre());
}

TEST(SlotMap, KeepsTheFirstValueOfAKey) {
  Map map;
  EXPECT_TRUE(map.Insert("a", "first"));
  EXPECT_FALSE(map.Insert("a", "second"));
  EXPECT_EQ(*map.Find("a"), "first");
  EXPECT_EQ(map.Size(), 1U);
}

TEST(SlotMap, GivesAccessToTheStoredValue) {
  Map map;
  ASSERT_TRUE(map.Insert("a", "1"));
  *map.Find("a") = "2";
  EXPECT_EQ(*std::as_const(map).Find("a"), "2");
}

TEST(SlotMap, IsWalkedInTheOrderOfInsertion) {
  Map map;
  std::vector<std::string> keys;
  for (int i = 0; i < 1000; ++i) {
    keys.push_back(std::to_string(i * 7919 % 1000));
    ASSERT_TRUE(map.Insert(keys.back(), "value of " + keys.back()));
  }
  EXPECT_EQ(Keys(map), keys);
  for (const std::string& key : keys) EXPECT_EQ(*map.Find(key), "value of " + key);
}

TEST(SlotMap, ANewEntryTakesTheSlotErasedLast) {
  Map map;
  for (const char* key : {"a", "b", "c", "d"}) ASSERT_TRUE(map.Insert(key, ""));
  EXPECT_TRUE(map.Erase("a"));
  EXPECT_TRUE(map.Erase("c"));
  EXPECT_THAT(Keys(map), ElementsAre("b", "d"));
  ASSERT_TRUE(map.Insert("e", ""));
  EXPECT_THAT(Keys(map), ElementsAre("b", "e", "d"));
  ASSERT_TRUE(map.Insert("f", ""));
  EXPECT_THAT(Keys(map), ElementsAre("f", "b", "e", "d"));
  ASSERT_TRUE(map.Insert("g", ""));
  EXPECT_THAT(Keys(map), ElementsAre("f", "b", "e", "d", "g"));
}

TEST(SlotMap, ErasesNothingForAnUnknownKey) {
  Map map;
  ASSERT_TRUE(map.Insert("a", ""));
  EXPECT_FALSE(map.Erase("b"));
  EXPECT_TRUE(map.Erase("a"));
  EXPECT_FALSE(map.Erase("a"));
  EXPECT_EQ(map.Size(), 0U);
}

TEST(SlotMap, AWalkEndsWhenTheVisitorSaysSo) {
  Map map;
  for (const char* key : {"a", "b", "c"}) ASSERT_TRUE(map.Insert(key, ""));
  std::vector<std::string> seen;
  EXPECT_FALSE(map.ForEach([&](const std::string& key, const std::string&) {
    seen.push_back(key);
    return key != "b";
  }));
  EXPECT_THAT(seen, ElementsAre("a", "b"));
  EXPECT_TRUE(map.ForEach([](const std::string&, const std::string&) { return true; }));
}

TEST(SlotMap, StartsOverAfterAClear) {
  Map map;
  for (const char* key : {"a", "b"}) ASSERT_TRUE(map.Insert(key, ""));
  ASSERT_TRUE(map.Erase("a"));
  map.Clear();
  EXPECT_EQ(map.Size(), 0U);
  EXPECT_EQ(map.Find("b"), nullptr);
  for (const char* key : {"c", "d"}) ASSERT_TRUE(map.Insert(key, ""));
  EXPECT_THAT(Keys(map), ElementsAre("c", "d"));
}

const std::string kLongKey = "a key that needs memory of its own";
const std::string kLongValue = "a value that needs memory of its own";

bool ContainsKey(const Map& map, const std::string& key) { return map.Find(key) != nullptr; }

// Whether an insertion with so little memory ran short; it must then have changed nothing.
bool InsertionRanShort(Map& map, std::uint32_t grants) {
  const std::vector<std::string> before = Keys(map);
  std::string value = kLongValue;
  bool inserted = false;
  const bool ran_short =
      RanShort(grants, [&] { inserted = map.Insert(kLongKey, std::move(value)); });
  EXPECT_EQ(inserted, !ran_short);
  if (!ran_short) return false;
  EXPECT_EQ(map.Size(), before.size()) << "with " << grants << " allocations";
  EXPECT_FALSE(ContainsKey(map, kLongKey)) << "with " << grants << " allocations";
  EXPECT_EQ(Keys(map), before);
  return true;
}

TEST(SlotMap, AnInsertionShortOfMemoryChangesNothing) {
  for (std::uint32_t grants = 0;; ++grants) {
    Map map;
    ASSERT_TRUE(map.Insert("a", ""));
    if (!InsertionRanShort(map, grants)) break;
    ASSERT_LT(grants, 100U);
  }
}

TEST(SlotMap, AnInsertionIntoAnErasedSlotShortOfMemoryChangesNothing) {
  for (std::uint32_t grants = 0;; ++grants) {
    Map map;
    for (const char* key : {"a", "b", "c"}) ASSERT_TRUE(map.Insert(key, ""));
    ASSERT_TRUE(map.Erase("b"));
    if (!InsertionRanShort(map, grants)) break;
    ASSERT_LT(grants, 100U);
  }
}

TEST(SlotMap, ErasingNeedsNoMemory) {
  Map map;
  for (const char* key : {"a", "b", "c"}) ASSERT_TRUE(map.Insert(key, ""));
  const std::string key = "b";
  bool erased = false;
  EXPECT_FALSE(RanShort(0, [&] { erased = map.Erase(key); }));
  EXPECT_TRUE(erased);
}

}  // namespace
}  // namespace kestrav
