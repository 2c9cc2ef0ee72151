#include "kestrav/host/time/source.h"

#include <atomic>
#include <chrono>

#include "kestrav/host/time/real_source.h"

namespace kestrav::Time {
namespace {

RealSource& Real() {
  static RealSource source;
  return source;
}

std::atomic<ISource*>& Current() {
  static std::atomic<ISource*> current{&Real()};
  return current;
}

}  // namespace

void Waiter::Notify() {
  // Notified under the lock: a waiter that wakes may be destroyed at once.
  Thread::ScopedLock lock(mutex_);
  notified_ = true;
  changed_.notify_one();
}

bool Waiter::IsNotified() {
  Thread::ScopedLock lock(mutex_);
  return notified_;
}

// The analysis cannot follow std::unique_lock.
bool Waiter::Block(std::uint32_t timeout_ms) NO_THREAD_SAFETY_ANALYSIS {
  std::unique_lock lock(mutex_.Native());
  const auto is_notified = [this]() NO_THREAD_SAFETY_ANALYSIS { return notified_; };
  if (timeout_ms != kNoLimit) {
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), is_notified);
  }
  changed_.wait(lock, is_notified);
  return true;
}

ISource& Source() { return *Current().load(std::memory_order_acquire); }

ISource* SetSource(ISource* source) {
  return Current().exchange(source != nullptr ? source : &Real(), std::memory_order_acq_rel);
}

}  // namespace kestrav::Time
