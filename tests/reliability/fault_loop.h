#ifndef KESTRAV_TESTS_RELIABILITY_FAULT_LOOP_H_
#define KESTRAV_TESTS_RELIABILITY_FAULT_LOOP_H_

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "support/short_memory.h"

namespace kestrav::test {

// A fault point that no run reaches.
inline constexpr std::uint32_t kNoFault = 0xFFFFFFFF;

// Calls `run(at, extent)`, which tells whether anything failed, for every fault point there is,
// once and from then on. Returns how many there are; stops at the first that does not do as it
// should.
template <class Run>
std::uint32_t FailEach(const char* what, Run&& run) {
  std::uint32_t points = 0;
  for (const Extent extent : {Extent::kOnce, Extent::kFromThenOn}) {
    for (std::uint32_t at = 0;; ++at) {
      SCOPED_TRACE(what + std::string(" ") + std::to_string(at) + " " + Name(extent));
      const bool failed = run(at, extent);
      if (testing::Test::HasFailure()) return points;
      if (!failed) break;
      ++points;
    }
  }
  EXPECT_GT(points, 0u);
  return points;
}

// Waits until `count()` is no more than `limit`: a thread that has said that it ended may still be
// giving its own back. false: it is more, or less.
template <class Count>
bool FallsTo(std::int64_t limit, Count&& count) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (count() > limit && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  return count() == limit;
}

inline std::int64_t CountThreads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// The same for allocations; what a run allocated must be given back.
template <class Run>
std::uint32_t FailEachAllocation(Run&& run) {
  const std::int64_t threads_before = CountThreads();
  run(kNoFault, Extent::kOnce);  // what the process keeps for good is allocated here
  FallsTo(threads_before, CountThreads);
  EXPECT_LE(CountThreads(), threads_before);
  return FailEach("allocation", [&](std::uint32_t at, Extent extent) {
    const std::int64_t live_before = LiveAllocations();
    const bool failed = run(at, extent);
    if (testing::Test::HasFailure()) return failed;  // of which the framework keeps notes
    EXPECT_TRUE(FallsTo(live_before, LiveAllocations))
        << LiveAllocations() - live_before << " left";
    return failed;
  });
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_FAULT_LOOP_H_
