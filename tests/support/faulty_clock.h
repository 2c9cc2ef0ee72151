#ifndef KESTRAV_TESTS_SUPPORT_FAULTY_CLOCK_H_
#define KESTRAV_TESTS_SUPPORT_FAULTY_CLOCK_H_

#include <cstdint>

#include "kestrav/host/time/manual_source.h"
#include "support/fault_point.h"

namespace kestrav::test {

// A manual clock in use for the life of a test, whose readings, of milliseconds and of the wall
// clock together, fail as `readings` says. Declare it first, as `ManualClock`.
class FaultyClock final : public Time::ISource {
 public:
  explicit FaultyClock(std::uint32_t start_ms = 1000, std::int64_t wall_scnds = 1'000'000'000)
      : manual_(start_ms, wall_scnds), before_(Time::SetSource(this)) {}
  // The manual source, which goes last, waits for the threads.
  ~FaultyClock() override { Time::SetSource(before_); }
  FaultyClock(const FaultyClock&) = delete;
  FaultyClock& operator=(const FaultyClock&) = delete;

  Time::ManualSource* operator->() { return &manual_; }
  Time::ManualSource& operator*() { return manual_; }

  [[nodiscard]] bool ReadMs(std::uint32_t& now_ms) override {
    return !readings.Fails() && manual_.ReadMs(now_ms);
  }
  [[nodiscard]] bool ReadWallClockScnds(std::int64_t& now_scnds) override {
    return !readings.Fails() && manual_.ReadWallClockScnds(now_scnds);
  }
  bool Wait(Time::Waiter& waiter, std::uint32_t timeout_ms) override {
    return manual_.Wait(waiter, timeout_ms);
  }
  std::uint64_t OnThreadStarting() override { return manual_.OnThreadStarting(); }
  void OnThreadRunning(std::uint64_t number) override { manual_.OnThreadRunning(number); }
  void OnThreadEnded() override { manual_.OnThreadEnded(); }

  FaultPoint readings;

 private:
  Time::ManualSource manual_;
  Time::ISource* before_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_FAULTY_CLOCK_H_
