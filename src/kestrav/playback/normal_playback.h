#ifndef KESTRAV_PLAYBACK_NORMAL_PLAYBACK_H_
#define KESTRAV_PLAYBACK_NORMAL_PLAYBACK_H_

#include <cstdint>

#include "kestrav/host/thread/event.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/host/thread/worker_thread.h"
#include "kestrav/playback/binary_playback.h"

namespace kestrav {

// Playback in recorded time, divided by the speed, on a thread of its own. Any thread may call any
// operation; `StopPlayback(true)` waits for the thread and so must not be called from a client's
// callback. Callers change state through events, which the thread serves in the order quit, start,
// pause, rewind, end of log. Clients are called with the lock held; notification 12 too.
class KESTRAV_API BinaryPlaybackNormalImpl final : public IBinaryPlayback,
                                                   public Thread::WorkerThread {
 public:
  BinaryPlaybackNormalImpl() = default;
  ~BinaryPlaybackNormalImpl() override;

  // Playing: the next speed of the cycle 1, 2, 4, 10. Paused or finished: resumes.
  bool FastForward() override;
  bool SearchAndGetClientData(Memory::MemBlock& data, const std::uint16_t& clientId,
                              const std::uint16_t& dataId,
                              const std::uint32_t& offsetScnds) const override;
  bool GetPlaybackAttributes(std::uint32_t& lengthMs, std::uint32_t& size,
                             std::uint16_t& recordedClientsMask, Memory::MemBlock& data,
                             const std::uint16_t& clientId) const override;
  std::uint32_t GetPlaybackLogLengthMs() const override;
  std::uint32_t GetPlaybackLogSize() const override;
  PlaybackStatusType GetPlaybackStatus() const override;
  PlaybackSpeedType GetPlaybackSpeed() const override;
  // The position in the log, rounded; never ahead of the next record to deliver.
  std::uint32_t GetPlaybackTimeScnds() const override;
  std::uint32_t GetRewindTimeScnds() const override;
  std::uint32_t GetStartPlaybackOffsetScnds() const override;
  bool IsValidPlaybackOffset(std::uint32_t offsetScnds) const override;
  bool PausePlayback() override;
  bool ResumePlayback() override;
  // Goes back by the rewind time, at most to the start, and plays on at speed 1.
  bool RewindPlayback() override;
  // Only while playback is off.
  bool SetInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) override;
  // Not while playing.
  bool SetStartPlaybackOffsetScnds(std::uint32_t offsetScnds) override;
  // Any factor below 11. Not while playing; while paused, playback resumes at speed 0.
  bool SetStartPlaybackSpeed(PlaybackSpeedType speed) override;
  void SetRewindTimeScnds(std::uint32_t seconds) override;
  // From off and from the end of the log; while paused it resumes.
  bool StartPlayback(ClientManager* clients, INotificationSink* engine, Thread::ThreadModule& owner,
                     const String& threadName) override;
  void SetPlaybackStatus(const PlaybackStatusType& status) override;
  void StopPlayback(bool waitForThread) override;

 protected:
  void Main() override;

 private:
  using Lock = Thread::ScopedLock<Thread::CritSec>;

  static constexpr std::uint32_t kDefaultRewindScnds = 5;

  enum class End { kKeepSettings, kReset };

  // Steps of the thread; false ends the playback.
  bool Serve(int event);
  void ResetStartEvent(bool served);
  bool StartBinaryPlayback();
  bool PauseBinaryPlayback();
  bool RewindAndPlay();
  bool PlayData() REQUIRES(lock_);
  bool InitPlayback() REQUIRES(lock_);
  bool InitPlaybackTimeParams(std::uint32_t target) REQUIRES(lock_);
  bool JumpToOffset(std::uint32_t& target) REQUIRES(lock_);
  bool ReadNextPlaybackData(LogMessage& message, std::int32_t& delta_ms) REQUIRES(lock_);
  void SkipToStartTarget() REQUIRES(lock_);
  // Notification 3, then off. `kReset` forgets the settings of the playback too.
  void StopBinaryPlayback(End end, bool thread_ends);
  std::uint32_t GetWaitTime() const;
  // Sends a notification with the lock released, and takes it again.
  void NotifyUnlocked(Lock& lock, NotificationIdType id);

  bool StartPlaybackThread(Thread::ThreadModule& owner, const String& threadName) REQUIRES(lock_);
  bool SetPlaybackSpeed(PlaybackSpeedType speed);
  bool IncreaseSpeed();
  void SetWaitTimeMs(std::uint32_t span_ms) REQUIRES(lock_);
  void CountWaitFromDue() REQUIRES(lock_);
  std::uint32_t LogStart() const REQUIRES(lock_);
  void Reset() REQUIRES(lock_);

  Thread::ManualResetEvent start_event_;
  Thread::ManualResetEvent pause_event_;
  Thread::ManualResetEvent rewind_event_;
  Thread::ManualResetEvent end_event_;

  // Guards the common state too.
  mutable Thread::CritSec lock_;
  std::uint32_t clock_base_ms_ GUARDED_BY(lock_) = 0;  // the clock at the last change of speed
  std::uint32_t played_ms_ GUARDED_BY(lock_) = 0;      // the position then, from the log's start
  std::uint32_t last_played_ GUARDED_BY(lock_) = 0;    // record time stamps, in milliseconds
  std::uint32_t start_target_ GUARDED_BY(lock_) = 0;
  std::uint32_t wait_ms_ GUARDED_BY(lock_) = 0;       // until the next record is delivered
  std::uint32_t wait_from_ms_ GUARDED_BY(lock_) = 0;  // the clock from which that counts
  std::uint32_t rewind_step_scnds_ GUARDED_BY(lock_) = kDefaultRewindScnds;
  std::uint32_t rewind_target_scnds_ GUARDED_BY(lock_) = 0;
  PlaybackSpeedType speed_ GUARDED_BY(lock_) = PlaybackSpeedStopped;
  PlaybackSpeedType previous_speed_ GUARDED_BY(lock_) = PlaybackSpeedStopped;
  PlaybackSpeedType start_speed_ GUARDED_BY(lock_) = PlaybackSpeed1x;
  bool skipping_to_offset_ GUARDED_BY(lock_) = false;
  bool offset_changed_ GUARDED_BY(lock_) = false;
  bool thread_running_ GUARDED_BY(lock_) = false;
};

}  // namespace kestrav

#endif  // KESTRAV_PLAYBACK_NORMAL_PLAYBACK_H_
