#ifndef KESTRAV_HOST_EVENT_NOTIFIER_MT_H_
#define KESTRAV_HOST_EVENT_NOTIFIER_MT_H_

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::Event {

// Tells connected observers of an event, on the thread that fires it. Any thread may connect,
// disconnect and fire, also from inside an observer.
template <class Argument>
class NotifierMT {
 public:
  using Observer = std::function<void(Argument)>;

  NotifierMT() = default;
  NotifierMT(const NotifierMT&) = delete;
  NotifierMT& operator=(const NotifierMT&) = delete;

  // The id for `Disconnect`, never 0. 0: the observer is empty or memory is short.
  [[nodiscard]] std::uint32_t Connect(Observer observer) noexcept {
    if (!observer) return 0;
    const std::lock_guard lock(mutex_);
    std::uint32_t id = 0;
    const bool connected = Memory::Try([&] {
      auto slots = slots_ ? std::make_shared<Slots>(*slots_) : std::make_shared<Slots>();
      slots->push_back(std::make_shared<Slot>(next_id_, std::move(observer)));
      slots_ = std::move(slots);
      id = next_id_++;
    });
    return connected ? id : 0;
  }

  // Waits for calls of the observer that run on other threads: after the return it is not called
  // any more. The caller must hold no lock that the observer wants, and two observers must not
  // disconnect each other at the same time. false: there is no such id.
  bool Disconnect(std::uint32_t id) noexcept {
    const SmartPtr::Ptr<Slot> slot = Remove(id);
    if (!slot) return false;
    slot->Close();
    return true;
  }

  // Calls the observers in the order in which they connected. One that disconnects meanwhile is not
  // called any more, one that connects meanwhile hears of the next event. What one throws ends
  // here.
  void Fire(Argument argument) const noexcept {
    SmartPtr::Ptr<const Slots> slots;
    {
      const std::lock_guard lock(mutex_);
      slots = slots_;
    }
    if (!slots) return;
    for (const SmartPtr::Ptr<Slot>& slot : *slots) slot->Call(argument);
  }

 private:
  class Slot {
   public:
    // Has room for its callers, so that an event is not missed when memory is short.
    Slot(std::uint32_t id, Observer observer) : id_(id), observer_(std::move(observer)) {
      callers_.reserve(kCallersAtOnce);
    }

    std::uint32_t Id() const { return id_; }

    void Call(Argument argument) noexcept {
      if (!Enter()) return;
      static_cast<void>(Memory::Try([&] { observer_(argument); }));
      const std::lock_guard lock(mutex_);
      callers_.erase(std::find(callers_.begin(), callers_.end(), std::this_thread::get_id()));
      left_.notify_all();
    }

    void Close() {
      std::unique_lock lock(mutex_);
      closed_ = true;
      left_.wait(lock, [this] { return !CalledElsewhere(); });
    }

   private:
    static constexpr std::size_t kCallersAtOnce = 8;

    bool Enter() {
      const std::lock_guard lock(mutex_);
      return !closed_ && Memory::Try([&] { callers_.push_back(std::this_thread::get_id()); });
    }

    bool CalledElsewhere() const {
      const auto elsewhere = [](std::thread::id id) { return id != std::this_thread::get_id(); };
      return std::any_of(callers_.begin(), callers_.end(), elsewhere);
    }

    const std::uint32_t id_;
    const Observer observer_;
    std::mutex mutex_;
    std::condition_variable left_;
    std::vector<std::thread::id> callers_;
    bool closed_ = false;
  };
  using Slots = std::vector<SmartPtr::Ptr<Slot>>;

  SmartPtr::Ptr<Slot> Remove(std::uint32_t id) noexcept {
    const std::lock_guard lock(mutex_);
    if (!slots_) return nullptr;
    const auto has_id = [id](const SmartPtr::Ptr<Slot>& slot) { return slot->Id() == id; };
    const auto found = std::find_if(slots_->begin(), slots_->end(), has_id);
    if (found == slots_->end()) return nullptr;
    SmartPtr::Ptr<Slot> slot = *found;
    // Copied, since a firing thread may be walking the list. Short of memory, the closed slot
    // stays.
    static_cast<void>(Memory::Try([&] {
      auto rest = std::make_shared<Slots>(*slots_);
      std::erase(*rest, slot);
      slots_ = std::move(rest);
    }));
    return slot;
  }

  mutable std::mutex mutex_;
  SmartPtr::Ptr<const Slots> slots_;
  std::uint32_t next_id_ = 1;
};

}  // namespace kestrav::Event

#endif  // KESTRAV_HOST_EVENT_NOTIFIER_MT_H_
