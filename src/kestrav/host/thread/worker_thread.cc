#include "kestrav/host/thread/worker_thread.h"

#include <utility>

#include "kestrav/host/memory/try.h"
#include "kestrav/host/time/source.h"

namespace kestrav::Thread {

bool WorkerThread::SetName(const String& name) {
  ScopedLock lock(mutex_);
  return !name.empty() && Memory::Try([&] { name_ = name; });
}

bool WorkerThread::Start(ThreadModule& owner, const StartOptions& options) {
  ScopedLock lock(mutex_);
  Time::ISource* const source = &Time::Source();
  source->OnThreadStarting();
  const bool started = Memory::Try([&] {
    // The thread waits for the run before it, so that at most one `Main` runs.
    auto body = [this, source, previous = thread_]() mutable {
      source->OnThreadRunning();
      if (previous) previous->Join();
      previous.reset();
      Main();
      source->OnThreadEnded();
    };
    SmartPtr::Ptr<IThread> thread = owner.Start(name_, std::move(body), options);
    if (!thread) throw std::bad_alloc();
    thread_ = std::move(thread);
  });
  if (!started) source->OnThreadEnded();
  return started;
}

void WorkerThread::WaitForCompletion() {
  SmartPtr::Ptr<IThread> thread;
  {
    ScopedLock lock(mutex_);
    thread = thread_;
  }
  if (thread && !thread->IsCurrent()) thread->Join();
}

}  // namespace kestrav::Thread
