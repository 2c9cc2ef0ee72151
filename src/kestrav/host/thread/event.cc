#include "kestrav/host/thread/event.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace kestrav::Thread {
namespace {

int FirstSignalled(std::span<ManualResetEvent* const> events) {
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (events[i]->IsSet()) return static_cast<int>(i);
  }
  return kWaitTimedOut;
}

}  // namespace

void ManualResetEvent::Set() {
  if (signalled_.load()) return;
  ScopedLock lock(mutex_);
  signalled_.store(true);
  for (Link* link = waiting_; link != nullptr; link = link->next) link->waiter->Notify();
}

void ManualResetEvent::Add(Link& link) {
  ScopedLock lock(mutex_);
  link.next = waiting_;
  waiting_ = &link;
}

void ManualResetEvent::Remove(Link& link) {
  ScopedLock lock(mutex_);
  Link** at = &waiting_;
  while (*at != &link) at = &(*at)->next;
  *at = link.next;
}

int WaitForFirst(std::span<ManualResetEvent* const> events, std::uint32_t timeout_ms) {
  const bool usable = !events.empty() && events.size() <= kMaxWaitEvents &&
                      std::find(events.begin(), events.end(), nullptr) == events.end();
  if (!usable) return kWaitFailed;
  int first = FirstSignalled(events);
  if (first >= 0 || timeout_ms == 0) return first;

  // An event set and reset again before the woken thread looks was no signal: it waits on. The time
  // limit then starts anew, which only a caller that resets other threads' events can see.
  for (bool in_time = true; first < 0 && in_time;) {
    Time::Waiter waiter;
    std::array<ManualResetEvent::Link, kMaxWaitEvents> links;
    for (std::size_t i = 0; i < events.size(); ++i) {
      links[i].waiter = &waiter;
      events[i]->Add(links[i]);
    }
    first = FirstSignalled(events);  // one may have been set before it knew this waiter
    if (first < 0) in_time = Time::Source().Wait(waiter, timeout_ms);
    for (std::size_t i = 0; i < events.size(); ++i) events[i]->Remove(links[i]);
    first = FirstSignalled(events);
  }
  return first;
}

}  // namespace kestrav::Thread
