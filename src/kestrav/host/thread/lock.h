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

// For what is held for some ten nanoseconds at a time, however often. Who finds it taken looks
// again for a microsecond before it sleeps: to sleep and to be woken takes fifty.
class CAPABILITY("mutex") BriefMutex {
 public:
  void Lock() ACQUIRE() {
    constexpr int kLooks = 64;
    for (int i = 0; i < kLooks; ++i) {
      if (mutex_.try_lock()) return;
      Pause();
    }
    mutex_.lock();
  }
  void Unlock() RELEASE() { mutex_.unlock(); }

 private:
  static void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

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
