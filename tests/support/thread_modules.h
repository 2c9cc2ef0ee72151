#ifndef KESTRAV_TESTS_SUPPORT_THREAD_MODULES_H_
#define KESTRAV_TESTS_SUPPORT_THREAD_MODULES_H_

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/thread/thread_module.h"

namespace kestrav::test {

// Remembers the names of the threads that it starts. It can be told to refuse, and to hold its
// threads back before they do anything; a manual clock does not settle while one is held back.
class ThreadsUnderTest final : public Thread::ThreadModule {
 public:
  SmartPtr::Ptr<Thread::IThread> Start(const String& name, std::function<void()> body,
                                       const Thread::StartOptions& options) override {
    {
      const std::lock_guard lock(mutex_);
      names_.push_back(name);
      if (refuse_) return nullptr;
    }
    auto held_body = [this, run = std::move(body)] {
      std::unique_lock lock(mutex_);
      released_.wait(lock, [this] { return !hold_; });
      lock.unlock();
      run();
    };
    return ThreadModule::Start(name, std::move(held_body), options);
  }

  void Refuse(bool refuse) {
    const std::lock_guard lock(mutex_);
    refuse_ = refuse;
  }
  void Hold() {
    const std::lock_guard lock(mutex_);
    hold_ = true;
  }
  void Release() {
    const std::lock_guard lock(mutex_);
    hold_ = false;
    released_.notify_all();
  }
  std::vector<String> Names() const {
    const std::lock_guard lock(mutex_);
    return names_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable released_;
  std::vector<String> names_;
  bool refuse_ = false;
  bool hold_ = false;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_THREAD_MODULES_H_
