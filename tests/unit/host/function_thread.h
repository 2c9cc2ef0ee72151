#ifndef KESTRAV_TESTS_UNIT_HOST_FUNCTION_THREAD_H_
#define KESTRAV_TESTS_UNIT_HOST_FUNCTION_THREAD_H_

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "kestrav/host/thread/worker_thread.h"
#include "kestrav/host/time/source.h"

namespace kestrav::test {

// A worker thread that runs a function.
class FunctionThread final : public Thread::WorkerThread {
 public:
  explicit FunctionThread(std::function<void(FunctionThread&)> body) : body_(std::move(body)) {}
  explicit FunctionThread(std::function<void()> body)
      : body_([run = std::move(body)](FunctionThread&) { run(); }) {}
  ~FunctionThread() override {
    Quit();
    WaitForCompletion();
  }

  [[nodiscard]] bool Start() { return WorkerThread::Start(owner_); }
  using WorkerThread::QuitEvent;
  using WorkerThread::Start;

 protected:
  void Main() override { body_(*this); }

 private:
  Thread::ThreadModule owner_;
  std::function<void(FunctionThread&)> body_;
};

// What threads have to tell, in the order in which they told it.
template <class T>
class Told {
 public:
  void Tell(T what) {
    const std::lock_guard lock(mutex_);
    all_.push_back(std::move(what));
  }
  std::vector<T> All() const {
    const std::lock_guard lock(mutex_);
    return all_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<T> all_;
};

// Milliseconds of the clock in use.
inline std::uint32_t NowMs() {
  std::uint32_t now_ms = 0;
  EXPECT_TRUE(Time::Source().ReadMs(now_ms));
  return now_ms;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_HOST_FUNCTION_THREAD_H_
