#ifndef KESTRAV_PLAYBACK_PASS_THROUGH_PLAYBACK_H_
#define KESTRAV_PLAYBACK_PASS_THROUGH_PLAYBACK_H_

#include <cstdint>

#include "kestrav/host/thread/lock.h"
#include "kestrav/playback/binary_playback.h"

namespace kestrav {

// Playback of a log that its caller hands in piece by piece: the stream header, the dictionary
// record, then one record a piece. Every client of the log that is registered is played to. Any
// thread may call any operation; clients are called on the caller's thread with the lock held.
class KESTRAV_API BinaryPlaybackPassThroughImpl final : public IBinaryPlayback {
 public:
  BinaryPlaybackPassThroughImpl() = default;

  std::uint32_t GetPlaybackLogLengthMs() const override;
  std::uint32_t GetPlaybackLogSize() const override;
  PlaybackStatusType GetPlaybackStatus() const override;

  // Takes the next piece. false: not started, or the piece cannot be played and the playback
  // stopped.
  bool PlaybackData(const Memory::MemBlock& data) override;

  bool StartPlayback(ClientManager* clients, INotificationSink* engine, Thread::ThreadModule& owner,
                     const String& threadName) override;
  void SetPlaybackStatus(const PlaybackStatusType& status) override;
  void StopPlayback(bool waitForThread) override;

 private:
  using Lock = Thread::ScopedLock<Thread::CritSec>;

  bool TakePiece(const Memory::MemBlock& data, std::uint32_t number) REQUIRES(lock_);
  bool SelectClients(bool by_dictionary) REQUIRES(lock_);
  void ForgetClientInfo() REQUIRES(lock_);
  void Reset() REQUIRES(lock_);

  // Guards the common state too.
  mutable Thread::CritSec lock_;
  ClientIdSet all_clients_ GUARDED_BY(lock_);
  bool started_ GUARDED_BY(lock_) = false;
  bool header_read_ GUARDED_BY(lock_) = false;
  std::uint32_t pieces_ GUARDED_BY(lock_) = 0;  // handed in since the start
};

}  // namespace kestrav

#endif  // KESTRAV_PLAYBACK_PASS_THROUGH_PLAYBACK_H_
