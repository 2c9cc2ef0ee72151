#ifndef KESTRAV_HOST_THREAD_EVENT_H_
#define KESTRAV_HOST_THREAD_EVENT_H_

#include <atomic>
#include <cstdint>
#include <span>

#include "kestrav/host/api.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/host/time/source.h"

namespace kestrav::Thread {

class ManualResetEvent;

inline constexpr int kWaitTimedOut = -1;
inline constexpr int kWaitFailed = -3;
inline constexpr std::size_t kMaxWaitEvents = 8;

// Waits until one of `events` is signalled, at most `timeout_ms` (Time::kNoLimit: without limit),
// and returns the position of the first signalled one in the order given, kWaitTimedOut, or
// kWaitFailed for no event, more than kMaxWaitEvents, or a null one. An event is not reset by the
// wait.
KESTRAV_API int WaitForFirst(std::span<ManualResetEvent* const> events, std::uint32_t timeout_ms);

// Stays signalled until it is reset. Any thread may call any operation.
class KESTRAV_API ManualResetEvent {
 public:
  // One atomic load when the event is signalled already.
  void Set();
  void Reset() { signalled_.store(false); }
  bool IsSet() const { return signalled_.load(); }

 private:
  friend int WaitForFirst(std::span<ManualResetEvent* const>, std::uint32_t);

  // Stands on the stack of the waiting thread, so a wait allocates nothing.
  struct Link {
    Time::Waiter* waiter = nullptr;
    Link* next = nullptr;
  };

  void Add(Link& link);
  void Remove(Link& link);

  std::atomic<bool> signalled_{false};
  Mutex mutex_;
  Link* waiting_ GUARDED_BY(mutex_) = nullptr;
};

}  // namespace kestrav::Thread

#endif  // KESTRAV_HOST_THREAD_EVENT_H_
