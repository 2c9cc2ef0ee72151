#include "kestrav/host/time/timer.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "kestrav/host/memory/try.h"
#include "kestrav/host/thread/worker_thread.h"
#include "kestrav/host/time/source.h"

namespace kestrav::Time {

struct TimerEntry {
  std::uint32_t period_ms = 0;
  std::uint32_t due_ms = 0;  // guarded by the service's lock
  std::function<void()> callback;
  Thread::CritSec
      running;  // held while the callback runs; recursive, so that it may kill its timer
  std::atomic<bool> dead{false};
};

namespace {

using EntryPtr = SmartPtr::Ptr<TimerEntry>;

// Time stamps wrap at 32 bits; the nearer half of the circle is the future.
std::int32_t Until(std::uint32_t due_ms, std::uint32_t now_ms) {
  return static_cast<std::int32_t>(due_ms - now_ms);
}

// The timer thread: it ends when the last entry is gone and is started again by the next one.
class TimerService final : public Thread::WorkerThread {
 public:
  TimerService() { Source(); }
  ~TimerService() override {
    Quit();
    WaitForCompletion();
  }

  bool Add(const EntryPtr& entry) {
    Thread::ScopedLock lock(mutex_);
    std::uint32_t now_ms = 0;
    if (!Source().ReadMs(now_ms)) return false;
    entry->due_ms = now_ms + entry->period_ms;
    if (!Memory::Append(entries_, entry)) return false;
    if (running_) {
      changed_.Set();
      return true;
    }
    running_ = SetName(L"Kestrav-Timer") && Start(owner_);
    if (!running_) entries_.pop_back();
    return running_;
  }

  void Remove(const EntryPtr& entry) {
    Thread::ScopedLock lock(mutex_);
    std::erase(entries_, entry);
    changed_.Set();
  }

 protected:
  void Main() override {
    Thread::ManualResetEvent* const events[] = {&QuitEvent(), &changed_};
    std::uint32_t wait_ms = 0;
    while (NextWait(wait_ms)) {
      const int event = Thread::WaitForFirst(events, wait_ms);
      if (event == 0 || event == Thread::kWaitFailed) return;
      changed_.Reset();
      while (const EntryPtr due = TakeDue()) Call(*due);
    }
  }

 private:
  // false: no entry is left and the thread ends.
  bool NextWait(std::uint32_t& wait_ms) {
    Thread::ScopedLock lock(mutex_);
    running_ = !entries_.empty();
    if (!running_) return false;
    const TimerEntry& next = Earliest();
    std::uint32_t now_ms = 0;
    const bool readable = Source().ReadMs(now_ms);
    const std::int32_t until_ms = readable ? Until(next.due_ms, now_ms) : 0;
    // Without a clock, one period is the best guess that does not spin.
    wait_ms = readable ? static_cast<std::uint32_t>(std::max(until_ms, 0)) : next.period_ms;
    return true;
  }

  EntryPtr TakeDue() {
    Thread::ScopedLock lock(mutex_);
    std::uint32_t now_ms = 0;
    if (entries_.empty() || !Source().ReadMs(now_ms)) return nullptr;
    TimerEntry& next = Earliest();
    if (Until(next.due_ms, now_ms) > 0) return nullptr;
    do next.due_ms += next.period_ms;
    while (Until(next.due_ms, now_ms) <= 0);
    const auto is_next = [&next](const EntryPtr& entry) { return entry.get() == &next; };
    return *std::find_if(entries_.begin(), entries_.end(), is_next);
  }

  TimerEntry& Earliest() REQUIRES(mutex_) {
    const auto earlier = [](const EntryPtr& a, const EntryPtr& b) {
      return Until(a->due_ms, b->due_ms) < 0;
    };
    return **std::min_element(entries_.begin(), entries_.end(), earlier);
  }

  static void Call(TimerEntry& entry) {
    Thread::ScopedLock lock(entry.running);
    if (!entry.dead) entry.callback();
  }

  Thread::ThreadModule owner_;
  Thread::ManualResetEvent changed_;
  Thread::Mutex mutex_;
  std::vector<EntryPtr> entries_ GUARDED_BY(mutex_);
  bool running_ GUARDED_BY(mutex_) = false;
};

TimerService& Service() {
  static TimerService service;
  return service;
}

}  // namespace

// A timer that lives to the end of the program must end before the service and the clock do.
Timer::Timer() { Service(); }

bool Timer::SetName(std::wstring_view name) {
  Thread::ScopedLock lock(mutex_);
  return !name.empty() && Memory::Copy(name_, name);
}

bool Timer::SetPeriodic(std::uint64_t period_us, std::function<void()> callback) {
  constexpr std::uint64_t kLongestMs = 0x7FFFFFFF;
  if (!callback) return false;
  Thread::ScopedLock lock(mutex_);
  // A cancelled entry is kept while its last call may be running, for `KillAll` to wait for.
  std::erase_if(entries_, [](const EntryPtr& e) { return e->dead && e.use_count() == 1; });
  const EntryPtr entry = Memory::MakeShared<TimerEntry>();
  if (!entry || !Memory::Append(entries_, entry)) return false;
  entry->period_ms =
      static_cast<std::uint32_t>(std::clamp<std::uint64_t>(period_us / 1000, 1, kLongestMs));
  entry->callback = std::move(callback);
  if (Service().Add(entry)) return true;
  entries_.pop_back();
  return false;
}

void Timer::Cancel() {
  Thread::ScopedLock lock(mutex_);
  for (const EntryPtr& entry : entries_) {
    entry->dead = true;
    Service().Remove(entry);
  }
}

void Timer::KillAll() {
  std::vector<EntryPtr> entries;
  {
    Thread::ScopedLock lock(mutex_);
    entries.swap(entries_);
  }
  for (const EntryPtr& entry : entries) {
    entry->dead = true;
    Service().Remove(entry);
    Thread::ScopedLock lock(entry->running);
  }
}

}  // namespace kestrav::Time
