#ifndef KESTRAV_PLAYBACK_BINARY_PLAYBACK_H_
#define KESTRAV_PLAYBACK_BINARY_PLAYBACK_H_

#include <atomic>
#include <cstdint>

#include "kestrav/clients/client_manager.h"
#include "kestrav/format/decoder.h"
#include "kestrav/format/log_message.h"
#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/types/client_id_set.h"
#include "kestrav/types/notification.h"
#include "kestrav/types/playback_types.h"
#include "kestrav/types/sinks.h"

namespace kestrav {

// Plays one log to the registered clients. The three modes override what they support; the default
// answers false or 0 and changes nothing, which is how a call that does not fit the mode is
// refused.
class KESTRAV_API IBinaryPlayback {
 public:
  virtual ~IBinaryPlayback() = default;
  IBinaryPlayback(const IBinaryPlayback&) = delete;
  IBinaryPlayback& operator=(const IBinaryPlayback&) = delete;

  virtual bool FastForward() { return false; }

  // Copies the payload of the first record of this client and data id into `data`, if it stands
  // before the first other record at or after `offsetScnds`.
  virtual bool SearchAndGetClientData(Memory::MemBlock& data, const std::uint16_t& clientId,
                                      const std::uint16_t& dataId,
                                      const std::uint32_t& offsetScnds) const;

  // The stream header's duration, length and client selection and, if the first record is the
  // dictionary of `clientId`, its payload; otherwise `data` is left alone.
  virtual bool GetPlaybackAttributes(std::uint32_t& lengthMs, std::uint32_t& size,
                                     std::uint16_t& recordedClientsMask, Memory::MemBlock& data,
                                     const std::uint16_t& clientId) const;

  virtual std::uint32_t GetPlaybackLogLengthMs() const { return 0; }
  virtual std::uint32_t GetPlaybackLogSize() const { return 0; }
  virtual PlaybackStatusType GetPlaybackStatus() const = 0;
  virtual PlaybackSpeedType GetPlaybackSpeed() const { return PlaybackSpeedStopped; }
  virtual std::uint32_t GetPlaybackTimeScnds() const { return 0; }
  virtual std::uint32_t GetRewindTimeScnds() const { return 0; }
  virtual std::uint32_t GetStartPlaybackOffsetScnds() const { return 0; }
  virtual bool PlaybackData(const Memory::MemBlock& /*data*/) { return false; }
  virtual bool IsValidPlaybackOffset(std::uint32_t /*offsetScnds*/) const { return false; }
  virtual bool PausePlayback() { return false; }
  virtual bool PlaybackNextMessage() { return false; }
  virtual bool ResumePlayback() { return false; }
  virtual bool RewindPlayback() { return false; }
  virtual bool SetInputStream(const SmartPtr::Ptr<Io::IInputStream>& /*stream*/) { return false; }
  virtual bool SetStartPlaybackOffsetScnds(std::uint32_t /*offsetScnds*/) { return false; }
  virtual bool SetStartPlaybackSpeed(PlaybackSpeedType /*speed*/) { return false; }
  virtual void SetRewindTimeScnds(std::uint32_t /*seconds*/) {}

  // The pointers must outlive the playback. `owner` and `threadName` are for the mode with a
  // thread.
  virtual bool StartPlayback(ClientManager* clients, INotificationSink* engine,
                             Thread::ThreadModule& owner, const String& threadName) = 0;
  virtual void SetPlaybackStatus(const PlaybackStatusType& status) = 0;
  // `waitForThread`: return only when the thread, if there is one, has ended.
  virtual void StopPlayback(bool waitForThread) = 0;
  virtual bool SetPeriodicEventDuration(std::uint32_t /*durationMs*/) { return false; }

  bool IsPlaybackOff() const { return GetPlaybackStatus() == PlaybackOff; }

 protected:
  IBinaryPlayback() = default;

  // Takes the selection from the client manager and tells the decoder which records to decode; does
  // nothing while the information is ready. false: nothing can be played.
  [[nodiscard]] bool InitPlaybackClientInfo();
  // Delivers to every client of the record's id; the last one's answer counts. A record that is not
  // selected is skipped with true; a selected one without clients gives false.
  [[nodiscard]] bool SendData(const LogMessage& message);
  // Sends a notification with the playback clients.
  void Notify(NotificationIdType id) const;

  mutable BinaryDecoder decoder_;  // questions about the log move its read position
  LogMessage current_message_;
  Receivers receivers_;
  ClientIdSet offset_data_ids_;
  ClientIdSet playback_clients_;
  std::atomic<PlaybackStatusType> status_{
      PlaybackOff};  // the update timer's thread looks at it too
  std::uint32_t start_offset_scnds_ = 0;
  bool client_info_ready_ = false;
  INotificationSink* engine_ = nullptr;
  ClientManager* clients_ = nullptr;
};

}  // namespace kestrav

#endif  // KESTRAV_PLAYBACK_BINARY_PLAYBACK_H_
