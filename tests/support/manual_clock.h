#ifndef KESTRAV_TESTS_SUPPORT_MANUAL_CLOCK_H_
#define KESTRAV_TESTS_SUPPORT_MANUAL_CLOCK_H_

#include "kestrav/host/time/manual_source.h"

namespace kestrav::test {

// Puts a manual source of time in use for the life of a test. Declare it first: it waits at its end
// until every worker thread that started under it has ended.
class ManualClock {
 public:
  explicit ManualClock(std::uint32_t start_ms = 1000, std::int64_t wall_scnds = 1'000'000'000)
      : source_(start_ms, wall_scnds), before_(Time::SetSource(&source_)) {}
  ~ManualClock() { Time::SetSource(before_); }
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  Time::ManualSource* operator->() { return &source_; }

 private:
  Time::ManualSource source_;
  Time::ISource* before_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_MANUAL_CLOCK_H_
