#ifndef KESTRAV_TESTS_SUPPORT_WATCHDOG_H_
#define KESTRAV_TESTS_SUPPORT_WATCHDOG_H_

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace kestrav::test {

// Ends the process with a message when it lives longer than it should: what it guards hangs.
class Watchdog {
 public:
  Watchdog(std::chrono::seconds limit, std::string what)
      : thread_([this, limit, name = std::move(what)] {
          std::unique_lock lock(mutex_);
          if (ended_.wait_for(lock, limit, [this] { return over_; })) return;
          std::fprintf(stderr, "hangs: %s (%lld s)\n", name.c_str(),
                       static_cast<long long>(limit.count()));
          std::abort();
        }) {}
  ~Watchdog() {
    {
      const std::lock_guard lock(mutex_);
      over_ = true;
      ended_.notify_all();
    }
    thread_.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  bool over_ = false;
  std::thread thread_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_WATCHDOG_H_
