#ifndef KESTRAV_HOST_THREAD_WORKER_THREAD_H_
#define KESTRAV_HOST_THREAD_WORKER_THREAD_H_

#include <string_view>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/event.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/host/thread/thread_module.h"

namespace kestrav::Thread {

// A named thread that can be started again after it ended. Its operations may be called from any
// thread, its own included. A derived class ends it in its destructor (`Quit`,
// `WaitForCompletion`).
class KESTRAV_API WorkerThread {
 public:
  virtual ~WorkerThread() = default;
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // false: the name is empty or memory is short. Used by the next `Start`.
  [[nodiscard]] bool SetName(std::wstring_view name);

  // Asks `owner` to run `Main` on a thread. A run that is still on its way out is waited for by the
  // new thread, never by the caller. false: no thread could be started.
  [[nodiscard]] bool Start(ThreadModule& owner, const StartOptions& options = {});

  // Sets the quit event, which `Main` obeys.
  void Quit() { quit_event_.Set(); }

  // Waits without limit until the thread has ended. On the thread itself it returns at once.
  void WaitForCompletion();

  // The thread of the run started last, which can be joined while a later one runs already. Empty:
  // none was started.
  SmartPtr::Ptr<IThread> CurrentRun();

 protected:
  WorkerThread() = default;

  virtual void Main() = 0;

  ManualResetEvent& QuitEvent() { return quit_event_; }

 private:
  ManualResetEvent quit_event_;
  Mutex mutex_;
  String name_ GUARDED_BY(mutex_);
  SmartPtr::Ptr<IThread> thread_ GUARDED_BY(mutex_);
};

}  // namespace kestrav::Thread

#endif  // KESTRAV_HOST_THREAD_WORKER_THREAD_H_
