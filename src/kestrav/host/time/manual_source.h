#ifndef KESTRAV_HOST_TIME_MANUAL_SOURCE_H_
#define KESTRAV_HOST_TIME_MANUAL_SOURCE_H_

#include <condition_variable>
#include <cstdint>

#include "kestrav/host/time/source.h"

namespace kestrav::Time {

// A clock that moves only when told, for tests and for old traces. A worker thread rests while it
// waits and nothing has notified it. Time passes only while all worker threads rest, so what a
// thread does is finished before the clock moves on, and a run is the same every time.
//
// `Settle`, `Advance`, `AdvanceToNextDue` and `MoveTo` are for one driving thread that is no worker
// thread and holds no lock that a worker thread wants.
class KESTRAV_API ManualSource final : public ISource {
 public:
  explicit ManualSource(std::uint32_t start_ms = 1000, std::int64_t wall_scnds = 1'000'000'000);
  // Waits until all worker threads that started under this source have ended.
  ~ManualSource() override;
  ManualSource(const ManualSource&) = delete;
  ManualSource& operator=(const ManualSource&) = delete;

  // Returns when all worker threads rest.
  void Settle();

  // Settles, then lets `ms` pass: the waits and timers that come due are woken one after the other
  // in the order of their times, equal times in the order in which the waits began, and those that
  // began together in the order in which their threads started; each at its own time and each
  // worker thread back at rest before the next. Settled on return.
  void Advance(std::uint32_t ms);

  // Settles, then advances to the next time at which a wait comes due. false: none will.
  bool AdvanceToNextDue();

  // Sets the clock to `at_ms` milliseconds after the start; a time in the past is ignored. Like
  // `Advance` when a wait comes due on the way, otherwise without waiting for anybody: for a driver
  // that feeds threads which do not look at the clock.
  void MoveTo(std::uint64_t at_ms);

  // Milliseconds since the start.
  std::uint64_t ElapsedMs();

  // Readings of the millisecond clock fail from the next but `after` on, until `Recover`.
  void FailMs(std::uint32_t after = 0);
  void FailWallClock();
  void Recover();

  [[nodiscard]] bool ReadMs(std::uint32_t& now_ms) override;
  [[nodiscard]] bool ReadWallClockScnds(std::int64_t& now_scnds) override;
  bool Wait(Waiter& waiter, std::uint32_t timeout_ms) override;
  std::uint64_t OnThreadStarting() override;
  void OnThreadRunning(std::uint64_t number) override;
  void OnThreadEnded() override;

 private:
  // Stands on the stack of the waiting thread, so a wait allocates nothing.
  struct Pending {
    Waiter* waiter;
    std::uint64_t worker;  // 0: no worker thread
    bool limited;
    std::uint64_t began_ms;
    std::uint64_t due_ms;
    bool expired;
    Pending* next;

    bool IsBefore(const Pending& other) const;
  };

  void Add(Pending& pending) REQUIRES(mutex_);
  void Remove(Pending& pending) REQUIRES(mutex_);
  bool AllRest() REQUIRES(mutex_);
  void WaitUntilAllRest() REQUIRES(mutex_);
  Pending* NextDue(std::uint64_t until_ms) REQUIRES(mutex_);
  void Pass(std::uint64_t until_ms) REQUIRES(mutex_);

  const std::uint32_t start_ms_;
  const std::int64_t wall_scnds_;
  Thread::Mutex mutex_;  // taken before a waiter's
  std::condition_variable changed_;
  std::uint64_t elapsed_ms_ GUARDED_BY(mutex_) = 0;
  std::uint32_t workers_ GUARDED_BY(mutex_) = 0;
  std::uint64_t started_workers_ GUARDED_BY(mutex_) = 0;
  Pending* pending_ GUARDED_BY(mutex_) = nullptr;
  bool failing_ms_ GUARDED_BY(mutex_) = false;
  std::uint32_t readings_left_ GUARDED_BY(mutex_) = 0;
  bool failing_wall_ GUARDED_BY(mutex_) = false;
};

}  // namespace kestrav::Time

#endif  // KESTRAV_HOST_TIME_MANUAL_SOURCE_H_
