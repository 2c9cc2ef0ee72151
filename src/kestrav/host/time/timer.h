#ifndef KESTRAV_HOST_TIME_TIMER_H_
#define KESTRAV_HOST_TIME_TIMER_H_

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/lock.h"

namespace kestrav::Time {

struct TimerEntry;

// Periodic calls on the timer thread, which all timers share and which runs while there is one.
// A callback must not block for long and must not throw.
class KESTRAV_API Timer {
 public:
  Timer();
  ~Timer() { KillAll(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // For whoever looks at timers from outside. false: the name is empty or memory is short.
  [[nodiscard]] bool SetName(std::wstring_view name);

  // Calls `callback` every `period_us` microseconds (whole milliseconds, at least one), the first
  // time one period from now. A call that comes late does not shift the later ones; calls that were
  // missed are left out. false: no callback, or no memory, clock or thread to be had.
  [[nodiscard]] bool SetPeriodic(std::uint64_t period_us, std::function<void()> callback);

  // Ends all calls set here without waiting: one that is due already may still run on the timer
  // thread. For callers that hold a lock that the callback wants.
  void Cancel();

  // Ends all calls set here. A callback that is running on another thread is waited for, so the
  // caller must hold no lock that the callback wants; nothing runs after the return.
  void KillAll();

 private:
  Thread::Mutex mutex_;
  String name_ GUARDED_BY(mutex_);
  std::vector<SmartPtr::Ptr<TimerEntry>> entries_ GUARDED_BY(mutex_);
};

}  // namespace kestrav::Time

#endif  // KESTRAV_HOST_TIME_TIMER_H_
