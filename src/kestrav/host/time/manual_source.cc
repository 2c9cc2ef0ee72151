#include "kestrav/host/time/manual_source.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace kestrav::Time {
namespace {

thread_local std::uint64_t worker = 0;

}  // namespace

ManualSource::ManualSource(std::uint32_t start_ms, std::int64_t wall_scnds)
    : start_ms_(start_ms), wall_scnds_(wall_scnds) {}

ManualSource::~ManualSource() {
  std::unique_lock lock(mutex_.Native());
  changed_.wait(lock, [this]() NO_THREAD_SAFETY_ANALYSIS { return workers_ == 0; });
}

void ManualSource::Settle() {
  Thread::ScopedLock lock(mutex_);
  WaitUntilAllRest();
}

void ManualSource::Advance(std::uint32_t ms) {
  Thread::ScopedLock lock(mutex_);
  Pass(elapsed_ms_ + ms);
}

bool ManualSource::AdvanceToNextDue() {
  Thread::ScopedLock lock(mutex_);
  WaitUntilAllRest();
  const Pending* const next = NextDue(std::numeric_limits<std::uint64_t>::max());
  if (next == nullptr) return false;
  Pass(next->due_ms);
  return true;
}

void ManualSource::MoveTo(std::uint64_t at_ms) {
  Thread::ScopedLock lock(mutex_);
  if (at_ms <= elapsed_ms_) return;
  if (NextDue(at_ms) != nullptr) {
    Pass(at_ms);
  } else {
    elapsed_ms_ = at_ms;
  }
}

std::uint64_t ManualSource::ElapsedMs() {
  Thread::ScopedLock lock(mutex_);
  return elapsed_ms_;
}

void ManualSource::FailMs(std::uint32_t after) {
  Thread::ScopedLock lock(mutex_);
  failing_ms_ = true;
  readings_left_ = after;
}

void ManualSource::FailWallClock() {
  Thread::ScopedLock lock(mutex_);
  failing_wall_ = true;
}

void ManualSource::Recover() {
  Thread::ScopedLock lock(mutex_);
  failing_ms_ = false;
  failing_wall_ = false;
}

bool ManualSource::ReadMs(std::uint32_t& now_ms) {
  Thread::ScopedLock lock(mutex_);
  if (failing_ms_) {
    if (readings_left_ == 0) return false;
    --readings_left_;
  }
  now_ms = static_cast<std::uint32_t>(start_ms_ + elapsed_ms_);
  return true;
}

bool ManualSource::ReadWallClockScnds(std::int64_t& now_scnds) {
  Thread::ScopedLock lock(mutex_);
  if (failing_wall_) return false;
  now_scnds = wall_scnds_ + static_cast<std::int64_t>(elapsed_ms_ / 1000);
  return true;
}

bool ManualSource::Wait(Waiter& waiter, std::uint32_t timeout_ms) {
  Thread::ScopedLock lock(mutex_);
  const bool limited = timeout_ms != kNoLimit;
  if (timeout_ms == 0) return waiter.IsNotified();
  Pending self{&waiter, worker, limited, elapsed_ms_, elapsed_ms_ + timeout_ms, false, nullptr};
  Add(self);
  changed_.notify_all();
  lock.Unlock();
  waiter.Block(kNoLimit);
  lock.Lock();
  Remove(self);
  changed_.notify_all();
  return !self.expired;
}

void ManualSource::Add(Pending& pending) {
  Pending** at = &pending_;
  while (*at != nullptr) at = &(*at)->next;
  *at = &pending;
}

void ManualSource::Remove(Pending& pending) {
  Pending** at = &pending_;
  while (*at != &pending) at = &(*at)->next;
  *at = pending.next;
}

std::uint64_t ManualSource::OnThreadStarting() {
  Thread::ScopedLock lock(mutex_);
  ++workers_;
  return ++started_workers_;
}

void ManualSource::OnThreadRunning(std::uint64_t number) { worker = number; }

void ManualSource::OnThreadEnded() {
  Thread::ScopedLock lock(mutex_);
  --workers_;
  changed_.notify_all();
}

bool ManualSource::AllRest() {
  std::uint32_t resting = 0;
  for (const Pending* p = pending_; p != nullptr; p = p->next) {
    if (p->worker != 0 && !p->waiter->IsNotified()) ++resting;
  }
  return resting == workers_;
}

// The analysis cannot follow std::unique_lock.
void ManualSource::WaitUntilAllRest() NO_THREAD_SAFETY_ANALYSIS {
  std::unique_lock lock(mutex_.Native(), std::adopt_lock);
  changed_.wait(lock, [this]() NO_THREAD_SAFETY_ANALYSIS { return AllRest(); });
  lock.release();
}

// Threads that run side by side may begin to wait in either order, which must not show.
bool ManualSource::Pending::IsBefore(const Pending& other) const {
  return std::tie(due_ms, began_ms, worker) < std::tie(other.due_ms, other.began_ms, other.worker);
}

ManualSource::Pending* ManualSource::NextDue(std::uint64_t until_ms) {
  Pending* next = nullptr;
  for (Pending* p = pending_; p != nullptr; p = p->next) {
    if (!p->limited || p->due_ms > until_ms || p->waiter->IsNotified()) continue;
    if (next == nullptr || p->IsBefore(*next)) next = p;
  }
  return next;
}

void ManualSource::Pass(std::uint64_t until_ms) {
  WaitUntilAllRest();
  while (Pending* due = NextDue(until_ms)) {
    elapsed_ms_ = std::max(elapsed_ms_, due->due_ms);
    due->expired = true;
    due->waiter->Notify();
    WaitUntilAllRest();
  }
  elapsed_ms_ = std::max(elapsed_ms_, until_ms);
}

}  // namespace kestrav::Time
