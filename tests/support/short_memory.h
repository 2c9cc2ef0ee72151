#ifndef KESTRAV_TESTS_SUPPORT_SHORT_MEMORY_H_
#define KESTRAV_TESTS_SUPPORT_SHORT_MEMORY_H_

#include <cstddef>
#include <cstdint>

#include "support/fault_point.h"

namespace kestrav::test {

// For its life the allocations of the thread that made it fail, all but the first `grants`. One at
// a time. Look at results after its life only: a failed expectation needs memory too.
class ShortMemory {
 public:
  explicit ShortMemory(std::uint32_t grants = 0);
  ~ShortMemory();
  ShortMemory(const ShortMemory&) = delete;
  ShortMemory& operator=(const ShortMemory&) = delete;

  // Whether an allocation failed.
  bool WasShort() const;
};

// For its life allocation `at` of the process fails, whichever thread asks for it, or that one and
// all later ones. One at a time.
class FailingMemory {
 public:
  FailingMemory(std::uint32_t at, Extent extent);
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  // How many allocations failed so far.
  std::uint32_t Failed() const;
};

// For its life what its thread allocates neither fails with `FailingMemory` nor counts there: the
// test's own.
class OwnMemory {
 public:
  OwnMemory();
  ~OwnMemory();
  OwnMemory(const OwnMemory&) = delete;
  OwnMemory& operator=(const OwnMemory&) = delete;
};

// What the process has allocated and not given back.
std::int64_t LiveAllocations();

// The largest allocation that its thread asks for during its life, granted or not.
class LargestAllocation {
 public:
  LargestAllocation();
  std::size_t Bytes() const;
};

// Runs `operation` with room for so many allocations; whether that was too little.
template <class Operation>
bool RanShort(std::uint32_t grants, Operation&& operation) {
  const ShortMemory memory(grants);
  operation();
  return memory.WasShort();
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_SHORT_MEMORY_H_
