#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <string>
#include <utility>

#include "kestrav/host/memory/try.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/host/thread/thread_module.h"

namespace kestrav::Thread {
namespace {

constexpr std::size_t kLongestName = 15;  // Linux shows no more bytes of a thread's name

std::string SystemName(const String& name) {
  std::string text = Text::ToUtf8(name);
  std::size_t length = std::min(text.size(), kLongestName);
  // Not inside a character of several bytes.
  while (length < text.size() && (text[length] & 0xC0) == 0x80) --length;
  text.resize(length);
  return text;
}

struct Body {
  std::function<void()> run;
  std::string name;
};

void* Enter(void* argument) {
  const std::unique_ptr<Body> body(static_cast<Body*>(argument));
  pthread_setname_np(pthread_self(), body->name.c_str());
  body->run();
  return nullptr;
}

class PosixThread final : public IThread {
 public:
  ~PosixThread() override { Join(); }

  // Takes `body` only if it starts.
  bool Start(std::unique_ptr<Body>& body, const pthread_attr_t& attributes) {
    started_ = pthread_create(&thread_, &attributes, Enter, body.get()) == 0;
    if (started_) static_cast<void>(body.release());  // Enter owns it now
    return started_;
  }

  void Join() override {
    ScopedLock lock(mutex_);
    if (!started_ || joined_) return;
    joined_ = true;
    // The last owner may be the thread itself, which cannot join.
    if (IsCurrent()) {
      pthread_detach(thread_);
    } else {
      pthread_join(thread_, nullptr);
    }
  }

  bool IsCurrent() const override {
    return started_ && pthread_equal(thread_, pthread_self()) != 0;
  }

 private:
  Mutex mutex_;
  pthread_t thread_{};
  bool started_ = false;
  bool joined_ GUARDED_BY(mutex_) = false;
};

void SetPriority(int priority, pthread_attr_t& attributes) {
  sched_param parameters{};
  parameters.sched_priority = priority;
  pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
  pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
  pthread_attr_setschedparam(&attributes, &parameters);
}

}  // namespace

SmartPtr::Ptr<IThread> ThreadModule::Start(const String& name, std::function<void()> body,
                                           const StartOptions& options) {
  std::unique_ptr<Body> entry;
  SmartPtr::Ptr<PosixThread> thread;
  const bool allocated = Memory::Try([&] {
    entry = std::make_unique<Body>(Body{std::move(body), SystemName(name)});
    thread = std::make_shared<PosixThread>();
  });
  if (!allocated) return nullptr;
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return nullptr;
  if (options.stack_bytes > 0) pthread_attr_setstacksize(&attributes, options.stack_bytes);
  if (options.priority > 0) SetPriority(options.priority, attributes);
  bool started = thread->Start(entry, attributes);
  if (!started && options.priority > 0) {
    // The priority is a privilege; a thread without it is better than none.
    pthread_attr_setinheritsched(&attributes, PTHREAD_INHERIT_SCHED);
    started = thread->Start(entry, attributes);
  }
  pthread_attr_destroy(&attributes);
  if (!started) return nullptr;
  return thread;
}

}  // namespace kestrav::Thread
