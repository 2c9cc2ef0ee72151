#include "kestrav/host/thread/worker_thread.h"

#include <cstdint>
#include <utility>

#include "kestrav/host/memory/try.h"
#include "kestrav/host/time/source.h"

namespace kestrav::Thread {

bool WorkerThread::SetName(std::wstring_view name) {
  ScopedLock lock(mutex_);
  return !name.empty() && Memory::Copy(name_, name);
}

bool WorkerThread::Start(ThreadModule& owner, const StartOptions& options) {
  ScopedLock lock(mutex_);
  Time::ISource* const source = &Time::Source();
  const std::uint64_t number = source->OnThreadStarting();
  SmartPtr::Ptr<IThread> thread;
  String name;
  bool started = Memory::Copy(name, name_);
  started = started && Memory::Try([&, previous = thread_]() mutable {
              // The thread waits for the run before it, so that at most one `Main` runs.
              auto body = [this, source, number, previous = std::move(previous)]() mutable {
                source->OnThreadRunning(number);
                if (previous) previous->Join();
                previous.reset();
                Main();
                source->OnThreadEnded();
              };
              thread = owner.Start(name, std::move(body), options);
            });
  if (started && thread) {
    thread_ = std::move(thread);
    return true;
  }
  source->OnThreadEnded();
  return false;
}

SmartPtr::Ptr<IThread> WorkerThread::CurrentRun() {
  ScopedLock lock(mutex_);
  return thread_;
}

void WorkerThread::WaitForCompletion() {
  const SmartPtr::Ptr<IThread> thread = CurrentRun();
  if (thread && !thread->IsCurrent()) thread->Join();
}

}  // namespace kestrav::Thread
