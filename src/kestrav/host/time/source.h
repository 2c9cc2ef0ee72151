#ifndef KESTRAV_HOST_TIME_SOURCE_H_
#define KESTRAV_HOST_TIME_SOURCE_H_

#include <condition_variable>
#include <cstdint>

#include "kestrav/host/api.h"
#include "kestrav/host/thread/lock.h"

namespace kestrav::Time {

// A wait of this many milliseconds has no limit.
inline constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

// Ticks a second of the clock that `ISource::ReadMs` reads.
inline constexpr std::uint32_t kClocksPerSecond = 1000;

// One blocked thread. Any thread may notify it; a notification before the block is not lost.
class KESTRAV_API Waiter {
 public:
  void Notify();
  bool IsNotified();
  // Blocks until `Notify`, at most `timeout_ms` of real time. false: the time is up.
  bool Block(std::uint32_t timeout_ms);

 private:
  Thread::Mutex mutex_;
  std::condition_variable changed_;
  bool notified_ GUARDED_BY(mutex_) = false;
};

// The one source of time: the millisecond clock, every timed wait and, through the waits, every
// timer. All operations may be called from any thread.
class KESTRAV_API ISource {
 public:
  virtual ~ISource() = default;

  // The millisecond clock: never goes back, wraps at 32 bits. false: it cannot be read.
  [[nodiscard]] virtual bool ReadMs(std::uint32_t& now_ms) = 0;

  // Wall-clock seconds since 1970-01-01 UTC. false: they cannot be read.
  [[nodiscard]] virtual bool ReadWallClockScnds(std::int64_t& now_scnds) = 0;

  // Blocks the calling thread until `waiter` is notified, at most `timeout_ms`. false: time is up.
  virtual bool Wait(Waiter& waiter, std::uint32_t timeout_ms) = 0;

  // A worker thread is about to start (said by its starter), runs now (said by itself, with what
  // the starter was given), has ended (by itself) or did not start after all (by its starter). A
  // source that must know when all threads rest counts them.
  virtual std::uint64_t OnThreadStarting() { return 0; }
  virtual void OnThreadRunning(std::uint64_t /*number*/) {}
  virtual void OnThreadEnded() {}
};

// The source in use: the real one until another is set.
KESTRAV_API ISource& Source();

// Puts `source` in use and returns the one before; null puts the real one back. The source is not
// owned; it must be set before the threads that use it start, and outlive them.
KESTRAV_API ISource* SetSource(ISource* source);

}  // namespace kestrav::Time

#endif  // KESTRAV_HOST_TIME_SOURCE_H_
