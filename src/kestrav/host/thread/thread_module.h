#ifndef KESTRAV_HOST_THREAD_THREAD_MODULE_H_
#define KESTRAV_HOST_THREAD_THREAD_MODULE_H_

#include <cstddef>
#include <functional>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Thread {

// A running or finished thread of the system.
class KESTRAV_API IThread {
 public:
  // Joins.
  virtual ~IThread() = default;

  // Waits for the end of the thread. Any thread but this one may call it, more than once too.
  virtual void Join() = 0;

  virtual bool IsCurrent() const = 0;
};

struct StartOptions {
  int priority = 0;             // above 0: a real-time (FIFO) priority, if the system grants it
  std::size_t stack_bytes = 0;  // 0: the system's default
};

// The owner of threads, which a host may replace to start them its own way. Start may be called
// from any thread.
class KESTRAV_API ThreadModule {
 public:
  virtual ~ThreadModule() = default;

  // Runs `body` on a new thread under `name` (cut to what the system can show). Empty: there is no
  // thread and `body` does not run.
  virtual SmartPtr::Ptr<IThread> Start(const String& name, std::function<void()> body,
                                       const StartOptions& options);
};

}  // namespace kestrav::Thread

#endif  // KESTRAV_HOST_THREAD_THREAD_MODULE_H_
