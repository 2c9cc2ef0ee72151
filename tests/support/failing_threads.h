#ifndef KESTRAV_TESTS_SUPPORT_FAILING_THREADS_H_
#define KESTRAV_TESTS_SUPPORT_FAILING_THREADS_H_

#include <cstdint>

#include "support/fault_point.h"

namespace kestrav::test {

// For its life start `at` of a thread of the process fails for want of resources, whoever asks for
// it, or that one and all later ones. One at a time.
class FailingThreads {
 public:
  FailingThreads(std::uint32_t at, Extent extent);
  ~FailingThreads();
  FailingThreads(const FailingThreads&) = delete;
  FailingThreads& operator=(const FailingThreads&) = delete;

  // How many starts failed so far.
  std::uint32_t Failed() const;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_FAILING_THREADS_H_
