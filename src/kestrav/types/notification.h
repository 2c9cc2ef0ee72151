#ifndef KESTRAV_TYPES_NOTIFICATION_H_
#define KESTRAV_TYPES_NOTIFICATION_H_

#include <cstdint>

#include "kestrav/types/client_id_set.h"
#include "kestrav/types/playback_types.h"

namespace kestrav {

enum NotificationIdType : std::uint32_t {
  NotifyLoggingStarted = 0,   // clients: the logging selection
  NotifyLoggingStopped = 1,   // a stop begins, the queue is not drained yet; clients as above
  NotifyPlaybackStarted = 2,  // 2 to 8: clients: the playback clients
  NotifyPlaybackStopped = 3,
  NotifyPlaybackPaused = 4,
  NotifyPlaybackResumed = 5,
  NotifyRewindStarted = 6,
  NotifyRewindFinished = 7,
  NotifyEndOfLog = 8,
  NotifyLoggingFinished = 9,  // the stop is complete; clients: the logging selection
  NotifyRecordingTime = 10,   // value: seconds
  NotifyPlaybackTime = 11,    // value: seconds
  NotifyPlaybackSpeed = 12,   // speed: the new one
  NotifyPeriodicEvent = 13,   // value: log time in milliseconds
  NotifyNone = 255,
};

// What observers are told: five 32-bit words.
struct NotificationInfo {
  NotificationIdType id = NotifyNone;
  ClientIdSet clients;
  std::uint32_t value = 0;
  PlaybackSpeedType speed = PlaybackSpeedNone;

  NotificationInfo() = default;
  NotificationInfo(NotificationIdType what, std::uint32_t time) : id(what), value(time) {}
  NotificationInfo(NotificationIdType what, PlaybackSpeedType now) : id(what), speed(now) {}
  NotificationInfo(NotificationIdType what, const ClientIdSet& whom) : id(what), clients(whom) {}

  bool IsClientSelected(const std::uint16_t& clientId) const { return clients.Contains(clientId); }
};
static_assert(sizeof(NotificationInfo) == 20);

}  // namespace kestrav

#endif  // KESTRAV_TYPES_NOTIFICATION_H_
