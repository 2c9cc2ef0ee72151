#ifndef KESTRAV_TESTS_SUPPORT_NOTIFICATION_LOG_H_
#define KESTRAV_TESTS_SUPPORT_NOTIFICATION_LOG_H_

#include <mutex>
#include <vector>

#include "kestrav/types/notification.h"
#include "kestrav/types/sinks.h"

namespace kestrav::test {

// Remembers notifications in the order in which they came, from any thread.
class NotificationLog final : public INotificationSink {
 public:
  void SendNotification(const NotificationInfo& info) override {
    const std::lock_guard lock(mutex_);
    all_.push_back(info);
  }

  std::vector<NotificationInfo> All() const {
    const std::lock_guard lock(mutex_);
    return all_;
  }
  // The ids alone, and forgets them.
  std::vector<int> TakeIds() {
    const std::lock_guard lock(mutex_);
    std::vector<int> ids;
    for (const NotificationInfo& info : all_) ids.push_back(static_cast<int>(info.id));
    all_.clear();
    return ids;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<NotificationInfo> all_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_NOTIFICATION_LOG_H_
