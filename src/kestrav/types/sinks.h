#ifndef KESTRAV_TYPES_SINKS_H_
#define KESTRAV_TYPES_SINKS_H_

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"

namespace kestrav {

class ILogMessage;
struct NotificationInfo;

// Where recording and playback send their notifications; may be called from any thread.
class KESTRAV_API INotificationSink {
 public:
  virtual ~INotificationSink() = default;
  virtual void SendNotification(const NotificationInfo& info) = 0;
};

// Where messages go to be recorded; may be called from any thread.
class KESTRAV_API IMessageSink {
 public:
  virtual ~IMessageSink() = default;
  // true: the sink took the message, and a reference to it.
  virtual bool Write(const SmartPtr::Ptr<ILogMessage>& message) = 0;
};

}  // namespace kestrav

#endif  // KESTRAV_TYPES_SINKS_H_
