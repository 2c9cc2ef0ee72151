#ifndef KESTRAV_HOST_THREAD_LOCK_H_
#define KESTRAV_HOST_THREAD_LOCK_H_

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "kestrav/host/sanitizer.h"
#include "kestrav/host/thread/annotations.h"

#ifdef KESTRAV_THREAD_SANITIZER
extern "C" void __tsan_mutex_destroy(void* mutex, unsigned flags);
#endif

namespace kestrav::Thread {

class CAPABILITY("mutex") Mutex {
 public:
#ifdef KESTRAV_THREAD_SANITIZER
  // A standard mutex goes without a word, and the sanitizer would take the next one in its place
  // for the same.
  ~Mutex() { __tsan_mutex_destroy(&mutex_, 0); }
#endif

  void Lock() ACQUIRE() { mutex_.lock(); }
  void Unlock() RELEASE() { mutex_.unlock(); }

  // For std::condition_variable, which wants the standard type.
  std::mutex& Native() { return mutex_; }

 private:
  std::mutex mutex_;
};

// For what is held for some ten nanoseconds at a time, however often. To let go of it is one plain
// store. Who finds it taken looks again for a microsecond; after that its holder itself was put to
// sleep, and who waits sleeps too, so that a thread of high priority cannot keep the holder from
// going on.
class CAPABILITY("mutex") BriefMutex {
 public:
  void Lock() ACQUIRE() {
    if (taken_.exchange(true, std::memory_order_acquire)) LockLater();
  }
  void Unlock() RELEASE() { taken_.store(false, std::memory_order_release); }

 private:
  void LockLater() {
    constexpr int kLooks = 64;
    for (;;) {
      for (int i = 0; i < kLooks; ++i) {
        Pause();
        if (!taken_.load(std::memory_order_relaxed) &&
            !taken_.exchange(true, std::memory_order_acquire))
          return;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }
  static void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

  std::atomic<bool> taken_{false};
};

// Recursive: a thread that holds it may take it again.
class CAPABILITY("mutex") CritSec {
 public:
#ifdef KESTRAV_THREAD_SANITIZER
  ~CritSec() { __tsan_mutex_destroy(&mutex_, 0); }
#endif

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
