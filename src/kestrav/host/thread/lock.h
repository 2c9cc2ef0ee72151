#ifndef KESTRAV_HOST_THREAD_LOCK_H_
#define KESTRAV_HOST_THREAD_LOCK_H_

#include <mutex>

#include "kestrav/host/thread/annotations.h"

namespace kestrav::Thread {

class CAPABILITY("mutex") Mutex {
 public:
  void Lock() ACQUIRE() { mutex_.lock(); }
  void Unlock() RELEASE() { mutex_.unlock(); }

  // For std::condition_variable, which wants the standard type.
  std::mutex& Native() { return mutex_; }

 private:
  std::mutex mutex_;
};

// Recursive: a thread that holds it may take it again.
class CAPABILITY("mutex") CritSec {
 public:
  void Lock() ACQUIRE() { mutex_.lock(); }
  void Unlock() RELEASE() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

// Holds `lock` to the end of the scope; may let go of it and take it again in between.
template <class LockType>
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(LockType& lock) ACQUIRE(lock) : lock_(lock) { lock_.Lock(); }
  ~ScopedLock() RELEASE() {
    if (held_) lock_.Unlock();
  }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

  void Unlock() RELEASE() {
    held_ = false;
    lock_.Unlock();
  }
  void Lock() ACQUIRE() {
    lock_.Lock();
    held_ = true;
  }

 private:
  LockType& lock_;
  bool held_ = true;
};

}  // namespace kestrav::Thread

#endif  // KESTRAV_HOST_THREAD_LOCK_H_
