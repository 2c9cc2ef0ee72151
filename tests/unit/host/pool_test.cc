#include "kestrav/host/memory/pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "kestrav/host/sanitizer.h"
#include "support/short_memory.h"

namespace kestrav::Memory {
namespace {

using test::RanShort;

std::vector<void*> TakeMany(std::size_t count) {
  std::vector<void*> blocks(count);
  for (void*& block : blocks) {
    block = BlockPool::Take();
    std::memset(block, 0x5A, BlockPool::kBlockBytes);
  }
  return blocks;
}

void GiveAll(const std::vector<void*>& blocks) {
  for (void* const block : blocks) BlockPool::Give(block);
}

TEST(BlockPool, HandsOutEachBlockOnce) {
  std::vector<void*> blocks = TakeMany(1000);
  std::sort(blocks.begin(), blocks.end());
  EXPECT_EQ(std::adjacent_find(blocks.begin(), blocks.end()), blocks.end());
  for (std::size_t i = 1; i < blocks.size(); ++i) {
    EXPECT_GE(static_cast<char*>(blocks[i]) - static_cast<char*>(blocks[i - 1]),
              static_cast<std::ptrdiff_t>(BlockPool::kBlockBytes));
  }
  GiveAll(blocks);
}

#ifndef KESTRAV_ADDRESS_SANITIZER  // under which nothing is kept

TEST(BlockPool, NeedsNoMemoryForWhatWasGivenBack) {
  GiveAll(TakeMany(300));
  std::vector<void*> blocks(200);
  EXPECT_FALSE(RanShort(0, [&] {
    for (void*& block : blocks) block = BlockPool::Take();
  }));
  EXPECT_EQ(std::count(blocks.begin(), blocks.end(), nullptr), 0);
  GiveAll(blocks);
}

TEST(BlockPool, TakesWhatAnotherThreadGaveBack) {
  const std::vector<void*> blocks = TakeMany(1000);
  std::thread(GiveAll, blocks).join();
  std::size_t same = 0;
  const std::vector<void*> again = TakeMany(1000);
  for (void* const block : again) same += std::count(blocks.begin(), blocks.end(), block) > 0;
  EXPECT_GE(same, 700U);  // what was left of a batch that this thread had begun comes first
  GiveAll(again);
}

#endif

TEST(BlockPool, MakesSharedObjectsOrNone) {
  const SmartPtr::Ptr<int> made = MakePooled<int>();
  ASSERT_TRUE(made);
  EXPECT_EQ(*made, 0);
  std::vector<SmartPtr::Ptr<int>> kept;
  kept.reserve(100'000);
  bool refused = false;
  EXPECT_TRUE(RanShort(0, [&] {
    while (!refused && kept.size() < kept.capacity()) {
      kept.push_back(MakePooled<int>());
      refused = kept.back() == nullptr;
    }
  }));
  EXPECT_TRUE(refused);
}

}  // namespace
}  // namespace kestrav::Memory
