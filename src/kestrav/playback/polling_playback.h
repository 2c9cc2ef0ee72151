#ifndef KESTRAV_PLAYBACK_POLLING_PLAYBACK_H_
#define KESTRAV_PLAYBACK_POLLING_PLAYBACK_H_

#include <cstdint>

#include "kestrav/playback/binary_playback.h"

namespace kestrav {

// Playback at the pace of its caller: each call of `PlaybackNextMessage` delivers the next selected
// record at once. One thread at a time, on which the clients are called too.
class KESTRAV_API BinaryPlaybackPollingImpl final : public IBinaryPlayback {
 public:
  BinaryPlaybackPollingImpl() = default;

  bool SearchAndGetClientData(Memory::MemBlock& data, const std::uint16_t& clientId,
                              const std::uint16_t& dataId,
                              const std::uint32_t& offsetScnds) const override;
  bool GetPlaybackAttributes(std::uint32_t& lengthMs, std::uint32_t& size,
                             std::uint16_t& recordedClientsMask, Memory::MemBlock& data,
                             const std::uint16_t& clientId) const override;
  std::uint32_t GetPlaybackLogLengthMs() const override;
  std::uint32_t GetPlaybackLogSize() const override;
  PlaybackStatusType GetPlaybackStatus() const override { return status_; }
  bool IsValidPlaybackOffset(std::uint32_t offsetScnds) const override;

  // Delivers one record. At the end of the log it delivers none, sends notification 8 and answers
  // true. false: the read or the delivery failed, and the playback has stopped.
  bool PlaybackNextMessage() override;

  // Only while playback is off.
  bool SetInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) override;
  // The answer is that of `IsValidPlaybackOffset`; playback starts at the beginning all the same.
  bool SetStartPlaybackOffsetScnds(std::uint32_t offsetScnds) override;
  bool StartPlayback(ClientManager* clients, INotificationSink* engine, Thread::ThreadModule& owner,
                     const String& threadName) override;
  void SetPlaybackStatus(const PlaybackStatusType& status) override { status_ = status; }
  void StopPlayback(bool waitForThread) override;

  // A notification 13 each `durationMs` of log time from the present record on; 0: none.
  bool SetPeriodicEventDuration(std::uint32_t durationMs) override;

 private:
  void Reset();
  bool ReadNextPlaybackData(LogMessage& message);
  void SendPeriodicEvents();

  std::uint32_t period_ms_ = 0;
  std::uint32_t next_period_ms_ = 0;  // a record time stamp
};

}  // namespace kestrav

#endif  // KESTRAV_PLAYBACK_POLLING_PLAYBACK_H_
